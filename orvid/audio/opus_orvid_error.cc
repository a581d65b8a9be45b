#include "orvid/audio/opus_orvid_error.h"

namespace orvid {

const char* OpusOrvidError::what() const noexcept {
  switch (case_) {
    case Case::emptyAudio:
      return "emptyAudio";
  }
  return "emptyAudio";
}

}  // namespace orvid
