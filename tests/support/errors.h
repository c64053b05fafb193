#pragma once
// Expected errors, for tests that check what they say.

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace lumivale::test {

/// The `what()` of the `Error` that `f` throws; "(no error)" when it returns.
/// Errors of other types propagate and fail the test.
template <class Error = std::exception, class F>
std::string errorMessage(F&& f) {
  try {
    f();
  } catch (const Error& e) {
    return e.what();
  }
  return "(no error)";
}

/// Success when `f` throws an `Error` whose message contains `part`.
template <class Error = std::exception, class F>
::testing::AssertionResult throwsWith(F&& f, const std::string& part) {
  const std::string message = errorMessage<Error>(f);
  if (message != "(no error)" && message.find(part) != std::string::npos)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "error \"" << message << "\" does not say \"" << part << "\"";
}

}  // namespace lumivale::test
