#pragma once
// The header of an image file as its own container states it, read from the
// bytes themselves without a decoder: the JPEG frame header (SOF), the PNG
// IHDR chunk, the first TIFF directory, the item properties of a HEIF
// file's primary image. The format is recognised by the first bytes, never
// by the name: a file that is none of JPEG, PNG, TIFF or HEIF is not read.
//
// Every walk moves forward through the file or through a box already in
// memory, and every read is charged to the file's budget, so a damaged
// header ends the read instead of looping.

#include <optional>
#include <string>

#include "engine/media/photo_file.h"

namespace lumivale {

enum class ImageFormat { jpeg, png, tiff, heif };

struct ImageHeader {
  ImageFormat format = ImageFormat::jpeg;
  /// Pixels as stored (HEIF: the primary image's extent before its
  /// transforms), both at least 1.
  int width = 0;
  int height = 0;
  /// Bits per sample as coded (JPEG sample precision, PNG bit depth, TIFF
  /// BitsPerSample, the HEIF pixel information or codec configuration); 0
  /// when the header does not say.
  int depth = 0;
  /// HEIF only: the primary image's rotation and mirroring as an EXIF
  /// orientation 1 to 8 (1 when it has none). 0 for the other formats, whose
  /// orientation is an EXIF tag.
  int orientation = 0;
  /// The embedded ICC profile, when the header holds it (JPEG APP2 chunks,
  /// the TIFF profile tag, the HEIF colour property); empty otherwise.
  std::string iccProfile;
  /// JPEG: the TIFF structure of the first Exif APP1 segment.
  std::string exif;
  /// JPEG: the Photoshop resource blocks of the APP13 segments, joined.
  std::string photoshop;

  bool operator==(const ImageHeader&) const = default;
};

/// Reads the header of an image file. Nothing when the content is none of
/// the four formats, or its header is cut short or damaged. Throws
/// ReadBudgetExceeded when the file's budget runs out.
std::optional<ImageHeader> readImageHeader(PhotoFile& file);

}  // namespace lumivale
