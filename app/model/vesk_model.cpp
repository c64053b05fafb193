#include "app/model/vesk_model.h"

namespace lumivale::app {

namespace {
VeskModel* sharedModel = nullptr;
}

std::string_view key(Module module) { return module == Module::library ? "library" : "develop"; }
std::string_view key(CompareMode mode) {
  switch (mode) {
    case CompareMode::off:
      return "off";
    case CompareMode::sideBySide:
      return "sideBySide";
    case CompareMode::split:
      return "split";
  }
  return "off";
}
std::string_view key(DevTool tool) {
  switch (tool) {
    case DevTool::none:
      return "none";
    case DevTool::crop:
      return "crop";
    case DevTool::whiteBalance:
      return "whiteBalance";
    case DevTool::brush:
      return "brush";
    case DevTool::linear:
      return "linear";
    case DevTool::radial:
      return "radial";
  }
  return "none";
}
std::string_view key(VeskSheet sheet) {
  switch (sheet) {
    case VeskSheet::exportPhotos:
      return "export";
    case VeskSheet::copySettings:
      return "copySettings";
    case VeskSheet::savePreset:
      return "savePreset";
    case VeskSheet::newCollection:
      return "newCollection";
    case VeskSheet::keywords:
      return "keywords";
    case VeskSheet::importDone:
      return "importDone";
  }
  return "export";
}
std::optional<Module> moduleFromKey(std::string_view text) {
  if (text == "library") return Module::library;
  if (text == "develop") return Module::develop;
  return std::nullopt;
}

PhotoListModel::PhotoListModel(VeskModel& model) : QAbstractListModel(&model), model_(model) {}
int PhotoListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : int(model_.photos().size());
}
QVariant PhotoListModel::data(const QModelIndex&, int) const { return {}; }
QHash<int, QByteArray> PhotoListModel::roleNames() const { return QAbstractListModel::roleNames(); }

struct VeskModel::Impl {};

VeskModel::VeskModel(std::shared_ptr<PhotoLibrary> library, std::optional<UserDefaults>, QObject* parent)
    : QObject(parent), library_(std::move(library)) {
  photoList_ = new PhotoListModel(*this);
  if (!sharedModel) sharedModel = this;
}
VeskModel::~VeskModel() {
  if (sharedModel == this) sharedModel = nullptr;
}
VeskModel* VeskModel::shared() { return sharedModel; }

std::optional<PhotoRecord> VeskModel::current() const { return std::nullopt; }
std::vector<std::int64_t> VeskModel::selectedIDs() const { return {}; }
std::optional<int> VeskModel::rowOf(std::int64_t) const { return std::nullopt; }
bool VeskModel::canUndo() const { return historyPos_ > 1; }
bool VeskModel::canRedo() const { return !history_.empty() && historyPos_ < history_.back().seq; }
std::optional<PhotoGeometry> VeskModel::displayGeometry() const { return std::nullopt; }
std::optional<Size> VeskModel::sourceSize() const { return sourceSize_; }
std::optional<Point> VeskModel::viewToSource(Point) const { return std::nullopt; }

void VeskModel::setModule(Module) {}
void VeskModel::setQuery(const LibraryQuery&) {}
void VeskModel::setSelection(const IDSet&) {}
void VeskModel::setCurrentID(std::optional<std::int64_t>) {}
void VeskModel::setGridSize(double) {}
void VeskModel::setStatus(const QString&) {}
void VeskModel::setSheet(std::optional<VeskSheet>) {}
void VeskModel::setCompare(CompareMode) {}
void VeskModel::setTool(DevTool) {}
void VeskModel::selectMask(std::optional<std::string>) {}
void VeskModel::setShowMaskOverlay(bool) {}
void VeskModel::setCurveChannel(int) {}
void VeskModel::setBrushSize(double) {}
void VeskModel::setBrushFeather(double) {}
void VeskModel::setBrushFlow(double) {}
void VeskModel::setBrushErase(bool) {}
void VeskModel::setCopyGroups(const GroupSet&) {}
void VeskModel::setExportOptions(const ExportOptions&) {}
void VeskModel::setShowClipping(bool) {}
void VeskModel::setCloseUp(bool) {}

void VeskModel::reload() {}
void VeskModel::reloadIfFiltered() {}
void VeskModel::showCatalog(const QString&, const std::function<void(LibraryQuery&)>&) {}
void VeskModel::select(std::int64_t, bool, bool) {}
void VeskModel::selectAll() {}
void VeskModel::stepCurrent(int) {}
void VeskModel::refreshRecord(std::int64_t) {}
QImage VeskModel::thumbnail(const PhotoRecord&) { return {}; }
QImage VeskModel::cachedThumbnail(const PhotoRecord&) const { return {}; }
void VeskModel::requestThumbnail(const PhotoRecord&) {}
void VeskModel::prefetchThumbnails() {}
void VeskModel::importFolder(const std::filesystem::path&, std::function<void(const ImportResult&)>) {}
void VeskModel::setRating(int) {}
void VeskModel::setFlag(int) {}
void VeskModel::setLabel(const std::string&) {}
void VeskModel::addKeywords(const QString&) {}
void VeskModel::removeKeyword(const std::string&) {}
void VeskModel::createCollection(const std::string&, bool) {}
void VeskModel::toggleCollection(const Collection&, std::int64_t) {}
void VeskModel::deleteCollection(const Collection&) {}
std::optional<RemovalQuestion> VeskModel::removalQuestion() const { return std::nullopt; }
void VeskModel::removeFromLibrary() {}

void VeskModel::enterDevelop() {}
void VeskModel::enterDevelopIfNeeded() {}
void VeskModel::requestRender() {}
void VeskModel::scheduleEditedThumbnail(std::int64_t) {}

bool VeskModel::set(const std::string&, const std::string&) { return false; }
void VeskModel::change(const std::function<void(EditSettings&)>&) {}
void VeskModel::edit(const std::string&, const std::function<void(EditSettings&)>&) {}
void VeskModel::commit(const std::string&) {}
void VeskModel::undo() {}
void VeskModel::redo() {}
void VeskModel::goToHistory(int) {}
void VeskModel::resetAll() {}
void VeskModel::addSnapshot(const std::string&) {}
void VeskModel::applySnapshot(std::int64_t) {}
void VeskModel::deleteSnapshot(std::int64_t) {}
void VeskModel::applyLook(const BuiltInPreset&) {}
void VeskModel::applyPreset(const UserPreset&) {}
void VeskModel::savePreset(const std::string&, const GroupSet&) {}
void VeskModel::deletePreset(std::int64_t) {}
void VeskModel::copySettings() {}
void VeskModel::pasteSettings() {}
void VeskModel::syncSettings() {}
void VeskModel::sampleWhiteBalance(Point) {}
std::optional<std::string> VeskModel::addMask(MaskKind) { return std::nullopt; }
void VeskModel::renameMask(const std::string&, const std::string&) {}
void VeskModel::setMaskInvert(const std::string&, bool) {}
void VeskModel::changeMask(const std::string&, const std::function<void(PhotoMask&)>&) {}
void VeskModel::editMask(const std::string&, const std::string&, const std::function<void(PhotoMask&)>&) {}
void VeskModel::setMaskOpacity(const std::string&, double) {}
void VeskModel::setMaskAdjust(const std::string&, double MaskAdjust::*, double) {}
void VeskModel::deleteMask(const std::string&) {}
void VeskModel::refreshSmartMask(const std::string&) {}
void VeskModel::paintDab(Point) {}
void VeskModel::endStroke() {}
void VeskModel::setCropAspect(const std::string&) {}
void VeskModel::setCrop(const CropRect&) {}
void VeskModel::resetCrop() {}
void VeskModel::setStraighten(double) {}
void VeskModel::rotate(bool) {}
void VeskModel::flip(bool) {}
void VeskModel::exportPhotos(const std::vector<std::int64_t>&, const std::filesystem::path&,
                             std::function<void(const ExportSummary&)>) {}

}  // namespace lumivale::app
