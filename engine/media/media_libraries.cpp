#include "engine/media/media_libraries.h"

#include <mutex>

#include <exiv2/exiv2.hpp>
#include <vips/vips.h>

namespace lumivale {
namespace {

// exiv2 calls this around every use of the XMP toolkit, which is not
// thread-safe by itself.
std::mutex xmpMutex;

void lockXmp(void*, bool lock) {
  if (lock) {
    xmpMutex.lock();
  } else {
    xmpMutex.unlock();
  }
}

// vips reports every oddity of a damaged or unusual file as a warning on
// stderr (libjpeg, libpng and libtiff complaints included). A header that
// cannot be read is an error we report ourselves; the rest is noise.
void ignoreWarning(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

}  // namespace

void initMediaLibraries() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize(lockXmp, nullptr);
    Exiv2::enableBMFF(true);
    // vips_init is idempotent; calling it here keeps header reading usable
    // from programs that never touched vips before.
    vips_init("lumivale");
    g_log_set_handler("VIPS", G_LOG_LEVEL_WARNING, ignoreWarning, nullptr);
    // Photos are JPEG, PNG, TIFF or HEIF; anything else is not a photo of
    // ours. Left open, vips would hand an unknown file to its general-purpose
    // loaders (ImageMagick among them), which read text, vector and document
    // formats as images, call out to other programs and are not safe to run
    // on many threads at once.
    vips_operation_block_set("VipsForeignLoad", TRUE);
    for (const char* trusted : {"VipsForeignLoadJpeg", "VipsForeignLoadPng", "VipsForeignLoadTiff",
                                "VipsForeignLoadHeif"}) {
      vips_operation_block_set(trusted, FALSE);
    }
  });
}

}  // namespace lumivale
