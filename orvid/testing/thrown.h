#pragma once

#include <optional>

namespace orvid::testing {

// The `Error` that `call` throws; absent when it returns. Other exceptions pass through.
template <typename Error, typename Call>
std::optional<Error> thrown(Call&& call) {
  try {
    call();
  } catch (const Error& error) {
    return error;
  }
  return std::nullopt;
}

// The case of the `Error` that `call` throws; absent when it returns.
template <typename Error, typename Call>
std::optional<typename Error::Case> thrownCase(Call&& call) {
  if (auto error = thrown<Error>(call)) return error->errorCase();
  return std::nullopt;
}

}  // namespace orvid::testing
