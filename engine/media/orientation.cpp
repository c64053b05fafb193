#include "engine/media/orientation.h"

#include "engine/media/vips_glue.h"

namespace lumivale {

Image orientUpright(const Image& image, int orientation) {
  if (orientation < 2 || orientation > 8) return image;
  return withVips("cannot turn the picture upright", [&] {
    vips::VImage in = vipsImage(image);
    switch (orientation) {
      case 2:
        return fromVips(in.fliphor());
      case 3:
        return fromVips(in.rot(VIPS_ANGLE_D180));
      case 4:
        return fromVips(in.flipver());
      case 5:
        return fromVips(in.rot(VIPS_ANGLE_D90).fliphor());  // the transpose
      case 6:
        return fromVips(in.rot(VIPS_ANGLE_D90));
      case 7:
        return fromVips(in.rot(VIPS_ANGLE_D270).fliphor());  // the other diagonal
      default:
        return fromVips(in.rot(VIPS_ANGLE_D270));
    }
  });
}

}  // namespace lumivale
