#pragma once

#include <exception>
#include <stop_token>

namespace orvid {

// Long operations take a std::stop_token and throw CancellationError once it is
// stopped. A default-constructed token can never be stopped.
class CancellationError : public std::exception {
 public:
  const char* what() const noexcept override { return "The operation was cancelled."; }
  bool operator==(const CancellationError&) const { return true; }
};

// Throws CancellationError when `token` has been asked to stop.
inline void checkCancellation(const std::stop_token& token) {
  if (token.stop_requested()) throw CancellationError();
}

}  // namespace orvid
