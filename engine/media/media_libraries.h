#pragma once
// One-time, thread-safe set-up of the libraries that read photo headers
// (exiv2 and libvips). Every entry point that reads a header calls this
// first; later calls cost one atomic load.

namespace lumivale {

/// Initialises exiv2 (XMP toolkit with a lock, BMFF support so HEIC and CR3
/// are read, its log silenced) and libvips, once per process.
void initMediaLibraries();

}  // namespace lumivale
