#pragma once

#include <cstddef>
#include <exception>
#include <functional>

namespace orvid {

// The error of the audio frame encoders: there was no audio to encode.
class OpusOrvidError : public std::exception {
 public:
  enum class Case { emptyAudio };

  static OpusOrvidError emptyAudio() { return OpusOrvidError(Case::emptyAudio); }

  Case errorCase() const { return case_; }
  // The error has no message of its own: what() is the case name, "emptyAudio".
  const char* what() const noexcept override;

  bool operator==(const OpusOrvidError& other) const { return case_ == other.case_; }

 private:
  explicit OpusOrvidError(Case errorCase) : case_(errorCase) {}

  Case case_;
};

}  // namespace orvid

template <>
struct std::hash<orvid::OpusOrvidError> {
  std::size_t operator()(const orvid::OpusOrvidError& error) const noexcept {
    return std::hash<int>()(static_cast<int>(error.errorCase()));
  }
};
