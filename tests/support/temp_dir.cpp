#include "tests/support/temp_dir.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

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

void makeFifo(const std::filesystem::path& file) {
  if (::mkfifo(file.c_str(), 0600) != 0) throw std::runtime_error("cannot make the FIFO " + file.string());
}

bool finishesWithin(double seconds, std::function<void()> work) {
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread([work = std::move(work), done] {
    work();
    done->set_value();
  }).detach();
  return finished.wait_for(std::chrono::duration<double>(seconds)) == std::future_status::ready;
}

}  // namespace lumivale::test
