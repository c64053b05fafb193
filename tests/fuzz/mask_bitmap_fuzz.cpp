// Hands arbitrary bytes to the stored-mask reader and the raw LZFSE decoder,
// and checks that whatever decodes, and the input itself, survives our own
// encoder: decode(encode(x)) == x.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "engine/util/lzfse.h"
#include "engine/render/mask_bitmap.h"

using namespace lumivale;

namespace {

void roundTrip(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::uint8_t> stream = lzfse::encode(data, size);
  const auto back = lzfse::decode(stream, size);
  if (!back || back->size() != size || (size > 0 && !std::equal(back->begin(), back->end(), data)))
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (const auto decoded = lzfse::decode(data, size, std::size_t{1} << 22)) {
    if (decoded->size() > (std::size_t{1} << 22)) std::abort();
    roundTrip(decoded->data(), decoded->size());
  }
  if (const auto mask = MaskBitmap::decode({data, size})) {
    if (mask->bytes.size() != std::size_t(mask->width) * std::size_t(mask->height)) std::abort();
    const auto again = MaskBitmap::decode(mask->encoded());
    if (!again || !(*again == *mask)) std::abort();
  }
  roundTrip(data, size);
  return 0;
}
