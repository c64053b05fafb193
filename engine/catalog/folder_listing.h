#pragma once
// Which files of a folder an import looks at.
//
// A deep listing skips hidden entries (names beginning with "."), does not
// descend into packages (folders that stand for one document or app, see
// `isPackageName`) nor into a library folder of ours, and does not follow
// symbolic links to folders, so a link cycle cannot trap it. Links to files
// count as the files they point to; a broken link counts as nothing.

#include <filesystem>
#include <string_view>
#include <vector>

namespace lumivale {

/// True for a folder name ending in .app, .bundle, .framework, .plugin,
/// .photoslibrary, .aplibrary, .lrdata, .fcpbundle or .imovielibrary (any
/// letter case).
bool isPackageName(std::string_view name);

/// `path` made absolute and lexically normal, without a trailing separator.
/// Symbolic links are not resolved.
std::filesystem::path standardizedPath(const std::filesystem::path& path);

/// The supported photo files (by extension) that are regular files in
/// `folder` and, when `recursive`, in its subfolders, sorted by full path in
/// the file browser's order. `libraryFolder` (the library doing the import)
/// is never entered, whatever its name. Entries that cannot be read are
/// passed over; a `folder` that cannot be listed throws FileError.
std::vector<std::filesystem::path> listPhotoFiles(const std::filesystem::path& folder, bool recursive,
                                                  const std::filesystem::path& libraryFolder = {});

}  // namespace lumivale
