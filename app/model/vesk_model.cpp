#include "app/model/vesk_model.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QThreadPool>
#include <algorithm>
#include <charconv>
#include <cmath>

#include "app/model/model_impl.h"
#include "app/model/thumbnail_store.h"
#include "engine/catalog/folder_listing.h"

namespace lumivale::app {

namespace {

VeskModel* sharedModel = nullptr;

double storedGridSize(const UserDefaults& defaults) {
  const std::optional<std::string> text = defaults.data(VeskModel::gridSizeKey);
  if (!text) return VeskModel::defaultGridSize;
  double value = 0;
  const char* end = text->data() + text->size();
  auto [stop, error] = std::from_chars(text->data(), end, value);
  if (error != std::errc() || stop != end || !std::isfinite(value) || value <= 0)
    return VeskModel::defaultGridSize;
  return value;
}

QString plural(int count, const char* word) {
  return QString::number(count) + " " + word + (count == 1 ? "" : "s");
}

}  // namespace

// ---- names ------------------------------------------------------------------------------

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

// ---- the grid's list model -----------------------------------------------------------------

PhotoListModel::PhotoListModel(VeskModel& model) : QAbstractListModel(&model), model_(model) {
  connect(&model, &VeskModel::photosReset, this, [this] {
    beginResetModel();
    endResetModel();
  });
  connect(&model, &VeskModel::recordsUpdated, this, [this](const std::vector<int>& rows) {
    for (int row : rows) emit dataChanged(index(row), index(row));
  });
  auto everyRow = [this] {
    if (rowCount() > 0) emit dataChanged(index(0), index(rowCount() - 1));
  };
  connect(&model, &VeskModel::thumbVersionChanged, this, everyRow);
  connect(&model, &VeskModel::selectionChanged, this, everyRow);
  connect(&model, &VeskModel::currentIDChanged, this, everyRow);
  connect(&model, &VeskModel::thumbnailReady, this, [this](std::int64_t id) {
    if (auto row = model_.rowOf(id)) emit dataChanged(index(*row), index(*row), {Qt::DecorationRole});
  });
}

int PhotoListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : int(model_.photos().size());
}

QVariant PhotoListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() < 0 || index.row() >= rowCount()) return {};
  const PhotoRecord& r = model_.photos()[std::size_t(index.row())];
  switch (role) {
    case Qt::DisplayRole:
      return QString::fromStdString(r.name);
    case Qt::DecorationRole: {
      QImage image = model_.cachedThumbnail(r);
      if (image.isNull()) model_.requestThumbnail(r);
      return image;
    }
    case idRole:
      return qint64(r.id);
    case ratingRole:
      return r.rating;
    case flagRole:
      return r.flag;
    case labelRole:
      return QString::fromStdString(r.label);
    case editedRole:
      return r.edited;
    case selectedRole:
      return model_.selection().count(r.id) > 0;
    case currentRole:
      return model_.currentID() == r.id;
    case summaryRole:
      return QString::fromStdString(r.summary());
    case rawRole:
      return r.isRaw;
    default:
      return {};
  }
}

QHash<int, QByteArray> PhotoListModel::roleNames() const {
  QHash<int, QByteArray> names = QAbstractListModel::roleNames();
  names[idRole] = "id";
  names[ratingRole] = "rating";
  names[flagRole] = "flag";
  names[labelRole] = "label";
  names[editedRole] = "edited";
  names[selectedRole] = "selected";
  names[currentRole] = "current";
  names[summaryRole] = "summary";
  names[rawRole] = "raw";
  return names;
}

// ---- life ------------------------------------------------------------------------------------

VeskModel::Impl::Impl(UserDefaults store)
    : defaults(std::move(store)),
      // One import and one export at a time; thumbnails may use every core
      // but rank last.
      importPool(1, QThread::NormalPriority),
      exportPool(1, QThread::NormalPriority),
      thumbPool(0, QThread::LowPriority),
      histogramPool(1, QThread::NormalPriority),
      detailsPool(1, QThread::NormalPriority),
      renderQueue(QStringLiteral("kuvo.lumivale.render"), QThread::HighestPriority) {
  thumbCache.setMaxCost(VeskModel::thumbCacheLimit);
}

void VeskModel::Impl::shutDown() {
  // The render queue first, while the mailbox its tasks post to exists.
  renderQueue.stop();
  importPool.waitForDone();
  exportPool.waitForDone();
  thumbPool.clearPending();
  thumbPool.waitForDone();
  histogramPool.clearPending();
  histogramPool.waitForDone();
  detailsPool.clearPending();
  detailsPool.waitForDone();
}

JobPool::JobPool(int maxThreads, QThread::Priority priority) {
  if (maxThreads > 0) pool_.setMaxThreadCount(maxThreads);
  pool_.setThreadPriority(priority);
}

void JobPool::run(std::function<void()> job) {
  {
    std::lock_guard lock(lock_);
    jobs_.push_back(std::move(job));
  }
  pool_.start([this] {
    std::function<void()> job;
    {
      std::lock_guard lock(lock_);
      if (jobs_.empty()) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    job();
    job = nullptr;
    // Taken once more after the job, so that `waitForDone` takes it after
    // every job ended.
    std::lock_guard lock(lock_);
    ++finished_;
  });
}

void JobPool::clearPending() {
  pool_.clear();
  std::lock_guard lock(lock_);
  jobs_.clear();
}

void JobPool::waitForDone() {
  pool_.waitForDone();
  std::lock_guard lock(lock_);
}

void VeskModel::toMain(std::function<void()> work) {
  {
    std::lock_guard lock(impl_->mailLock);
    impl_->mail.push_back(std::move(work));
  }
  QMetaObject::invokeMethod(this, "deliverMail", Qt::QueuedConnection);
}

void VeskModel::deliverMail() {
  for (;;) {
    std::function<void()> work;
    {
      std::lock_guard lock(impl_->mailLock);
      if (impl_->mail.empty()) return;
      work = std::move(impl_->mail.front());
      impl_->mail.pop_front();
    }
    work();
  }
}

VeskModel::VeskModel(std::shared_ptr<PhotoLibrary> library, std::optional<UserDefaults> defaults,
                     QObject* parent)
    : QObject(parent),
      impl_(std::make_unique<Impl>(defaults ? std::move(*defaults) : UserDefaults::standard())),
      library_(std::move(library)) {
  photoList_ = new PhotoListModel(*this);
  gridSize_ = storedGridSize(impl_->defaults);
  copyGroups_ = allButLocal();
  exportOptions_ = ExportOptions::load(impl_->defaults);
  if (!sharedModel) sharedModel = this;
  reload();
  readBackupState();
}

VeskModel::~VeskModel() {
  if (sharedModel == this) sharedModel = nullptr;
  for (auto& [id, timer] : thumbWork_) timer->stop();
  // Nothing runs on another thread after this; results still queued to
  // this object die with it.
  impl_->shutDown();
  impl_.reset();
}

VeskModel* VeskModel::shared() { return sharedModel; }

void VeskModel::bumpToken() {
  ++loadToken_;
  impl_->token.store(loadToken_);
  // A details read started under the old token would be dropped: start it
  // again (or start the one a new current photo needs).
  readCurrentDetails();
}

void VeskModel::readCurrentDetails() {
  const std::optional<PhotoRecord> record = current();
  const std::int64_t id = record ? record->id : 0;
  if (id == detailsFor_ && (!detailsReading_ || detailsToken_ == loadToken_)) return;
  detailsFor_ = id;
  detailsToken_ = loadToken_;
  detailsReading_ = record.has_value();
  if (assign(currentDetails_, Details())) emit currentDetailsChanged();
  if (!record) return;
  impl_->detailsPool.run([this, token = loadToken_, id, path = std::filesystem::path(record->path)] {
    std::vector<DetailRow> rows = PhotoMeta::details(path);
    toMain([this, token, id, rows = std::move(rows)] {
      if (token != loadToken_ || id != detailsFor_) return;
      detailsReading_ = false;
      currentDetails_ = rows;
      emit currentDetailsChanged();
    });
  });
}

void VeskModel::readCurrentTags() {
  const std::optional<PhotoRecord> record = current();
  const Strings words = record ? library_->keywords(record->id) : Strings();
  const IDSet holding = record ? library_->collectionsContaining(record->id) : IDSet();
  if (assign(currentKeywords_, words)) emit currentKeywordsChanged();
  if (assign(currentCollections_, holding)) emit currentCollectionsChanged();
}

// ---- computed --------------------------------------------------------------------------------

std::optional<PhotoRecord> VeskModel::current() const {
  if (!currentID_) return std::nullopt;
  if (auto row = rowOf(*currentID_)) return photos_[std::size_t(*row)];
  if (openRecord_ && openRecord_->id == *currentID_) return openRecord_;
  return std::nullopt;
}

std::vector<std::int64_t> VeskModel::selectedIDs() const {
  std::vector<std::int64_t> ids;
  if (!selection_.empty()) {
    std::vector<std::pair<int, std::int64_t>> ordered;
    for (std::int64_t id : selection_) {
      if (auto row = rowOf(id)) ordered.emplace_back(*row, id);
    }
    std::sort(ordered.begin(), ordered.end());
    for (const auto& [row, id] : ordered) ids.push_back(id);
    if (!ids.empty()) return ids;
  }
  if (currentID_) ids.push_back(*currentID_);
  return ids;
}

std::optional<int> VeskModel::rowOf(std::int64_t id) const {
  auto it = rows_.find(id);
  if (it == rows_.end()) return std::nullopt;
  return it->second;
}

bool VeskModel::canUndo() const { return historyPos_ > 1; }

bool VeskModel::canRedo() const { return !history_.empty() && historyPos_ < history_.back().seq; }

// ---- setters -----------------------------------------------------------------------------------

void VeskModel::setModule(Module module) {
  if (module == Module::develop) {
    enterDevelopIfNeeded();
    return;
  }
  if (!assign(module_, module)) return;
  bumpToken();
  releaseSource();
  emit moduleChanged();
}

void VeskModel::setQuery(const LibraryQuery& query) {
  if (!assign(query_, query)) return;
  emit queryChanged();
  reload();
}

void VeskModel::setSelection(const IDSet& selection) {
  if (assign(selection_, selection)) emit selectionChanged();
}

void VeskModel::setCurrentID(std::optional<std::int64_t> id) {
  if (!assign(currentID_, id)) return;
  emit currentIDChanged();
  currentChanged();
}

void VeskModel::setGridSize(double size) {
  if (!std::isfinite(size) || size <= 0 || !assign(gridSize_, size)) return;
  try {
    impl_->defaults.set(gridSizeKey, formatFixed(size, 1));
  } catch (const std::exception& e) {
    setStatus(QString::fromStdString(e.what()));
  }
  emit gridSizeChanged();
}

void VeskModel::setStatus(const QString& status) {
  if (assign(status_, status)) emit statusChanged();
}

void VeskModel::setSheet(std::optional<VeskSheet> sheet) {
  if (assign(sheet_, sheet)) emit sheetChanged();
}

void VeskModel::setCurveChannel(int channel) {
  if (assign(curveChannel_, std::clamp(channel, 0, 3))) emit curveChannelChanged();
}

void VeskModel::setBrushSize(double size) {
  if (std::isfinite(size) && assign(brushSize_, std::clamp(size, 0.001, 1.0))) emit brushSizeChanged();
}

void VeskModel::setBrushFeather(double feather) {
  if (std::isfinite(feather) && assign(brushFeather_, std::clamp(feather, 0.0, 1.0)))
    emit brushFeatherChanged();
}

void VeskModel::setBrushFlow(double flow) {
  if (std::isfinite(flow) && assign(brushFlow_, std::clamp(flow, 0.0, 1.0))) emit brushFlowChanged();
}

void VeskModel::setBrushErase(bool erase) {
  if (assign(brushErase_, erase)) emit brushEraseChanged();
}

void VeskModel::setCopyGroups(const GroupSet& groups) {
  if (assign(copyGroups_, groups)) emit copyGroupsChanged();
}

void VeskModel::setExportOptions(const ExportOptions& options) {
  if (assign(exportOptions_, options)) emit exportOptionsChanged();
}

// ---- library ---------------------------------------------------------------------------------

void VeskModel::replacePhotos(Records photos) {
  photos_ = std::move(photos);
  rows_.clear();
  rows_.reserve(photos_.size());
  for (std::size_t i = 0; i < photos_.size(); ++i) rows_.emplace(photos_[i].id, int(i));
  emit photosReset();
  emit photosChanged();
}

void VeskModel::readPanels() {
  readCollections();
  if (assign(folders_, library_->folders())) emit foldersChanged();
  if (assign(folderCounts_, library_->folderCounts())) emit folderCountsChanged();
  readKeywords();
  if (assign(userPresets_, library_->userPresets())) emit userPresetsChanged();
}

void VeskModel::readKeywords() {
  KeywordCounts counts = library_->allKeywords();
  Strings names;
  for (const auto& [word, count] : counts) names.push_back(word);
  if (assign(keywordCounts_, counts)) emit keywordCountsChanged();
  if (assign(keywordList_, names)) emit keywordListChanged();
  readCurrentTags();
}

void VeskModel::reload() {
  replacePhotos(library_->photos(query_));
  readPanels();

  std::optional<std::int64_t> next = currentID_;
  if (next && !rows_.count(*next) && module_ == Module::library) next.reset();
  if (!next && !photos_.empty()) next = photos_.front().id;

  IDSet kept;
  for (std::int64_t id : selection_) {
    if (rows_.count(id)) kept.insert(id);
  }
  setSelection(kept);
  setCurrentID(next);
}

void VeskModel::readBackupState() {
  BackupState state;
  state.lastCheck = library_->safety().lastCheck;
  try {
    for (BackupInfo& info : CatalogBackups::list(library_->folder(), false)) {
      if (info.kind != BackupInfo::Kind::backup) continue;
      if (!state.last) state.last = std::move(info);
      ++state.backups;
    }
  } catch (const std::exception& e) {
    // An unreadable backups folder counts as none.
    setStatus(QString::fromStdString(e.what()));
  }
  if (assign(backupState_, state)) emit backupStateChanged();
}

void VeskModel::reloadIfFiltered() {
  if (query_.minRating >= 1 || query_.flag != FlagFilter::any || !query_.labels.empty() ||
      !query_.text.empty())
    reload();
}

void VeskModel::showCatalog(const QString& title, const std::function<void(LibraryQuery&)>& change) {
  LibraryQuery query;
  query.sort = query_.sort;
  query.ascending = query_.ascending;
  if (change) change(query);
  if (assign(catalogTitle_, title)) emit catalogTitleChanged();
  setQuery(query);
}

void VeskModel::select(std::int64_t id, bool extend, bool range) {
  const std::optional<int> clicked = rowOf(id);
  const std::optional<int> from = currentID_ ? rowOf(*currentID_) : std::nullopt;
  if (range && from && clicked) {
    IDSet chosen;
    for (int row = std::min(*from, *clicked); row <= std::max(*from, *clicked); ++row)
      chosen.insert(photos_[std::size_t(row)].id);
    setSelection(chosen);
  } else if (extend) {
    IDSet chosen = selection_;
    if (!chosen.erase(id)) chosen.insert(id);
    setSelection(chosen);
  } else {
    setSelection({id});
  }
  setCurrentID(id);
}

void VeskModel::selectAll() {
  IDSet all;
  for (const PhotoRecord& r : photos_) all.insert(r.id);
  setSelection(all);
}

void VeskModel::stepCurrent(int delta) {
  if (photos_.empty()) return;
  const std::optional<int> row = currentID_ ? rowOf(*currentID_) : std::nullopt;
  const int next = row ? std::clamp(*row + delta, 0, int(photos_.size()) - 1) : 0;
  const std::int64_t id = photos_[std::size_t(next)].id;
  setSelection({id});
  setCurrentID(id);
}

void VeskModel::refreshRecord(std::int64_t id) {
  std::optional<PhotoRecord> record = library_->photo(id);
  if (!record) return;
  if (openRecord_ && openRecord_->id == id) openRecord_ = record;
  if (auto row = rowOf(id)) {
    photos_[std::size_t(*row)] = *record;
    emit recordsUpdated({*row});
    emit photosChanged();
  }
}

QImage VeskModel::cachedThumbnail(const PhotoRecord& record) const {
  std::lock_guard lock(impl_->cacheLock);
  const QImage* image = impl_->thumbCache.object(thumbKey(record));
  return image ? *image : QImage();
}

QImage VeskModel::thumbnail(const PhotoRecord& record) {
  QImage image = cachedThumbnail(record);
  if (!image.isNull()) return image;
  if (std::optional<Bitmap> stored = library_->thumbnail(record)) image = ThumbnailStore::toQImage(*stored);
  if (!image.isNull()) {
    std::lock_guard lock(impl_->cacheLock);
    impl_->thumbCache.insert(thumbKey(record), new QImage(image), 1);
  }
  return image;
}

void VeskModel::forgetThumbnails(std::int64_t id) {
  std::lock_guard lock(impl_->cacheLock);
  impl_->thumbCache.remove(id * 2);
  impl_->thumbCache.remove(id * 2 + 1);
}

void VeskModel::requestThumbnail(const PhotoRecord& record) {
  if (!impl_->thumbRequests.insert(record.id).second) return;
  impl_->thumbPool.run([this, record] {
    thumbnail(record);
    toMain([this, id = record.id] {
      impl_->thumbRequests.erase(id);
      emit thumbnailReady(id);
    });
  });
}

void VeskModel::prefetchThumbnails() {
  Records records = photos_;
  if (records.empty()) return;
  auto left = std::make_shared<std::atomic<std::size_t>>(records.size());
  auto shared = std::make_shared<const Records>(std::move(records));
  for (std::size_t i = 0; i < shared->size(); ++i) {
    impl_->thumbPool.run([this, shared, left, i] {
      thumbnail((*shared)[i]);
      if (left->fetch_sub(1) == 1) {
        toMain([this] { bumpThumbVersion(); });
      }
    });
  }
}

void VeskModel::bumpThumbVersion() {
  ++thumbVersion_;
  emit thumbVersionChanged();
}

void VeskModel::importFolder(const std::filesystem::path& folder,
                             std::function<void(const ImportResult&)> completion) {
  const std::string name =
      folder.filename().empty() ? folder.parent_path().filename().string() : folder.filename().string();
  importing_ = "Reading " + QString::fromStdString(name) + "…";
  emit importingChanged();
  auto library = library_;
  impl_->importPool.run([this, library, folder, name, completion = std::move(completion)] {
    QElapsedTimer clock;
    clock.start();
    ImportResult result;
    std::filesystem::path root = folder;
    try {
      root = standardizedPath(folder);
      result = library->importFolder(folder, true, [this](int done, int total) {
        toMain([this, done, total] {
          if (!importing_) return;
          importing_ = "Importing " + QString::number(done) + " of " + QString::number(total) + "…";
          emit importingChanged();
        });
      });
    } catch (const std::exception&) {
      // An import that fails counts as one that added nothing.
      result = ImportResult{.seconds = clock.elapsed() / 1000.0};
    }
    toMain([this, result, root, name, completion] { finishImport(result, root, name, completion); });
  });
}

void VeskModel::finishImport(const ImportResult& result, const std::filesystem::path& root,
                             const std::string& name,
                             const std::function<void(const ImportResult&)>& completion) {
  importing_.reset();
  emit importingChanged();
  lastImport_ = result;
  emit lastImportChanged();
  QString text = "Imported " + plural(result.added, "photo") + " in " +
                 QString::fromStdString(formatFixed(result.seconds, 1)) + "s";
  if (result.skipped > 0) text += " (" + QString::number(result.skipped) + " already in the library)";
  setStatus(text);
  const std::string path = root.string();
  showCatalog("Folder: " + QString::fromStdString(name), [&](LibraryQuery& q) { q.folder = path; });
  prefetchThumbnails();
  if (completion) completion(result);
}

// ---- organising ---------------------------------------------------------------------------------

bool VeskModel::write(const std::function<void()>& body) {
  try {
    body();
    return true;
  } catch (const std::exception& e) {
    setStatus(QString::fromStdString(e.what()));
    return false;
  }
}

void VeskModel::updateInPlace(const std::vector<std::int64_t>& ids,
                              const std::function<void(PhotoRecord&)>& body) {
  std::vector<int> rows;
  for (std::int64_t id : ids) {
    if (auto row = rowOf(id)) {
      body(photos_[std::size_t(*row)]);
      rows.push_back(*row);
    }
    if (openRecord_ && openRecord_->id == id) body(*openRecord_);
  }
  if (rows.empty()) return;
  emit recordsUpdated(rows);
  emit photosChanged();
}

void VeskModel::setRating(int rating) {
  const std::vector<std::int64_t> ids = selectedIDs();
  if (ids.empty()) return;
  rating = std::clamp(rating, 0, 5);
  if (!write([&] { library_->setRating(ids, rating); })) return;
  updateInPlace(ids, [&](PhotoRecord& r) { r.rating = rating; });
  reloadIfFiltered();
}

void VeskModel::setFlag(int flag) {
  const std::vector<std::int64_t> ids = selectedIDs();
  if (ids.empty()) return;
  if (!write([&] { library_->setFlag(ids, flag); })) return;
  updateInPlace(ids, [&](PhotoRecord& r) { r.flag = flag; });
  reloadIfFiltered();
}

void VeskModel::setLabel(const std::string& label) {
  const std::vector<std::int64_t> ids = selectedIDs();
  if (ids.empty()) return;
  const bool all = std::all_of(ids.begin(), ids.end(), [&](std::int64_t id) {
    auto row = rowOf(id);
    const PhotoRecord* r =
        row ? &photos_[std::size_t(*row)] : (openRecord_ && openRecord_->id == id ? &*openRecord_ : nullptr);
    return r && r->label == label;
  });
  const std::string value = all ? std::string() : label;
  if (!write([&] { library_->setLabel(ids, value); })) return;
  updateInPlace(ids, [&](PhotoRecord& r) { r.label = value; });
  reloadIfFiltered();
}

void VeskModel::addKeywords(const QString& text) {
  std::vector<std::string> words;
  for (const QString& piece : text.split(QRegularExpression("[,;]"))) {
    const QString word = piece.trimmed();
    if (!word.isEmpty()) words.push_back(word.toStdString());
  }
  const std::vector<std::int64_t> ids = selectedIDs();
  if (words.empty() || ids.empty()) return;
  write([&] { library_->addKeywords(ids, words); });
  readKeywords();
}

void VeskModel::removeKeyword(const std::string& keyword) {
  const std::vector<std::int64_t> ids = selectedIDs();
  if (ids.empty()) return;
  write([&] { library_->removeKeyword(ids, keyword); });
  readKeywords();
}

void VeskModel::readCollections() {
  if (assign(collections_, library_->collections())) emit collectionsChanged();
  readCurrentTags();
}

void VeskModel::createCollection(const std::string& name, bool addSelection) {
  if (QString::fromStdString(name).trimmed().isEmpty()) return;
  write([&] {
    const std::int64_t id = library_->createCollection(name);
    if (addSelection) library_->addToCollection(id, selectedIDs());
  });
  readCollections();
}

void VeskModel::toggleCollection(const Collection& collection, std::int64_t photo) {
  write([&] {
    if (library_->collectionsContaining(photo).count(collection.id)) {
      library_->removeFromCollection(collection.id, {photo});
    } else {
      library_->addToCollection(collection.id, {photo});
    }
  });
  readCollections();
}

void VeskModel::deleteCollection(const Collection& collection) {
  write([&] { library_->deleteCollection(collection.id); });
  if (query_.collection == collection.id) {
    if (assign(catalogTitle_, QString::fromUtf8(allPhotographsTitle))) emit catalogTitleChanged();
    setQuery(LibraryQuery());
  }
  readCollections();
}

void VeskModel::renameCollection(const Collection& collection, const QString& name) {
  const QString trimmed = name.trimmed();
  if (trimmed.isEmpty() || !collection.id) return;
  if (!write([&] { library_->renameCollection(collection.id, trimmed.toStdString()); })) return;
  if (query_.collection == collection.id && assign(catalogTitle_, trimmed)) emit catalogTitleChanged();
  reload();
}

void VeskModel::addToCollection(const Collection& collection, const std::vector<std::int64_t>& ids) {
  if (!collection.id || ids.empty()) return;
  // One statement that skips the photos already in the collection.
  if (!write([&] { library_->addToCollection(collection.id, ids); })) return;
  reload();
}

std::optional<RemovalQuestion> VeskModel::removalQuestion() const {
  const std::size_t count = selectedIDs().size();
  if (count == 0) return std::nullopt;
  RemovalQuestion question;
  question.message = "Remove " + plural(int(count), "photo") + " from the library?";
  question.informative =
      "The photo files stay on this computer, untouched. Their ratings, keywords and edits in KUVO Lumivale "
      "are removed.";
  return question;
}

void VeskModel::removeFromLibrary() {
  const std::vector<std::int64_t> ids = selectedIDs();
  if (ids.empty()) return;
  write([&] { library_->remove(ids); });
  for (std::int64_t id : ids) forgetThumbnails(id);
  setCurrentID(std::nullopt);
  reload();
}

}  // namespace lumivale::app
