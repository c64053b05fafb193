#pragma once
// The private parts of VeskModel shared by its source files: the queues, the
// thumbnail cache and what the render queue alone touches.

#include <QCache>
#include <QThreadPool>
#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "app/model/task_queue.h"
#include "app/model/vesk_model.h"
#include "engine/catalog/user_defaults.h"
#include "engine/media/image.h"
#include "engine/render/photo_renderer.h"
#include "engine/render/photo_source.h"

namespace lumivale::app {

/// What the render queue owns. Touched only by tasks on that queue.
struct RenderState {
  std::optional<PhotoSource> source;
  std::int64_t sourcePhoto = 0;  ///< the photo `source` was opened for
  Image base;                    ///< the source reduced to the preview side
  std::string baseKey;           ///< the source and side `base` was made for
};

/// A thread pool whose jobs pass through a lock of ours: Qt's own locks are
/// hidden from ThreadSanitizer (Qt is not built with it), ours are not, so
/// the hand-off of a job's data stays checkable.
class JobPool {
 public:
  /// `maxThreads` 0: one per core.
  JobPool(int maxThreads, QThread::Priority priority);
  void run(std::function<void()> job);
  /// Drops the jobs not yet started.
  void clearPending();
  void waitForDone();

 private:
  QThreadPool pool_;
  std::mutex lock_;
  std::deque<std::function<void()>> jobs_;
  std::uint64_t finished_ = 0;
};

struct VeskModel::Impl {
  explicit Impl(UserDefaults defaults);

  UserDefaults defaults;
  PhotoRenderer renderer;  ///< previews; edited thumbnails use their own
  RenderState state;       ///< render queue only
  /// `loadToken` as the background reads it; written on the main thread.
  std::atomic<std::uint64_t> token{0};

  mutable std::mutex cacheLock;
  QCache<qint64, QImage> thumbCache;
  std::set<std::int64_t> thumbRequests;  ///< main thread: loads under way

  // Declared last, so they stop first: nothing runs once the rest is gone.
  /// Results on their way to the main thread (see `toMain`).
  std::mutex mailLock;
  std::deque<std::function<void()>> mail;

  JobPool importPool;
  JobPool exportPool;
  JobPool thumbPool;
  JobPool histogramPool;
  JobPool detailsPool;  ///< the current photo's file details
  SerialQueue renderQueue;

  /// Stops every queue and waits for what runs.
  void shutDown();
};

/// What one preview render produced, handed to the main thread.
struct RenderResult {
  QImage preview;
  QImage before;
  Image shown;  ///< the preview as an 8-bit sRGB picture, for its histogram
  double frameMS = 0;
  std::string error;
};

/// Assigns and tells whether the value changed.
template <class T>
bool assign(T& field, const T& value) {
  if (field == value) return false;
  field = value;
  return true;
}

/// The cache key of a record's thumbnail: edited and plain ones differ.
inline qint64 thumbKey(const PhotoRecord& record) { return record.id * 2 + (record.edited ? 1 : 0); }

}  // namespace lumivale::app
