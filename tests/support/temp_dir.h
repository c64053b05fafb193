#pragma once
// A fresh folder under the system's temporary folder, removed with its
// contents when the object goes away.

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace lumivale::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return root; }
  std::filesystem::path operator/(const std::string& name) const { return root / name; }

 private:
  std::filesystem::path root;
};

/// Sets (or, with nullptr, removes) an environment variable for one scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    value ? setenv(name, value, 1) : unsetenv(name);
  }
  ~ScopedEnv() { saved_ ? setenv(name_, saved_->c_str(), 1) : unsetenv(name_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

/// Writes `bytes` to a file, creating its folder.
void writeFile(const std::filesystem::path& file, const std::string& bytes);
/// The whole content of a file, or empty.
std::string readFile(const std::filesystem::path& file);
/// Makes a FIFO (a named pipe) at `file`, as a photo's path may become one.
void makeFifo(const std::filesystem::path& file);

/// Runs `work` on a thread of its own and tells whether it finished within
/// `seconds`. Work that does not is left running, so that a test reports a
/// hang instead of hanging: it must own everything it uses (capture by value).
bool finishesWithin(double seconds, std::function<void()> work);

}  // namespace lumivale::test
