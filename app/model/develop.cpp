// Develop: opening the current photo, rendering its preview on the render
// queue, and remaking edited thumbnails after edits.
//
// The render queue owns the decoded source and the base image reduced to
// the preview side (RenderState); the main thread owns everything it
// publishes. A job captures `loadToken` and the photo when it starts; its
// result is applied on the main thread only when both still match.

#include <QElapsedTimer>
#include <QTimer>
#include <chrono>

#include "app/model/model_impl.h"
#include "app/model/thumbnail_store.h"
#include "app/model/vesk_model.h"
#include "engine/catalog/thumbnails.h"
#include "engine/media/bitmap.h"

namespace lumivale::app {

namespace {

/// What one render needs, captured on the main thread.
struct RenderJob {
  std::uint64_t token = 0;
  std::int64_t photo = 0;
  int side = VeskModel::previewSideNormal;
  EditSettings settings;
  PhotoRenderer::Options options;
  bool clipping = false;
  std::optional<EditSettings> before;  ///< with a compare mode
};

std::string baseKeyOf(std::int64_t photo, int side, const EditSettings& settings) {
  return std::to_string(photo) + "|" + std::to_string(side) + "|" + settings.sourceKey();
}

// On the render queue: the base for the job's side, made when the key moved on.
const Image& baseFor(RenderState& state, const RenderJob& job) {
  const std::string key = baseKeyOf(job.photo, job.side, job.settings);
  if (state.base.empty() || state.baseKey != key) {
    state.base = Image();
    state.baseKey.clear();
    Image base = state.source->image(job.side, job.settings).image.materialize();
    state.base = std::move(base);
    state.baseKey = key;
  }
  return state.base;
}

RenderResult render(RenderState& state, PhotoRenderer& renderer, const RenderJob& job) {
  RenderResult result;
  try {
    QElapsedTimer clock;
    clock.start();
    const Image& base = baseFor(state, job);
    const Size full = state.source->fullSize();
    Image developed = renderer.render(base, full, job.settings, job.options);
    if (job.clipping) developed = clippingOverlay(developed);
    const Image shown = outputImage(developed, ColorSpace::sRGB, 8).materialize();
    result.preview = ThumbnailStore::toQImage(shown);
    result.frameMS = double(clock.nsecsElapsed()) / 1e6;
    result.shown = shown;
    if (job.before) {
      PhotoRenderer::Options plain;
      plain.cropEditing = job.options.cropEditing;
      result.before = ThumbnailStore::toQImageFromWorking(renderer.render(base, full, *job.before, plain));
    }
  } catch (const std::exception& e) {
    result.preview = QImage();
    result.error = e.what();
  }
  return result;
}

}  // namespace

// ---- the open photo ------------------------------------------------------------------------------

void VeskModel::loadEditState(std::int64_t id) {
  settings_ = library_->settings(id);
  emit settingsChanged();
  readHistory(id);
  if (assign(snapshots_, library_->snapshots(id))) emit snapshotsChanged();
}

void VeskModel::readHistory(std::int64_t id) {
  EditHistory history = library_->history(id);
  const bool steps = assign(history_, std::move(history.steps));
  const bool position = assign(historyPos_, history.position);
  if (steps) emit historyChanged();
  if (position) emit historyPosChanged();
  if (steps || position) emit undoStateChanged();
}

void VeskModel::currentChanged() {
  bumpToken();
  readCurrentTags();
  const std::optional<PhotoRecord> record = current();
  if (record) {
    openRecord_ = record;
    loadEditState(record->id);
    if (!beforeImage_.isNull()) {
      beforeImage_ = QImage();
      emit beforeImageChanged();
    }
    if (assign(tool_, DevTool::none)) emit toolChanged();
    if (assign(selectedMask_, std::optional<std::string>())) emit selectedMaskChanged();
    requestRender();
    if (module_ == Module::develop) {
      openForDevelop(*record, loadToken_);
    } else {
      releaseSource();
    }
    return;
  }
  openRecord_.reset();
  settings_ = EditSettings();
  emit settingsChanged();
  if (!preview_.isNull()) {
    preview_ = QImage();
    emit previewChanged();
  }
  if (assign(history_, std::vector<HistoryStep>())) emit historyChanged();
  if (assign(historyPos_, 0)) emit historyPosChanged();
  emit undoStateChanged();
  if (assign(snapshots_, std::vector<Snapshot>())) emit snapshotsChanged();
  releaseSource();
}

void VeskModel::releaseSource() {
  sourceSize_.reset();
  // A load under way when Develop was left will not report back.
  if (assign(loadingOriginal_, false)) emit loadingOriginalChanged();
  impl_->renderQueue.post([impl = impl_.get()] { impl->state = RenderState(); });
}

void VeskModel::enterDevelop() {
  const std::optional<PhotoRecord> record = current();
  if (!record) return;
  if (assign(module_, Module::develop)) emit moduleChanged();
  bumpToken();
  openRecord_ = record;
  openForDevelop(*record, loadToken_);
}

void VeskModel::enterDevelopIfNeeded() {
  if (module_ != Module::develop) enterDevelop();
}

void VeskModel::openForDevelop(const PhotoRecord& record, std::uint64_t token) {
  preview_ = cachedThumbnail(record);
  emit previewChanged();
  if (assign(loadingOriginal_, true)) emit loadingOriginalChanged();
  sourceSize_.reset();
  const int side = previewSide_;
  Impl* impl = impl_.get();
  impl->renderQueue.post([this, impl, record, token, side] {
    if (impl->token.load() != token) return;
    if (record.isRaw) {
      if (const std::optional<Bitmap> quick = Thumbnails::make(record.path, side)) {
        QImage image = ThumbnailStore::toQImage(*quick);
        toMain([this, image, token] {
          if (loadToken_ != token || !loadingOriginal_) return;
          preview_ = image;
          emit previewChanged();
        });
      }
    }
    std::optional<PhotoSource> source;
    try {
      source.emplace(PhotoSource::open(record.path));
    } catch (const std::exception&) {
    }
    const bool lens = source && source->lensCorrectionAvailable();
    const std::optional<Size> size = source ? std::optional(source->fullSize()) : std::nullopt;
    if (impl->token.load() != token) return;
    impl->state = RenderState();
    impl->state.source = std::move(source);
    impl->state.sourcePhoto = record.id;
    toMain([this, token, lens, size, name = record.name] {
      if (loadToken_ != token) return;
      if (assign(lensAvailable_, lens)) emit lensAvailableChanged();
      if (assign(loadingOriginal_, false)) emit loadingOriginalChanged();
      sourceSize_ = size;
      if (!size) setStatus("This file could not be opened: " + QString::fromStdString(name));
      requestRender();
      if (compare_ != CompareMode::off) requestRender();
    });
  });
}

// ---- rendering -------------------------------------------------------------------------------------

EditSettings VeskModel::beforeSettings() const {
  const std::optional<PhotoRecord> record = current();
  EditSettings before = PhotoLibrary::initialSettings(record && record->isRaw);
  return before.merging(settings_, {SettingsGroup::geometry});
}

void VeskModel::requestRender() {
  if (module_ != Module::develop) return;
  if (rendering_) {
    pendingRender_ = true;
    return;
  }
  const std::optional<PhotoRecord> record = current();
  if (!record) return;
  rendering_ = true;
  ++rendersStarted_;
  RenderJob job;
  job.token = loadToken_;
  job.photo = record->id;
  job.side = previewSide_;
  job.settings = settings_;
  job.options.cropEditing = tool_ == DevTool::crop;
  if (selectedMask_ && (showMaskOverlay_ || tool_ == DevTool::brush)) job.options.maskOverlay = selectedMask_;
  job.clipping = showClipping_;
  if (compare_ != CompareMode::off) job.before = beforeSettings();
  Impl* impl = impl_.get();
  impl->renderQueue.post([this, impl, job = std::move(job)] {
    RenderResult result;
    const bool current =
        impl->token.load() == job.token && impl->state.source && impl->state.sourcePhoto == job.photo;
    if (current) result = render(impl->state, impl->renderer, job);
    toMain([this, token = job.token, result = std::move(result)] { finishRender(token, result); });
  });
}

void VeskModel::finishRender(std::uint64_t token, const RenderResult& result) {
  if (token == loadToken_ && !result.preview.isNull()) {
    if (!result.before.isNull() && result.before.size() == result.preview.size()) {
      beforeImage_ = result.before;
      emit beforeImageChanged();
    }
    preview_ = result.preview;
    emit previewChanged();
    measureHistogram(token, result.shown);
    lastFrameMS_ = result.frameMS;
    emit lastFrameMSChanged();
    frameTimes_.push_back(result.frameMS);
    while (frameTimes_.size() > frameTimesLimit) frameTimes_.pop_front();
  } else if (token == loadToken_ && !result.error.empty()) {
    setStatus("Could not render " + QString::fromStdString(openRecord_ ? openRecord_->name : "the photo") +
              ": " + QString::fromStdString(result.error));
  }
  rendering_ = false;
  emit renderFinished();
  if (pendingRender_) {
    pendingRender_ = false;
    requestRender();
  }
}

void VeskModel::measureHistogram(std::uint64_t token, const Image& shown) {
  // Measured beside the render queue, so the next preview need not wait
  // for it; only the newest preview's histogram is still wanted.
  impl_->histogramPool.clearPending();
  impl_->histogramPool.run([this, token, shown] {
    std::optional<Histogram> histogram;
    try {
      histogram = Histogram::of(shown);
    } catch (const std::exception&) {
    }
    toMain([this, token, histogram] {
      if (token == loadToken_ && assign(histogram_, histogram)) emit histogramChanged();
    });
  });
}

void VeskModel::setCompare(CompareMode mode) {
  if (!assign(compare_, mode)) return;
  emit compareChanged();
  requestRender();
}

void VeskModel::setTool(DevTool tool) {
  if (!assign(tool_, tool)) return;
  emit toolChanged();
  requestRender();
}

void VeskModel::selectMask(std::optional<std::string> id) {
  if (!assign(selectedMask_, id)) return;
  emit selectedMaskChanged();
  requestRender();
}

void VeskModel::setShowMaskOverlay(bool on) {
  if (!assign(showMaskOverlay_, on)) return;
  emit showMaskOverlayChanged();
  requestRender();
}

void VeskModel::setShowClipping(bool on) {
  if (!assign(showClipping_, on)) return;
  emit showClippingChanged();
  requestRender();
}

void VeskModel::setCloseUp(bool on) {
  if (assign(closeUp_, on)) emit closeUpChanged();
  const int side = on ? previewSideCloseUp : previewSideNormal;
  if (side == previewSide_) return;
  previewSide_ = side;
  impl_->renderQueue.post([impl = impl_.get()] {
    impl->state.base = Image();
    impl->state.baseKey.clear();
  });
  requestRender();
}

std::optional<PhotoGeometry> VeskModel::displayGeometry() const {
  if (!sourceSize_) return std::nullopt;
  return PhotoGeometry(settings_, *sourceSize_, tool_ == DevTool::crop);
}

std::optional<Size> VeskModel::sourceSize() const { return sourceSize_; }

std::optional<Point> VeskModel::viewToSource(Point viewUnit) const {
  const std::optional<PhotoGeometry> geometry = displayGeometry();
  if (!geometry) return std::nullopt;
  return geometry->viewToSource(viewUnit);
}

// ---- edited thumbnails ------------------------------------------------------------------------------

void VeskModel::scheduleEditedThumbnail(std::int64_t id) {
  auto it = thumbWork_.find(id);
  if (it != thumbWork_.end()) {
    it->second->stop();
    it->second->deleteLater();
    thumbWork_.erase(it);
  }
  auto* timer = new QTimer(this);
  timer->setSingleShot(true);
  connect(timer, &QTimer::timeout, this, [this, id, timer] {
    thumbWork_.erase(id);
    timer->deleteLater();
    auto library = library_;
    impl_->thumbPool.run([this, library, id] {
      if (!makeEditedThumbnail(*library, id)) return;
      forgetThumbnails(id);
      toMain([this, id] {
        ++editedThumbnailsWritten_;
        refreshRecord(id);
        bumpThumbVersion();
      });
    });
  });
  thumbWork_[id] = timer;
  timer->start(editedThumbnailDelayMS);
}

bool VeskModel::makeEditedThumbnail(PhotoLibrary& library, std::int64_t id) {
  try {
    const std::optional<PhotoRecord> record = library.photo(id);
    if (!record) return false;
    const PhotoSource source = PhotoSource::open(record->path);
    const EditSettings settings = library.settings(id);
    PhotoRenderer renderer;
    const Image base = source.image(editedThumbnailSide, settings).image.materialize();
    return ThumbnailStore::writeEdited(library, id, renderer.render(base, source.fullSize(), settings));
  } catch (const std::exception&) {
    // The old thumbnail stays.
    return false;
  }
}

}  // namespace lumivale::app
