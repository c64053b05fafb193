// Header reading of arbitrary bytes: every reader must refuse or describe
// the file, never crash. The input is written to a file under each of the
// extensions that choose a different reader.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/media/image_properties.h"
#include "engine/catalog/photo_meta.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumivale::iccProfileDescription(data, size);
  static const std::string base = "/tmp/lumivale-fuzz-header-" + std::to_string(getpid());
  for (const char* ext : {".jpg", ".png", ".tif", ".heic", ".dng", ".nef"}) {
    std::string file = base + ext;
    if (FILE* f = std::fopen(file.c_str(), "wb")) {
      std::fwrite(data, 1, size, f);
      std::fclose(f);
      lumivale::PhotoMeta::read(file);
      lumivale::PhotoMeta::details(file);
      std::remove(file.c_str());
    }
  }
  return 0;
}
