#pragma once
// An environment variable set for one test and restored afterwards.

#include <cstdlib>
#include <optional>
#include <string>

namespace lumivale::test {

class Environment {
 public:
  /// Sets `name` to `value`, or unsets it when `value` is null.
  Environment(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~Environment() { saved_ ? setenv(name_, saved_->c_str(), 1) : unsetenv(name_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

}  // namespace lumivale::test
