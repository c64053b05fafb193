#pragma once
// The EXIF and XMP items of a HEIF file, replaced without touching its
// coded images. exiv2 reads HEIF but cannot write it, and libvips' saver
// fills in an EXIF block of its own; so the file a saver wrote is taken
// apart box by box and put together again with the items we choose.

#include <string>
#include <string_view>

namespace lumivale {

/// `file` (a whole HEIF file: a file type box, one meta box, media data)
/// with every EXIF item and XMP item removed, their bytes too, and `exif`
/// (a TIFF structure) and `xmp` (an XMP packet) added as hidden items that
/// describe the primary image; an empty one is not added. Every other item
/// keeps its bytes, its properties and its references; the media data is
/// written anew holding exactly the kept items' bytes. Throws MediaError
/// "cannot write the metadata: <reason>" when the file is cut short or
/// damaged, or laid out in a way this does not take apart (data in other
/// files, items built from other items' bytes, boxes other than these at
/// the top).
std::string replaceHeifMetadata(std::string_view file, std::string_view exif, std::string_view xmp);

}  // namespace lumivale
