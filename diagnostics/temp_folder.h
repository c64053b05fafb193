#pragma once
// A fresh folder of the diagnostics' own under the system's temporary
// folder, removed with everything in it when the object goes away. Only
// what the diagnostics made is ever in it.

#include <filesystem>

namespace lumivale::diagnostics {

class TempFolder {
 public:
  /// Makes "lumivale-<what>-XXXXXX" in the temporary folder. Throws
  /// std::runtime_error when it cannot.
  explicit TempFolder(const char* what);
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace lumivale::diagnostics
