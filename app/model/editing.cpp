// Editing the current photo: changes on screen (rendered at once, not
// recorded) and commits (one named history step each), and the operations
// built from them: history, snapshots, presets, copy and paste, the
// white-balance picker, masks, crop and orientation.

#include <algorithm>
#include <cmath>

#include "app/model/model_impl.h"
#include "app/model/vesk_model.h"
#include "engine/edit/field_path.h"
#include "engine/media/bitmap.h"
#include "engine/render/smart_masks.h"
#include "engine/render/tone_params.h"

namespace lumivale::app {

// ---- change and commit ------------------------------------------------------------------------------

void VeskModel::change(const std::function<void(EditSettings&)>& body) {
  if (!currentID_) return;
  body(settings_);
  emit settingsChanged();
  requestRender();
}

bool VeskModel::set(const std::string& path, const std::string& value) {
  if (!currentID_) return false;
  try {
    const EditSettings changed = applyFieldEdits(settings_, {{path, value}});
    change([&](EditSettings& s) { s = changed; });
    return true;
  } catch (const FieldPathError&) {
    return false;
  }
}

void VeskModel::edit(const std::string& name, const std::function<void(EditSettings&)>& body) {
  if (!currentID_) return;
  change(body);
  commit(name);
}

void VeskModel::commit(const std::string& name) {
  if (!currentID_) return;
  const std::int64_t id = *currentID_;
  SettingsCommit result;
  if (!write([&] { result = library_->commitSettings(id, settings_, name); })) return;
  if (!result.changed) return;
  readHistory(id);
  refreshRecord(id);
  scheduleEditedThumbnail(id);
}

void VeskModel::afterStoredChange(std::int64_t id) {
  readHistory(id);
  requestRender();
  refreshRecord(id);
  scheduleEditedThumbnail(id);
}

void VeskModel::goToHistory(int seq) {
  if (!currentID_) return;
  const std::int64_t id = *currentID_;
  std::optional<EditSettings> settings;
  if (!write([&] { settings = library_->goToHistory(id, seq); }) || !settings) return;
  settings_ = std::move(*settings);
  emit settingsChanged();
  afterStoredChange(id);
}

void VeskModel::undo() {
  if (historyPos_ > 1) goToHistory(historyPos_ - 1);
}

void VeskModel::redo() {
  if (history_.empty() || history_.back().seq <= historyPos_) return;
  goToHistory(historyPos_ + 1);
}

void VeskModel::resetAll() {
  const std::optional<PhotoRecord> record = current();
  if (!record) return;
  edit("Reset All", [&](EditSettings& s) { s = PhotoLibrary::initialSettings(record->isRaw); });
}

// ---- snapshots and presets ---------------------------------------------------------------------------

void VeskModel::readSnapshots(std::int64_t id) {
  if (assign(snapshots_, library_->snapshots(id))) emit snapshotsChanged();
}

void VeskModel::addSnapshot(const std::string& name) {
  if (!currentID_) return;
  const std::int64_t id = *currentID_;
  const std::string title = name.empty() ? "Snapshot " + std::to_string(snapshots_.size() + 1) : name;
  write([&] { library_->addSnapshot(id, title, settings_); });
  readSnapshots(id);
}

void VeskModel::applySnapshot(std::int64_t snapshotId) {
  if (!currentID_) return;
  const std::int64_t id = *currentID_;
  std::optional<SettingsCommit> result;
  if (!write([&] { result = library_->applySnapshot(snapshotId); }) || !result || result->photo != id) return;
  settings_ = result->settings;
  emit settingsChanged();
  afterStoredChange(id);
}

void VeskModel::deleteSnapshot(std::int64_t snapshotId) {
  write([&] { library_->deleteSnapshot(snapshotId); });
  if (currentID_) readSnapshots(*currentID_);
}

void VeskModel::applyLook(const BuiltInPreset& look) {
  edit("Preset: " + look.name,
       [&](EditSettings& s) { s = lumivale::applyPreset(s, look.settings, look.groups()); });
}

void VeskModel::applyPreset(const UserPreset& preset) {
  edit("Preset: " + preset.name,
       [&](EditSettings& s) { s = lumivale::applyPreset(s, preset.settings, preset.groups); });
}

void VeskModel::savePreset(const std::string& name, const GroupSet& groups) {
  if (QString::fromStdString(name).trimmed().isEmpty()) return;
  write([&] { library_->savePreset(name, settings_, groups); });
  if (assign(userPresets_, library_->userPresets())) emit userPresetsChanged();
}

void VeskModel::deletePreset(std::int64_t presetId) {
  write([&] { library_->deletePreset(presetId); });
  if (assign(userPresets_, library_->userPresets())) emit userPresetsChanged();
}

// ---- copy, paste and sync -------------------------------------------------------------------------------

void VeskModel::copySettings() {
  if (!currentID_) return;
  clipboard_ = settings_;
  emit clipboardChanged();
}

void VeskModel::carryOnto(const std::vector<std::int64_t>& ids, const EditSettings& from,
                          const std::string& step) {
  const GroupSet groups = copyGroups_;
  for (std::int64_t id : ids) {
    if (id == currentID_) {
      edit(step, [&](EditSettings& s) { s = s.merging(from, groups); });
      continue;
    }
    SettingsCommit result;
    const bool written = write([&] {
      result = library_->updateSettings(id, step, [&](EditSettings& s) { s = s.merging(from, groups); });
    });
    if (written && result.changed) {
      refreshRecord(id);
      scheduleEditedThumbnail(id);
    }
  }
}

void VeskModel::pasteSettings() {
  if (!clipboard_) return;
  carryOnto(selectedIDs(), *clipboard_, "Paste Settings");
}

void VeskModel::syncSettings() {
  if (!currentID_) return;
  std::vector<std::int64_t> ids = selectedIDs();
  std::erase(ids, *currentID_);
  carryOnto(ids, settings_, "Sync Settings");
}

// ---- background work on the open photo ---------------------------------------------------------------

void VeskModel::onOpenPhoto(std::function<void(RenderState&, const Image& base, Size full)> work,
                            const EditSettings& settings) {
  const std::optional<PhotoRecord> record = current();
  if (!record) return;
  const int side = previewSide_;
  Impl* impl = impl_.get();
  impl->renderQueue.post([impl, record = *record, side, settings, work = std::move(work)] {
    RenderState& state = impl->state;
    // Library keeps no decoded source; a photo opened only for this job
    // is let go afterwards.
    RenderState own;
    RenderState* use = &state;
    if (!state.source || state.sourcePhoto != record.id) {
      try {
        own.source.emplace(PhotoSource::open(record.path));
        own.sourcePhoto = record.id;
      } catch (const std::exception&) {
        work(own, Image(), Size());
        return;
      }
      use = &own;
    }
    const std::string key =
        std::to_string(record.id) + "|" + std::to_string(side) + "|" + settings.sourceKey();
    try {
      if (use->base.empty() || use->baseKey != key) {
        use->base = use->source->image(side, settings).image.materialize();
        use->baseKey = key;
      }
    } catch (const std::exception&) {
      work(*use, Image(), Size());
      return;
    }
    work(*use, use->base, use->source->fullSize());
  });
}

void VeskModel::sampleWhiteBalance(Point sourceUnit) {
  if (!currentID_ || !std::isfinite(sourceUnit.x) || !std::isfinite(sourceUnit.y)) return;
  const std::uint64_t token = loadToken_;
  onOpenPhoto(
      [this, token, sourceUnit](RenderState&, const Image& base, Size) {
        if (base.empty()) return;
        LinearRGB colour;
        try {
          colour = PhotoRenderer::sample(base, sourceUnit, 2);
        } catch (const std::exception&) {
          return;
        }
        const WhiteBalance balance = ToneParams::neutralizing({colour.r, colour.g, colour.b});
        toMain([this, token, balance] {
          if (token != loadToken_) return;
          edit("White Balance", [&](EditSettings& s) {
            s.temperature = balance.temperature;
            s.tint = balance.tint;
          });
        });
      },
      settings_);
}

// ---- masks ------------------------------------------------------------------------------------------------

namespace {

std::string stepName(const char* verb, MaskKind kind) {
  return std::string(verb) + " " + std::string(title(kind));
}

}  // namespace

void VeskModel::computeSmartMask(const PhotoMask& mask, bool adding) {
  EditSettings settings = settings_;
  std::erase_if(settings.masks, [&](const PhotoMask& m) { return m.id == mask.id; });
  // Masks live in the coordinates of the whole photo, unturned and uncropped.
  settings = settings.merging(EditSettings(), {SettingsGroup::geometry});
  const std::uint64_t token = loadToken_;
  const std::int64_t photo = *currentID_;
  onOpenPhoto(
      [this, token, photo, mask, adding, settings](RenderState&, const Image& base, Size full) {
        std::string why = "the photo could not be read";
        std::optional<MaskBitmap> bitmap;
        if (!base.empty()) {
          try {
            PhotoRenderer renderer;
            PhotoRenderer::Options options;
            options.outputEffects = false;
            const Bitmap preview =
                toBitmap(renderer.render(base, full, settings, options), ColorSpace::sRGB, 8);
            if (mask.kind == MaskKind::subject) {
              bitmap = SmartMasks::subject(preview, &why);
            } else if (mask.kind == MaskKind::people) {
              bitmap = SmartMasks::people(preview, &why);
            } else {
              bitmap = SmartMasks::sky(preview, SmartMasks::subject(preview));
              if (!bitmap) why = "the photo's preview is empty";
            }
          } catch (const std::exception& e) {
            why = e.what();
          }
        }
        toMain([this, token, photo, mask, adding, bitmap = std::move(bitmap), why] {
          if (token != loadToken_ || currentID_ != photo) return;
          if (!bitmap) {
            setStatus(QString::fromStdString(std::string(title(mask.kind)) + ": " + why));
            return;
          }
          std::vector<std::uint8_t> stored = bitmap->encoded();
          if (adding) {
            edit(stepName("Add", mask.kind), [&](EditSettings& s) {
              s.masks.push_back(mask);
              s.masks.back().maskPNG = std::move(stored);
            });
            selectMask(mask.id);
          } else {
            editMask(mask.id, "Refresh Mask", [&](PhotoMask& m) { m.maskPNG = std::move(stored); });
          }
        });
      },
      settings);
}

std::optional<std::string> VeskModel::addMask(MaskKind kind) {
  if (!currentID_) return std::nullopt;
  PhotoMask mask(kind);
  if (isSmart(kind)) {
    computeSmartMask(mask, true);
    return mask.id;
  }
  edit(stepName("Add", kind), [&](EditSettings& s) { s.masks.push_back(mask); });
  selectMask(mask.id);
  return mask.id;
}

void VeskModel::refreshSmartMask(const std::string& id) {
  if (!currentID_) return;
  auto it = std::find_if(settings_.masks.begin(), settings_.masks.end(),
                         [&](const PhotoMask& m) { return m.id == id; });
  if (it == settings_.masks.end() || !isSmart(it->kind)) return;
  computeSmartMask(*it, false);
}

void VeskModel::changeMask(const std::string& id, const std::function<void(PhotoMask&)>& body) {
  auto it = std::find_if(settings_.masks.begin(), settings_.masks.end(),
                         [&](const PhotoMask& m) { return m.id == id; });
  if (!currentID_ || it == settings_.masks.end()) return;
  change([&](EditSettings&) { body(*it); });
}

void VeskModel::editMask(const std::string& id, const std::string& name,
                         const std::function<void(PhotoMask&)>& body) {
  const bool known = std::any_of(settings_.masks.begin(), settings_.masks.end(),
                                 [&](const PhotoMask& m) { return m.id == id; });
  if (!known) return;
  changeMask(id, body);
  commit(name);
}

void VeskModel::renameMask(const std::string& id, const std::string& name) {
  if (QString::fromStdString(name).trimmed().isEmpty()) return;
  editMask(id, "Rename Mask", [&](PhotoMask& m) { m.name = name; });
}

void VeskModel::setMaskInvert(const std::string& id, bool invert) {
  editMask(id, "Invert Mask", [&](PhotoMask& m) { m.invert = invert; });
}

void VeskModel::setMaskOpacity(const std::string& id, double opacity) {
  if (!std::isfinite(opacity)) return;
  changeMask(id, [&](PhotoMask& m) { m.opacity = std::clamp(opacity, 0.0, 1.0); });
}

void VeskModel::setMaskAdjust(const std::string& id, double MaskAdjust::*field, double value) {
  if (!std::isfinite(value)) return;
  changeMask(id, [&](PhotoMask& m) { m.adjust.*field = value; });
}

void VeskModel::deleteMask(const std::string& id) {
  const bool known = std::any_of(settings_.masks.begin(), settings_.masks.end(),
                                 [&](const PhotoMask& m) { return m.id == id; });
  if (!known) return;
  edit("Delete Mask",
       [&](EditSettings& s) { std::erase_if(s.masks, [&](const PhotoMask& m) { return m.id == id; }); });
  if (selectedMask_ == id) selectMask(std::nullopt);
}

void VeskModel::paintDab(Point sourceUnit) {
  if (!selectedMask_ || !std::isfinite(sourceUnit.x) || !std::isfinite(sourceUnit.y)) return;
  auto it = std::find_if(settings_.masks.begin(), settings_.masks.end(),
                         [&](const PhotoMask& m) { return m.id == *selectedMask_; });
  if (it == settings_.masks.end() || it->kind != MaskKind::brush) return;
  strokeOpen_ = true;
  const BrushDab dab{.x = sourceUnit.x,
                     .y = sourceUnit.y,
                     .radius = brushSize_,
                     .feather = brushFeather_,
                     .flow = brushFlow_,
                     .erase = brushErase_};
  changeMask(it->id, [&](PhotoMask& m) { m.dabs.push_back(dab); });
}

void VeskModel::endStroke() {
  if (!strokeOpen_) return;
  strokeOpen_ = false;
  commit(brushErase_ ? "Erase" : "Brush");
}

// ---- crop and orientation ------------------------------------------------------------------------------

Size VeskModel::frameSize() const {
  Size source = sourceSize_.value_or(Size());
  if (source.width <= 0 || source.height <= 0) {
    const std::optional<PhotoRecord> record = current();
    if (record) source = {double(std::max(record->width, 1)), double(std::max(record->height, 1))};
  }
  return PhotoGeometry(settings_, source, true).frame;
}

void VeskModel::setCropAspect(const std::string& aspect) {
  const Size frame = frameSize();
  edit("Crop Aspect", [&](EditSettings& s) {
    s.cropAspect = aspect;
    s.crop = CropAspect::centered(aspect, frame);
  });
}

void VeskModel::setCrop(const CropRect& crop) {
  change([&](EditSettings& s) { s.crop = crop.clamped(); });
}

void VeskModel::resetCrop() {
  edit("Reset Crop", [](EditSettings& s) {
    s.crop = CropRect::full();
    s.straighten = 0;
    s.cropAspect = EditSettings().cropAspect;
  });
}

void VeskModel::setStraighten(double degrees) {
  if (!std::isfinite(degrees)) return;
  change([&](EditSettings& s) { s.straighten = std::clamp(degrees, -45.0, 45.0); });
}

void VeskModel::rotate(bool clockwise) {
  edit(clockwise ? "Rotate Right" : "Rotate Left", [&](EditSettings& s) {
    s.rotateQuarterTurns = (((s.rotateQuarterTurns + (clockwise ? 1 : 3)) % 4) + 4) % 4;
    // The crop turns with the frame it is measured in.
    const CropRect c = s.crop;
    s.crop = clockwise ? CropRect{1 - (c.y + c.h), c.x, c.h, c.w} : CropRect{c.y, 1 - (c.x + c.w), c.h, c.w};
  });
}

void VeskModel::flip(bool horizontal) {
  edit(horizontal ? "Flip Horizontal" : "Flip Vertical", [&](EditSettings& s) {
    // Flips come before the quarter turns: after an odd number of turns
    // the screen's horizontal is the source's vertical.
    const bool sourceHorizontal = horizontal != (((s.rotateQuarterTurns % 2) + 2) % 2 == 1);
    if (sourceHorizontal) {
      s.flipHorizontal = !s.flipHorizontal;
    } else {
      s.flipVertical = !s.flipVertical;
    }
    const CropRect c = s.crop;
    s.crop = horizontal ? CropRect{1 - (c.x + c.w), c.y, c.w, c.h} : CropRect{c.x, 1 - (c.y + c.h), c.w, c.h};
  });
}

}  // namespace lumivale::app
