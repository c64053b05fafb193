#pragma once
// A fresh folder under the system's temporary folder, removed with its
// contents when the object goes away.

#include <filesystem>
#include <functional>
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
/// Makes a FIFO (a named pipe) at `file`, as a photo's path may become one.
void makeFifo(const std::filesystem::path& file);

/// Runs `work` on a thread of its own and tells whether it finished within
/// `seconds`. Work that does not is left running, so that a test reports a
/// hang instead of hanging: it must own everything it uses (capture by value).
bool finishesWithin(double seconds, std::function<void()> work);

}  // namespace lumivale::test
