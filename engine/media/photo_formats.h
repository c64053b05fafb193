#pragma once
// Which files the catalog accepts, decided by the file name's extension alone
// (compared lower-cased, so IMG_1.JPG is a JPEG).

#include <array>
#include <filesystem>
#include <string>
#include <string_view>

namespace lumivale::PhotoFormats {

/// Camera RAW extensions, lower case, without the dot.
inline constexpr std::array<std::string_view, 24> raw = {
    "cr2", "cr3", "crw", "nef", "nrw", "arw", "srf", "sr2", "dng", "raf", "orf", "rw2",
    "pef", "srw", "3fr", "erf", "iiq", "mos", "mrw", "x3f", "rwl", "kdc", "dcr", "raw"};

/// Image extensions read through the image decoders, lower case, without the dot.
inline constexpr std::array<std::string_view, 7> images = {"jpg", "jpeg", "heic", "heif",
                                                           "tif", "tiff", "png"};

/// The extension of the file name without the dot, lower-cased (ASCII only);
/// empty when there is none. A leading dot alone ("".jpg") is no extension.
std::string extension(const std::filesystem::path& file);

/// True when the extension is one of `raw` or `images`.
bool isSupported(const std::filesystem::path& file);

/// True when the extension is one of `raw`.
bool isRaw(const std::filesystem::path& file);

}  // namespace lumivale::PhotoFormats
