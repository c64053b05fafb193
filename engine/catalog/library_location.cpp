#include "engine/catalog/library_location.h"

#include "engine/catalog/folder_listing.h"
#include "engine/util/text.h"

#include <cstdio>
#include <cstdlib>

namespace lumivale {
namespace {

std::filesystem::path homeFolder() {
  const char* home = std::getenv("HOME");
  return home && *home ? std::filesystem::path(home) : std::filesystem::path("/");
}

}  // namespace

std::filesystem::path picturesFolder() {
  std::string answer;
  if (FILE* pipe = popen("xdg-user-dir PICTURES 2>/dev/null", "r")) {
    char buffer[4096];
    while (std::fgets(buffer, sizeof buffer, pipe)) answer += buffer;
    pclose(pipe);
  }
  answer = trimmed(answer);
  const std::filesystem::path home = homeFolder();
  // xdg-user-dir answers with the home folder itself when no Pictures folder
  // is configured; that is not a Pictures folder.
  if (!answer.empty() && answer.front() == '/' &&
      std::filesystem::path(answer).lexically_normal() != home.lexically_normal()) {
    return answer;
  }
  return home / "Pictures";
}

std::filesystem::path resolveLibraryFolder(const std::optional<std::string>& fromCommandLine) {
  if (fromCommandLine && !fromCommandLine->empty()) {
    return standardizedPath(*fromCommandLine);
  }
  if (const char* env = std::getenv("LUMIVALE_LIBRARY"); env && *env) {
    return standardizedPath(env);
  }
  return picturesFolder() / libraryFolderName;
}

}  // namespace lumivale
