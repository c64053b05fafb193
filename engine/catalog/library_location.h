#pragma once
// Where the library folder lives: the user's Pictures folder +
// "KUVO Lumivale Library", unless the command line or LUMIVALE_LIBRARY names
// another folder.

#include <filesystem>
#include <optional>
#include <string>

namespace lumivale {

/// The name of the library folder inside the Pictures folder.
inline constexpr const char* libraryFolderName = "KUVO Lumivale Library";

/// The user's Pictures folder: `xdg-user-dir PICTURES` when it names a folder
/// other than home, else ~/Pictures.
std::filesystem::path picturesFolder();

/// The library folder to open: `fromCommandLine` when given, else the
/// environment variable LUMIVALE_LIBRARY when set and not empty, else the
/// Pictures folder + "KUVO Lumivale Library".
std::filesystem::path resolveLibraryFolder(const std::optional<std::string>& fromCommandLine);

}  // namespace lumivale
