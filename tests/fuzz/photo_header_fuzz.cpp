// Header reading of arbitrary bytes: every reader must refuse or describe
// the file, never crash or hang. Readers are chosen by content, the route by
// extension: the bytes are tried as an image (.jpg) and as a RAW file
// (.dng: the RAW readers first, then the image readers).

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "engine/catalog/photo_meta.h"
#include "engine/media/image_properties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumivale::iccProfileDescription(data, size);
  static const std::string base = "/tmp/lumivale-fuzz-header-" + std::to_string(getpid());
  for (const char* ext : {".jpg", ".dng"}) {
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
