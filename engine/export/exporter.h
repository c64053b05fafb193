#pragma once
// The rules of an export that need no renderer: how large the written image
// is, what its file is called, how a file name is chosen without ever
// replacing a file, output sharpening, the text watermark and the metadata
// written with it; and the one error an export throws.

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/catalog/photo_record.h"
#include "engine/export/export_options.h"
#include "engine/media/image.h"
#include "engine/media/output_metadata.h"
#include "engine/media/safe_file.h"

namespace lumivale {

/// An export of one photo failed; `description` is the whole line shown to
/// the user.
class ExportError : public std::runtime_error {
 public:
  explicit ExportError(const std::string& description) : std::runtime_error(description) {}
  std::string description() const { return what(); }

  /// "Could not open <name>": the photo's file cannot be opened.
  static ExportError cannotOpen(std::string_view photoName);
  /// "Could not decode <name>".
  static ExportError cannotDecode(std::string_view photoName);
  /// "Could not render <name>".
  static ExportError cannotRender(std::string_view photoName);
  /// "This computer cannot write <title> files": no encoder for the format.
  static ExportError noEncoder(ExportFormat format);
  /// "Could not write <file name>".
  static ExportError cannotWrite(std::string_view fileName);
};

namespace Exporter {

struct PixelSize {
  int width = 0;
  int height = 0;
  bool operator==(const PixelSize&) const = default;
};

/// The output size in whole pixels of a developed image `width` × `height`:
/// scaled by `sizeValue` over the edge the size mode names (or per cent),
/// the scale no smaller than 0.01, and never above 1 when `dontEnlarge` is
/// set; each side rounded (halves away from zero) and at least 1. `original`
/// keeps the size. A side that is not a positive number counts as 1.
PixelSize outputSize(double width, double height, const ExportOptions& options);

/// The longest side to decode the photo at for an output `scale` (output
/// over developed size) of a photo `fullWidth` × `fullHeight`: below 0.45,
/// 1.6 times the scale (at most the full size) of its longer side; nothing,
/// meaning the full size, from 0.45 on.
std::optional<int> decodeMaxSide(double scale, int fullWidth, int fullHeight);

/// Bits per channel of the written file: 16 for TIFF with `tiff16Bit`, else 8.
int outputBits(const ExportOptions& options);

/// The base file name, without extension, of the photo's export:
/// `original` the photo's name without its last extension (IMG_1.CR3 gives
/// IMG_1), `originalSuffix` that followed by `suffix`, `custom`
/// `customName` (or "Photo" when it is empty) and "-" and `sequence` in at
/// least three digits (Photo-001). A name that comes out empty is "Photo".
std::string fileName(const PhotoRecord& record, const ExportOptions& options, int sequence);

/// `name` with every "/" and ":" made "-", so that it names a file in the
/// output folder and nothing else.
std::string safeName(std::string_view name);

/// The numbered file name of attempt `n`: "name.ext" for 1, else
/// "name n.ext" ("IMG_1 2.jpg"); `name` as `safeName` leaves it.
std::string numberedName(std::string_view name, std::string_view ext, int n);

/// The first of folder/"name.ext", folder/"name 2.ext", "name 3.ext", …
/// that nothing in the folder has taken now. Only looks; two exports
/// running at once may get the same answer (`writeFile` never lets both
/// have it).
std::filesystem::path uniqueURL(const std::filesystem::path& folder, std::string_view name,
                                std::string_view ext);

/// Writes a new file in `folder` with what `fill` writes, under the first
/// name of `uniqueURL`'s row that is free when the finished file takes it,
/// and returns where it went. The bytes go to a temporary file in the folder
/// first; a name taken meanwhile is passed over, and a failure (missing or
/// read-only folder, full disk, a failed `fill`) leaves nothing behind.
/// Throws ExportError "Could not write <name.ext>".
std::filesystem::path writeFile(const std::filesystem::path& folder, std::string_view name,
                                std::string_view ext, const FileFiller& fill);
/// The same with the file's bytes in memory: an encoded picture with its
/// metadata added (`withOutputMetadata`).
std::filesystem::path writeFile(const std::filesystem::path& folder, std::string_view name,
                                std::string_view ext, std::string_view bytes);

/// Output sharpening for the medium the options name: an unsharp mask of a
/// fixed radius in output pixels (screen 0.6, matte 1.4, glossy 1.0) and an
/// intensity of the medium's base (0.35, 0.7, 0.5) times the level's
/// multiplier (low 0.6, standard 1, high 1.5), seeing the edge pixels
/// repeated beyond the extent; the image itself for `none`. Lazy.
Image outputSharpen(const Image& image, const ExportOptions& options);

/// The font size of the watermark on an image `width` × `height`:
/// `watermarkSize` per cent of the shorter side, at least 8 pixels.
double watermarkFontSize(int width, int height, const ExportOptions& options);

/// The output image (8- or 16-bit RGB with its ICC profile) with the
/// options' watermark text drawn on it: light or dark, at the options'
/// opacity, in the position's corner, edge or centre at a margin of 0.8
/// times the font size, over a soft shadow. Nothing when it cannot be drawn
/// (no colour profile, another pixel format, text that cannot be laid out);
/// the export then goes on without it. Draws whatever `watermarkOn` says.
std::optional<Image> watermark(const Image& image, const ExportOptions& options);

/// The software name written into exported files.
inline constexpr std::string_view softwareName = "KUVO Lumivale (KUVO)";

/// What the exported file's metadata holds under the options' policy:
/// `none` nothing but the upright orientation; `copyrightOnly` the software
/// name, the options' copyright and `keywords`; `all` that and what the
/// photo's own file carries (camera details, location, its IPTC record),
/// read now; a file that cannot be read adds nothing.
OutputMetadata metadata(const PhotoRecord& record, const ExportOptions& options,
                        const std::vector<std::string>& keywords);

}  // namespace Exporter
}  // namespace lumivale
