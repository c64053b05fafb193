#include "diagnostics/temp_folder.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

namespace lumivale::diagnostics {

TempFolder::TempFolder(const char* what) {
  std::error_code error;
  std::filesystem::path base = std::filesystem::temp_directory_path(error);
  if (error) base = "/tmp";
  std::string pattern = (base / ("lumivale-" + std::string(what) + "-XXXXXX")).string();
  if (!mkdtemp(pattern.data())) {
    throw std::runtime_error("cannot make a temporary folder in " + base.string() + ": " +
                             std::strerror(errno));
  }
  path_ = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace lumivale::diagnostics
