#include <atomic>
#include <mutex>
#include <string>

#include "engine/catalog/photo_library.h"
#include "engine/catalog/thumbnails.h"
#include "engine/util/parallel.h"

namespace lumivale {

std::filesystem::path PhotoLibrary::thumbnailURL(std::int64_t id, bool edited) const {
  return thumbFolder() / (std::to_string(id) + (edited ? "-e.jpg" : ".jpg"));
}

std::optional<Bitmap> PhotoLibrary::thumbnail(const PhotoRecord& record) const {
  if (record.edited) {
    if (std::optional<Bitmap> edited = Thumbnails::load(thumbnailURL(record.id, true))) return edited;
  }
  const std::filesystem::path plain = thumbnailURL(record.id, false);
  if (std::optional<Bitmap> stored = Thumbnails::load(plain)) return stored;
  std::optional<Bitmap> made = Thumbnails::make(record.path, thumbSide);
  if (made) Thumbnails::save(*made, plain, Thumbnails::storedQuality);
  return made;
}

ThumbnailBatch PhotoLibrary::makeThumbnails(const std::vector<PhotoRecord>& photos, bool force,
                                            const ThumbnailProgress& progress) const {
  std::atomic<int> made = 0, present = 0, failed = 0, unsaved = 0;
  std::mutex progressLock;
  int handled = 0;
  const int total = int(photos.size());
  try {
    parallelFor(photos.size(), [&](std::size_t i) {
      const PhotoRecord& photo = photos[i];
      const std::filesystem::path file = thumbnailURL(photo.id, false);
      if (!force && Thumbnails::load(file)) {
        ++present;
      } else if (std::optional<Bitmap> thumbnail = Thumbnails::make(photo.path, thumbSide)) {
        ++(Thumbnails::write(*thumbnail, file, Thumbnails::storedQuality) ? made : unsaved);
      } else {
        ++failed;
      }
      if (progress) {
        std::lock_guard lock(progressLock);
        progress(++handled, total);
      }
    });
  } catch (const std::exception&) {
    // Only a progress callback can throw; the counts so far stand.
  }
  return {made, present, failed, unsaved};
}

}  // namespace lumivale
