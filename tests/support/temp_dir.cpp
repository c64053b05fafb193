#include "tests/support/temp_dir.h"

#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace lumivale::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "lumivale-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary folder");
  root = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  // Restore permissions that a test may have taken away, then remove all.
  for (auto it = std::filesystem::recursive_directory_iterator(root, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
  }
  std::filesystem::remove_all(root, ignored);
}

void writeFile(const std::filesystem::path& file, const std::string& bytes) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << bytes;
}

std::string readFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::stringstream buffer;
  buffer << stream.rdbuf();
  return buffer.str();
}

}  // namespace lumivale::test
