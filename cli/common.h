#pragma once
// Helpers the command groups share: joining texts, counting photos, reading
// positional arguments, and checking photo ids before anything is written.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/cli.h"
#include "engine/catalog/photo_record.h"
#include "engine/edit/edit_settings.h"
#include "engine/util/text.h"

namespace lumivale::cli {

using Ids = std::vector<std::int64_t>;

/// `text` fit to print on a terminal: control characters (C0, DEL and the
/// C1 range) and bytes that are not UTF-8 become visible escapes ("\n",
/// "\t", "\e", "\x7f", "\u009b", "\xff"); everything else, valid UTF-8
/// of any script, stays as it is. Every name and stored text in human output
/// goes through it, so a file name cannot move the cursor, clear the screen
/// or break a line in two. JSON output needs none of this.
std::string printable(std::string_view text);

/// Display width in terminal columns, counting code points (not bytes).
std::size_t columns(const std::string& text);
/// `text` with blanks after it up to `width` columns.
std::string padded(const std::string& text, std::size_t width);

/// `parts` with `separator` between them.
std::string joined(const std::vector<std::string>& parts, const std::string& separator);
/// "`n` `one`" or "`n` `many`".
std::string plural(std::size_t n, const std::string& one, const std::string& many);
/// "1 photo", "3 photos".
std::string photoCount(std::size_t n);
/// A size in bytes as "512 bytes", "1.5 MB".
std::string byteText(std::uintmax_t bytes);

/// A usage error "expected: `usage`" unless there are `count` positional arguments.
void requireCount(const Arguments& args, std::size_t count, const std::string& usage);
/// The positional arguments from `index` on, joined with blanks, so that
/// unquoted words on the command line read as one text.
std::string textFrom(const Arguments& args, std::size_t index);
/// `name`, or the usage error "`what` needs a name" when it is blank.
std::string requireName(const std::string& name, const std::string& what);
/// A catalog row id (1 or more); errors call it `what`.
std::int64_t parseRowId(const std::string& text, const std::string& what);

/// Fails when an id is not in the catalog, naming the first ten missing ids;
/// a `writing` command adds that nothing was changed.
void requirePhotos(PhotoLibrary& library, const Ids& ids, bool writing = true);
/// Develop settings from a file in the stored form, read tolerantly key by
/// key like a stored edit. A file that cannot be read, or that is not a JSON
/// object at all (much more likely the wrong file than a damaged edit), is an
/// error.
EditSettings settingsFromFile(const std::string& path);
/// The photo's record, or the error "no photo with id `id`".
PhotoRecord existingPhoto(PhotoLibrary& library, std::int64_t id);

/// The whole content of the file a command was given to read, or the
/// CommandError "cannot read `what` from '`path`'" when it cannot be read.
std::string readInputFile(const std::string& path, const std::string& what);

}  // namespace lumivale::cli
