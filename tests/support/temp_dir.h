#pragma once
// A fresh folder under the system's temporary folder, removed with its
// contents when the object goes away.

#include <filesystem>
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

/// Writes `bytes` to a file, creating its folder.
void writeFile(const std::filesystem::path& file, const std::string& bytes);
/// The whole content of a file, or empty.
std::string readFile(const std::filesystem::path& file);

}  // namespace lumivale::test
