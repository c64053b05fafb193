#pragma once
// Photo files made by the tests themselves: images written with libvips and
// tagged with exiv2, small DNG files (diagnostics/sample_dng.h), Canon CRW
// files built record by record, HEIF headers built box by box; and the real
// photos under tests/data and ../shared/testdata.

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "diagnostics/sample_dng.h"

namespace lumivale::test {

// The DNG writer is shared with the self-test.
using diagnostics::cfaSamples;
using diagnostics::Rational;
using diagnostics::SampleDng;
using diagnostics::sceneGrey;
using diagnostics::writeDng;

/// A photo of tests/data/photos.
std::filesystem::path realPhoto(const std::string& name);
/// A photo of the project's shared test data (../shared/testdata/photos),
/// too large to keep in the repository; nothing when that folder is absent.
std::optional<std::filesystem::path> sharedPhoto(const std::string& relativePath);

/// Sets the process time zone for one test and restores it afterwards.
class TimeZone {
 public:
  explicit TimeZone(const char* tz) {
    if (const char* old = std::getenv("TZ")) saved = old;
    set(tz);
  }
  ~TimeZone() { saved ? set(saved->c_str()) : void(unsetenv("TZ")), tzset(); }

 private:
  static void set(const char* tz) { setenv("TZ", tz, 1), tzset(); }
  std::optional<std::string> saved;
};


/// The metadata to embed; unset fields are not written.
struct SampleTags {
  std::optional<std::string> make, model, lens, dateTimeOriginal, dateTime, copyright, artist, software;
  std::optional<Rational> exposure, fNumber, focal, exposureBias;
  std::optional<int> iso, focal35, flash, whiteBalance, metering, orientation;
  /// Degrees, minutes, seconds as exiv2 reads them: "37/1 46/1 3000/100".
  std::optional<std::string> latitude, latitudeRef, longitude, longitudeRef;
  std::vector<std::string> keywords;
  /// An EXIF thumbnail: a JPEG of this width and height.
  std::optional<std::pair<int, int>> thumbnail;
};

/// Writes a `width` × `height` RGB picture (a gradient) in the format named
/// by the file's extension (jpg/jpeg, tif/tiff, png, heic/heif) and embeds
/// `tags`. `bitsPerSample` 16 writes a 16-bit TIFF or PNG, 1, 2 or 4 a grey
/// TIFF or PNG of that depth, 10 or 12 a HEIC of that depth.
void writePhoto(const std::filesystem::path& file, int width, int height, const SampleTags& tags = {},
                int bitsPerSample = 8);

/// The bytes of a small JPEG picture.
std::string jpegBytes(int width, int height);

/// A picture as an export's encoder writes it: the gradient in 8 or 16 bits
/// with the sRGB profile, in the format `ext` names ("jpg", "png", "tif",
/// "heic"). With `leftover` not empty it also holds an EXIF block and an XMP
/// packet with that text, as an encoder that kept what a decoder attached
/// to the image would write them.
std::string encodedPicture(const std::string& ext, int width, int height, int bits = 8,
                           const std::string& leftover = "");

/// A Canon CRW (CIFF) file's content.
struct SampleCrw {
  std::string make = "Canon";
  std::string model = "Canon EOS D30";
  /// The camera's clock at capture as CIFF stores it: seconds since 1970,
  /// the clock's reading taken as UTC.
  std::uint32_t captureClock = 1083827289;  // 2004:05:06 07:08:09
  int width = 96;
  int height = 64;
};

/// Writes a CRW file with the capture time, image size and make/model
/// records where Canon's cameras put them, and 10-bit raw data.
void writeCrw(const std::filesystem::path& file, const SampleCrw& crw = {});

/// A Canon CR3 file with no image data at all, as a CR3 whose previews and
/// raw tracks were removed: the file type box and, in the movie box, Canon's
/// box holding the camera's IFD0 (CMT1) and EXIF directory (CMT2), with the
/// camera facts of `camera` (its EXIF size, not its raw image's).
std::string cr3Bytes(const SampleDng& camera);

/// The header of a HEIF image without coded data: a file type box and a
/// meta box whose primary item has these properties.
struct SampleHeif {
  int width = 64;
  int height = 48;
  int depth = 8;  ///< bits per channel, in a pixel information property
  /// Transforms in the order they apply: ('r', quarter turns anticlockwise)
  /// for a rotation, ('m', axis) for a mirroring.
  std::vector<std::pair<char, int>> transforms;
};
std::string heifHeaderBytes(const SampleHeif& heif);

}  // namespace lumivale::test
