#pragma once
// The application model: the one observable object behind the window.
//
// Every field the views show is a Qt property with a change signal; every
// command, key and gesture is one operation. The views read properties and
// call operations, nothing else: the rules live here and in the engine.
//
// Threads. All state of the model lives on the main thread (the thread that
// made it): properties are read and written there only, and every operation
// must be called there. Work that takes time runs elsewhere:
//  - the render queue, one dedicated thread "kuvo.lumivale.render" running a
//    serial task queue: develop source decoding and preview renders. It alone
//    owns the decoded source and the reduced base image;
//  - thread pools for import, export and thumbnails, in that priority order
//    below the render queue.
// A background job captures the generation counter `loadToken` when it
// starts; its result comes back to the main thread as a queued call and is
// applied only when the counter still matches. Stale results are dropped,
// never cancelled.

#include <QAbstractListModel>
#include <QImage>
#include <QObject>
#include <QString>
#include <QTimer>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/catalog/catalog_safety.h"
#include "engine/catalog/library_query.h"
#include "engine/catalog/photo_library.h"
#include "engine/catalog/photo_meta.h"
#include "engine/catalog/photo_record.h"
#include "engine/catalog/user_defaults.h"
#include "engine/edit/edit_settings.h"
#include "engine/edit/geometry.h"
#include "engine/edit/photo_mask.h"
#include "engine/edit/presets.h"
#include "engine/edit/settings_group.h"
#include "engine/export/export_options.h"
#include "engine/media/image.h"
#include "engine/render/histogram.h"

namespace lumivale::app {

/// The two halves of the window.
enum class Module { library, develop };
/// Before/after display in Develop.
enum class CompareMode { off, sideBySide, split };
/// What the mouse does on the Develop canvas.
enum class DevTool { none, crop, whiteBalance, brush, linear, radial };
/// The modal sheet that is open, at most one. `exportPhotos` is stored as
/// "export" (a reserved word in C++).
enum class VeskSheet { exportPhotos, copySettings, savePreset, newCollection, keywords, importDone };

/// Stored keys: "library", "develop"; "off", "sideBySide", "split"; ...
std::string_view key(Module module);
std::string_view key(CompareMode mode);
std::string_view key(DevTool tool);
std::string_view key(VeskSheet sheet);
std::optional<Module> moduleFromKey(std::string_view text);

/// The question asked before photos leave the catalog.
struct RemovalQuestion {
  QString message;      ///< "Remove 3 photos from the library?"
  QString informative;  ///< what happens to the files
  QString confirm = QStringLiteral("Remove");
  QString cancel = QStringLiteral("Cancel");
};

/// What an export of several photos did.
struct ExportSummary {
  int written = 0;
  std::vector<std::string> errors;  ///< one line per photo that failed
  std::vector<std::filesystem::path> files;
};

/// How well the catalog is kept: its backups and its last passing check.
struct BackupState {
  int backups = 0;                  ///< backups in the "Backups" folder (not set-aside catalogs)
  std::optional<BackupInfo> last;   ///< the newest backup
  std::optional<double> lastCheck;  ///< the last passing check, seconds since 1970
  bool operator==(const BackupState&) const = default;
};

class VeskModel;
struct RenderState;
struct RenderResult;

/// The grid's view of `VeskModel::photos`: one row per photo in grid order.
/// Display is the file name, decoration the thumbnail (from the cache; a miss
/// asks for it in the background and the row changes when it comes).
class PhotoListModel : public QAbstractListModel {
  Q_OBJECT
 public:
  enum Role {
    idRole = Qt::UserRole + 1,  ///< qint64
    ratingRole,                 ///< int 0 … 5
    flagRole,                   ///< int 1, 0, −1
    labelRole,                  ///< QString key or empty
    editedRole,                 ///< bool
    selectedRole,               ///< bool
    currentRole,                ///< bool
    summaryRole,                ///< QString "ISO 100  ·  1/125 s ..."
    rawRole,                    ///< bool
  };

  explicit PhotoListModel(VeskModel& model);
  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

 private:
  VeskModel& model_;
};

/// The application model. See the top of this file for the thread rules.
class VeskModel : public QObject {
  Q_OBJECT
 public:
  using IDSet = std::set<std::int64_t>;
  using GroupSet = std::set<SettingsGroup>;
  using FolderCounts = std::map<std::string, int>;
  using Progress = std::optional<std::pair<int, int>>;
  using Records = std::vector<PhotoRecord>;
  using Strings = std::vector<std::string>;
  using KeywordCounts = std::vector<std::pair<std::string, int>>;
  using Details = std::optional<std::vector<DetailRow>>;

  Q_PROPERTY(lumivale::app::Module module READ module WRITE setModule NOTIFY moduleChanged)
  Q_PROPERTY(lumivale::LibraryQuery query READ query WRITE setQuery NOTIFY queryChanged)
  Q_PROPERTY(Records photos READ photos NOTIFY photosChanged)
  Q_PROPERTY(IDSet selection READ selection WRITE setSelection NOTIFY selectionChanged)
  Q_PROPERTY(std::optional<std::int64_t> currentID READ currentID WRITE setCurrentID NOTIFY currentIDChanged)
  Q_PROPERTY(std::vector<lumivale::Collection> collections READ collections NOTIFY collectionsChanged)
  Q_PROPERTY(Strings folders READ folders NOTIFY foldersChanged)
  Q_PROPERTY(FolderCounts folderCounts READ folderCounts NOTIFY folderCountsChanged)
  Q_PROPERTY(Strings keywordList READ keywordList NOTIFY keywordListChanged)
  Q_PROPERTY(KeywordCounts keywordCounts READ keywordCounts NOTIFY keywordCountsChanged)
  Q_PROPERTY(Strings currentKeywords READ currentKeywords NOTIFY currentKeywordsChanged)
  Q_PROPERTY(IDSet currentCollections READ currentCollections NOTIFY currentCollectionsChanged)
  Q_PROPERTY(Details currentDetails READ currentDetails NOTIFY currentDetailsChanged)
  Q_PROPERTY(int thumbVersion READ thumbVersion NOTIFY thumbVersionChanged)
  Q_PROPERTY(double gridSize READ gridSize WRITE setGridSize NOTIFY gridSizeChanged)
  Q_PROPERTY(QString status READ status WRITE setStatus NOTIFY statusChanged)
  Q_PROPERTY(std::optional<QString> importing READ importing NOTIFY importingChanged)
  Q_PROPERTY(std::optional<lumivale::ImportResult> lastImport READ lastImport NOTIFY lastImportChanged)
  Q_PROPERTY(std::optional<lumivale::app::VeskSheet> sheet READ sheet WRITE setSheet NOTIFY sheetChanged)
  Q_PROPERTY(QString catalogTitle READ catalogTitle NOTIFY catalogTitleChanged)
  Q_PROPERTY(lumivale::EditSettings settings READ settings NOTIFY settingsChanged)
  Q_PROPERTY(QImage preview READ preview NOTIFY previewChanged)
  Q_PROPERTY(QImage beforeImage READ beforeImage NOTIFY beforeImageChanged)
  Q_PROPERTY(lumivale::app::CompareMode compare READ compare WRITE setCompare NOTIFY compareChanged)
  Q_PROPERTY(lumivale::app::DevTool tool READ tool WRITE setTool NOTIFY toolChanged)
  Q_PROPERTY(
      std::optional<std::string> selectedMask READ selectedMask WRITE selectMask NOTIFY selectedMaskChanged)
  Q_PROPERTY(bool showMaskOverlay READ showMaskOverlay WRITE setShowMaskOverlay NOTIFY showMaskOverlayChanged)
  Q_PROPERTY(std::vector<lumivale::HistoryStep> history READ history NOTIFY historyChanged)
  Q_PROPERTY(int historyPos READ historyPos NOTIFY historyPosChanged)
  Q_PROPERTY(std::vector<lumivale::Snapshot> snapshots READ snapshots NOTIFY snapshotsChanged)
  Q_PROPERTY(std::vector<lumivale::UserPreset> userPresets READ userPresets NOTIFY userPresetsChanged)
  Q_PROPERTY(double lastFrameMS READ lastFrameMS NOTIFY lastFrameMSChanged)
  Q_PROPERTY(bool loadingOriginal READ loadingOriginal NOTIFY loadingOriginalChanged)
  Q_PROPERTY(std::optional<lumivale::Histogram> histogram READ histogram NOTIFY histogramChanged)
  Q_PROPERTY(int curveChannel READ curveChannel WRITE setCurveChannel NOTIFY curveChannelChanged)
  Q_PROPERTY(double brushSize READ brushSize WRITE setBrushSize NOTIFY brushSizeChanged)
  Q_PROPERTY(double brushFeather READ brushFeather WRITE setBrushFeather NOTIFY brushFeatherChanged)
  Q_PROPERTY(double brushFlow READ brushFlow WRITE setBrushFlow NOTIFY brushFlowChanged)
  Q_PROPERTY(bool brushErase READ brushErase WRITE setBrushErase NOTIFY brushEraseChanged)
  Q_PROPERTY(std::optional<lumivale::EditSettings> clipboard READ clipboard NOTIFY clipboardChanged)
  Q_PROPERTY(GroupSet copyGroups READ copyGroups WRITE setCopyGroups NOTIFY copyGroupsChanged)
  Q_PROPERTY(lumivale::ExportOptions exportOptions READ exportOptions WRITE setExportOptions NOTIFY
                 exportOptionsChanged)
  Q_PROPERTY(Progress exportProgress READ exportProgress NOTIFY exportProgressChanged)
  Q_PROPERTY(bool lensAvailable READ lensAvailable NOTIFY lensAvailableChanged)
  Q_PROPERTY(bool showClipping READ showClipping WRITE setShowClipping NOTIFY showClippingChanged)
  Q_PROPERTY(bool closeUp READ closeUp WRITE setCloseUp NOTIFY closeUpChanged)
  Q_PROPERTY(lumivale::app::BackupState backupState READ backupState NOTIFY backupStateChanged)
  // Computed.
  Q_PROPERTY(bool canUndo READ canUndo NOTIFY undoStateChanged)
  Q_PROPERTY(bool canRedo READ canRedo NOTIFY undoStateChanged)

  /// Grid size when the per-user default is missing or unreadable, in points.
  static constexpr double defaultGridSize = 170.0;
  /// The per-user defaults key of the grid size.
  static constexpr std::string_view gridSizeKey = "kuvo.ph.gridSize";
  /// Count limit of the thumbnail cache.
  static constexpr int thumbCacheLimit = 3000;
  /// Long side of the develop preview, normally and in close-up.
  static constexpr int previewSideNormal = 1800;
  static constexpr int previewSideCloseUp = 4200;
  /// Render durations kept in `frameTimes`.
  static constexpr std::size_t frameTimesLimit = 200;
  /// Quiet time after the last edit of a photo before its edited thumbnail
  /// is made, and that thumbnail's long side.
  static constexpr int editedThumbnailDelayMS = 800;
  static constexpr int editedThumbnailSide = 546;
  /// The folder chooser of an import.
  static constexpr const char* importChooserMessage =
      "Choose a folder of photos. They stay where they are; KUVO Lumivale never changes the originals.";
  static constexpr const char* importChooserButton = "Import";
  /// The catalog entry of every photo.
  static constexpr const char* allPhotographsTitle = "All Photographs";

  /// Takes the open catalog and the per-user defaults store (the user's own
  /// when not given), sets the initial state and loads the grid. The first
  /// model made becomes `shared()` until it is destroyed.
  explicit VeskModel(std::shared_ptr<PhotoLibrary> library,
                     std::optional<UserDefaults> defaults = std::nullopt, QObject* parent = nullptr);
  /// Waits for the background work of the model to end.
  ~VeskModel() override;
  VeskModel(const VeskModel&) = delete;
  VeskModel& operator=(const VeskModel&) = delete;

  /// The process's model (for the key monitor); null when none exists.
  static VeskModel* shared();

  PhotoLibrary& library() { return *library_; }
  /// The grid's rows (owned by the model).
  PhotoListModel* photoList() { return photoList_; }

  // ---- published state ----------------------------------------------------------

  Module module() const { return module_; }
  const LibraryQuery& query() const { return query_; }
  const Records& photos() const { return photos_; }
  const IDSet& selection() const { return selection_; }
  std::optional<std::int64_t> currentID() const { return currentID_; }
  const std::vector<Collection>& collections() const { return collections_; }
  const Strings& folders() const { return folders_; }
  const FolderCounts& folderCounts() const { return folderCounts_; }
  const Strings& keywordList() const { return keywordList_; }
  /// Every keyword with the number of photos carrying it, in name order.
  const KeywordCounts& keywordCounts() const { return keywordCounts_; }
  /// The current photo's keywords in order; empty without a current photo.
  const Strings& currentKeywords() const { return currentKeywords_; }
  /// The ids of the collections holding the current photo.
  const IDSet& currentCollections() const { return currentCollections_; }
  /// The current photo's file details, read in the background: nothing
  /// while they are read (or without a current photo), no rows when the
  /// file could not be read.
  const Details& currentDetails() const { return currentDetails_; }
  int thumbVersion() const { return thumbVersion_; }
  double gridSize() const { return gridSize_; }
  const QString& status() const { return status_; }
  const std::optional<QString>& importing() const { return importing_; }
  const std::optional<ImportResult>& lastImport() const { return lastImport_; }
  std::optional<VeskSheet> sheet() const { return sheet_; }
  const QString& catalogTitle() const { return catalogTitle_; }
  const EditSettings& settings() const { return settings_; }
  const QImage& preview() const { return preview_; }
  const QImage& beforeImage() const { return beforeImage_; }
  CompareMode compare() const { return compare_; }
  DevTool tool() const { return tool_; }
  const std::optional<std::string>& selectedMask() const { return selectedMask_; }
  bool showMaskOverlay() const { return showMaskOverlay_; }
  const std::vector<HistoryStep>& history() const { return history_; }
  int historyPos() const { return historyPos_; }
  const std::vector<Snapshot>& snapshots() const { return snapshots_; }
  const std::vector<UserPreset>& userPresets() const { return userPresets_; }
  double lastFrameMS() const { return lastFrameMS_; }
  bool loadingOriginal() const { return loadingOriginal_; }
  const std::optional<Histogram>& histogram() const { return histogram_; }
  int curveChannel() const { return curveChannel_; }
  double brushSize() const { return brushSize_; }
  double brushFeather() const { return brushFeather_; }
  double brushFlow() const { return brushFlow_; }
  bool brushErase() const { return brushErase_; }
  const std::optional<EditSettings>& clipboard() const { return clipboard_; }
  const GroupSet& copyGroups() const { return copyGroups_; }
  const ExportOptions& exportOptions() const { return exportOptions_; }
  const Progress& exportProgress() const { return exportProgress_; }
  bool lensAvailable() const { return lensAvailable_; }
  bool showClipping() const { return showClipping_; }
  bool closeUp() const { return closeUp_; }
  const BackupState& backupState() const { return backupState_; }

  // ---- computed -----------------------------------------------------------------

  /// The record in `photos` whose id is `currentID`; in Develop also the
  /// open photo when the grid no longer lists it.
  std::optional<PhotoRecord> current() const;
  /// The selection in grid order; the current photo alone when the
  /// selection is empty; empty when there is no current photo either.
  std::vector<std::int64_t> selectedIDs() const;
  /// Position of a photo in `photos`, or nothing.
  std::optional<int> rowOf(std::int64_t id) const;
  /// The first history step can never be undone.
  bool canUndo() const;
  bool canRedo() const;
  /// The geometry of the current settings on the open source's full size
  /// (the crop ignored while the crop tool is active); nothing without a
  /// source.
  std::optional<PhotoGeometry> displayGeometry() const;
  /// The open source's full pixel size; nothing without a source.
  std::optional<Size> sourceSize() const;
  /// A unit point of the shown preview (0 … 1, origin top-left) as a unit
  /// point of the source, through `displayGeometry`; nothing without a source.
  std::optional<Point> viewToSource(Point viewUnit) const;
  /// Recent render durations in milliseconds, oldest first, at most 200.
  const std::deque<double>& frameTimes() const { return frameTimes_; }
  /// Long side of the develop preview now: 1800, or 4200 in close-up.
  int previewSide() const { return previewSide_; }
  /// Generation of develop loads; moves on with every change of the current
  /// photo and every entry into Develop.
  std::uint64_t loadToken() const { return loadToken_; }
  /// A render runs or another is asked for.
  bool renderBusy() const { return rendering_ || pendingRender_; }
  /// Renders started since the model was made (for tests and the status bar).
  int rendersStarted() const { return rendersStarted_; }
  /// Edited thumbnails written since the model was made.
  int editedThumbnailsWritten() const { return editedThumbnailsWritten_; }

  // ---- setters of published fields ------------------------------------------------

  /// Library shows the grid (and lets go of the decoded source); develop
  /// does what `enterDevelop` does.
  void setModule(Module module);
  /// Reloads when `query` differs from the current one; an equal one does
  /// nothing.
  void setQuery(const LibraryQuery& query);
  void setSelection(const IDSet& selection);
  /// Runs the develop-side reaction when the photo changes.
  void setCurrentID(std::optional<std::int64_t> id);
  /// Stored under "kuvo.ph.gridSize" on every change.
  void setGridSize(double size);
  void setStatus(const QString& status);
  void setSheet(std::optional<VeskSheet> sheet);
  void setCompare(CompareMode mode);
  void setTool(DevTool tool);
  void selectMask(std::optional<std::string> id);
  void setShowMaskOverlay(bool on);
  void setCurveChannel(int channel);
  void setBrushSize(double size);
  void setBrushFeather(double feather);
  void setBrushFlow(double flow);
  void setBrushErase(bool erase);
  void setCopyGroups(const GroupSet& groups);
  void setExportOptions(const ExportOptions& options);
  void setShowClipping(bool on);
  /// Close-up (1:1) preview: 4200 pixels instead of 1800. Setting the value
  /// it has renders nothing new.
  void setCloseUp(bool on);

  // ---- library ------------------------------------------------------------------

  /// Reads the grid for `query` and the catalog panel's lists afresh, and
  /// settles the current photo and the selection.
  void reload();
  /// Reads the catalog's backups and check time afresh (the day's backup
  /// may end after the model was made).
  void readBackupState();
  /// Reloads only when the query filters by rating, flag, label or text.
  void reloadIfFiltered();
  /// A fresh query keeping the sort order, changed by `change`, titled `title`.
  void showCatalog(const QString& title, const std::function<void(LibraryQuery&)>& change = {});
  /// A click: `range` selects from the current photo to `id`, `extend`
  /// toggles `id`, else `id` alone; `id` becomes current in every case.
  void select(std::int64_t id, bool extend = false, bool range = false);
  void selectAll();
  /// Moves the current photo `delta` places in grid order (the arrow keys),
  /// stopping at either end; the selection becomes the new photo alone.
  void stepCurrent(int delta);
  /// Re-reads one record and replaces it in place.
  void refreshRecord(std::int64_t id);
  /// The record's thumbnail, from the cache or the catalog's thumbnail store
  /// (made there on first use); a null image when there is none. Safe to
  /// call from any thread.
  QImage thumbnail(const PhotoRecord& record);
  /// The cached thumbnail only; a null image on a miss. Any thread.
  QImage cachedThumbnail(const PhotoRecord& record) const;
  /// Loads the record's thumbnail in the background when it is not cached;
  /// `thumbnailReady` follows.
  void requestThumbnail(const PhotoRecord& record);
  /// Warms the cache for the whole grid in the background.
  void prefetchThumbnails();

  /// Imports a folder (with its subfolders) in the background, then shows it.
  void importFolder(const std::filesystem::path& folder,
                    std::function<void(const ImportResult&)> completion = {});

  // Organising: each acts on `selectedIDs()`.
  void setRating(int rating);
  void setFlag(int flag);
  /// Clears the label when every selected photo carries it, else sets it.
  void setLabel(const std::string& label);
  /// Words separated by commas or semicolons.
  void addKeywords(const QString& text);
  void removeKeyword(const std::string& keyword);
  void createCollection(const std::string& name, bool addSelection);
  void toggleCollection(const Collection& collection, std::int64_t photo);
  void deleteCollection(const Collection& collection);
  /// Gives the collection a new name (trimmed); an empty name does nothing.
  void renameCollection(const Collection& collection, const QString& name);
  /// Adds the photos not yet in the collection; those in it stay as they are.
  void addToCollection(const Collection& collection, const std::vector<std::int64_t>& ids);
  /// The confirmation to show before `removeFromLibrary`; nothing when there
  /// is nothing to remove.
  std::optional<RemovalQuestion> removalQuestion() const;
  /// Removes the selected photos' catalog rows (never their files); call
  /// after the user confirmed.
  void removeFromLibrary();

  // ---- develop ------------------------------------------------------------------

  /// Develop with the current photo; nothing without one.
  void enterDevelop();
  void enterDevelopIfNeeded();
  /// Asks for a new preview of the current settings; requests made while a
  /// render runs are folded into exactly one more.
  void requestRender();
  /// Remakes the photo's edited thumbnail 0.8 s after its last edit.
  void scheduleEditedThumbnail(std::int64_t id);

  // ---- editing (on the current photo; nothing without one) -------------------------

  /// Writes one field and renders; no history step.
  template <class T>
  void set(T EditSettings::*field, T value) {
    change([&](EditSettings& s) { s.*field = std::move(value); });
  }
  /// Writes one field named by its stored path ("exposure", "hsl.2.hue") with
  /// a value in its stored form, and renders; false (nothing changed) when the
  /// path or value does not fit.
  bool set(const std::string& path, const std::string& value);
  /// Applies `body` to the settings and renders; no history step.
  void change(const std::function<void(EditSettings&)>& body);
  /// `change`, then `commit(name)`.
  void edit(const std::string& name, const std::function<void(EditSettings&)>& body);
  /// Records the settings as one history step, unless nothing changed.
  void commit(const std::string& name);
  void undo();
  void redo();
  /// Jumps to history step `seq` of the current photo; nothing when there is
  /// no such step.
  void goToHistory(int seq);
  /// The photo's initial settings as one step "Reset All".
  void resetAll();

  // Snapshots.
  void addSnapshot(const std::string& name);
  void applySnapshot(std::int64_t snapshotId);
  void deleteSnapshot(std::int64_t snapshotId);

  // Presets: applied to the current photo as one step "Preset: <name>".
  void applyLook(const BuiltInPreset& look);
  void applyPreset(const UserPreset& preset);
  /// Saves the current settings' `groups` as a user preset.
  void savePreset(const std::string& name, const GroupSet& groups);
  void deletePreset(std::int64_t presetId);

  // Copy, paste and sync of `copyGroups`.
  /// The current settings become the clipboard.
  void copySettings();
  /// The clipboard's `copyGroups` onto every selected photo, one step each.
  void pasteSettings();
  /// The current photo's `copyGroups` onto the other selected photos.
  void syncSettings();

  /// White-balance picker: the colour around a unit point of the source is
  /// made neutral by temperature and tint, as one step "White Balance".
  void sampleWhiteBalance(Point sourceUnit);

  // Masks: each is one step unless said otherwise.
  /// Adds a mask of `kind` and selects it; subject, sky and people are
  /// computed from the photo in the background first. Its id, or nothing.
  std::optional<std::string> addMask(MaskKind kind);
  void renameMask(const std::string& id, const std::string& name);
  void setMaskInvert(const std::string& id, bool invert);
  /// Changes a mask without a step (a drag); follow with `commit`.
  void changeMask(const std::string& id, const std::function<void(PhotoMask&)>& body);
  /// `changeMask`, then `commit(name)`.
  void editMask(const std::string& id, const std::string& name, const std::function<void(PhotoMask&)>& body);
  /// Sliders: no step; `commit` when the drag ends.
  void setMaskOpacity(const std::string& id, double opacity);
  void setMaskAdjust(const std::string& id, double MaskAdjust::*field, double value);
  void deleteMask(const std::string& id);
  /// Recomputes a smart mask from the photo as it is now.
  void refreshSmartMask(const std::string& id);
  /// One dab of the brush on the selected brush mask at a unit source point,
  /// with `brushSize`, `brushFeather`, `brushFlow` and `brushErase`; no step.
  void paintDab(Point sourceUnit);
  /// Ends a brush stroke: one step "Brush" (or "Erase").
  void endStroke();

  // Crop and geometry.
  /// A crop of the aspect, centred and as large as fits, as one step.
  void setCropAspect(const std::string& aspect);
  /// A crop drag: no step (commit "Crop" when it ends).
  void setCrop(const CropRect& crop);
  void resetCrop();
  /// Straighten angle in degrees, no step (commit "Straighten" at the end).
  void setStraighten(double degrees);
  void rotate(bool clockwise);
  void flip(bool horizontal);

  // ---- export -------------------------------------------------------------------

  /// Exports the photos into `folder` with `exportOptions` (saved as the
  /// user's choice) in the background; `exportProgress` counts, and
  /// `completion` gets the summary on the main thread.
  void exportPhotos(const std::vector<std::int64_t>& ids, const std::filesystem::path& folder,
                    std::function<void(const ExportSummary&)> completion = {});

 signals:
  void moduleChanged();
  void queryChanged();
  /// The list changed in any way; `photosReset` or `recordsUpdated` says how.
  void photosChanged();
  /// The list was replaced (a reload).
  void photosReset();
  /// Records at these rows were replaced in place; the order is unchanged.
  void recordsUpdated(const std::vector<int>& rows);
  void selectionChanged();
  void currentIDChanged();
  void collectionsChanged();
  void foldersChanged();
  void folderCountsChanged();
  void keywordListChanged();
  void keywordCountsChanged();
  void currentKeywordsChanged();
  void currentCollectionsChanged();
  void currentDetailsChanged();
  void thumbVersionChanged();
  void gridSizeChanged();
  void statusChanged();
  void importingChanged();
  void lastImportChanged();
  void sheetChanged();
  void catalogTitleChanged();
  void settingsChanged();
  void previewChanged();
  void beforeImageChanged();
  void compareChanged();
  void toolChanged();
  void selectedMaskChanged();
  void showMaskOverlayChanged();
  void historyChanged();
  void historyPosChanged();
  void snapshotsChanged();
  void userPresetsChanged();
  void lastFrameMSChanged();
  void loadingOriginalChanged();
  void histogramChanged();
  void curveChannelChanged();
  void brushSizeChanged();
  void brushFeatherChanged();
  void brushFlowChanged();
  void brushEraseChanged();
  void clipboardChanged();
  void copyGroupsChanged();
  void exportOptionsChanged();
  void exportProgressChanged();
  void lensAvailableChanged();
  void showClippingChanged();
  void closeUpChanged();
  void backupStateChanged();
  void undoStateChanged();
  /// A thumbnail asked for with `requestThumbnail` is in the cache.
  void thumbnailReady(std::int64_t id);
  /// A render cycle ended (whether or not it produced a preview).
  void renderFinished();

 private:
  struct Impl;

  /// Runs `work` on the main thread later; callable from any thread. The
  /// hand-off goes through a lock of ours, which ThreadSanitizer sees.
  void toMain(std::function<void()> work);
  Q_INVOKABLE void deliverMail();
  void bumpToken();
  void currentChanged();
  void openForDevelop(const PhotoRecord& record, std::uint64_t token);
  void releaseSource();
  void finishRender(std::uint64_t token, const RenderResult& result);
  EditSettings beforeSettings() const;
  void measureHistogram(std::uint64_t token, const Image& shown);
  bool makeEditedThumbnail(PhotoLibrary& library, std::int64_t id);
  void loadEditState(std::int64_t id);
  void readHistory(std::int64_t id);
  void readSnapshots(std::int64_t id);
  void afterStoredChange(std::int64_t id);
  void replacePhotos(Records photos);
  void readPanels();
  void readKeywords();
  void readCollections();
  void readCurrentTags();
  void readCurrentDetails();
  void forgetThumbnails(std::int64_t id);
  void bumpThumbVersion();
  void finishImport(const ImportResult& result, const std::filesystem::path& root, const std::string& name,
                    const std::function<void(const ImportResult&)>& completion);
  /// Runs a catalog write; a failure becomes the status line. False then.
  bool write(const std::function<void()>& body);
  void updateInPlace(const std::vector<std::int64_t>& ids, const std::function<void(PhotoRecord&)>& body);
  void carryOnto(const std::vector<std::int64_t>& ids, const EditSettings& from, const std::string& step);
  void onOpenPhoto(std::function<void(RenderState&, const Image& base, Size full)> work,
                   const EditSettings& settings);
  void computeSmartMask(const PhotoMask& mask, bool adding);
  Size frameSize() const;

  std::unique_ptr<Impl> impl_;
  std::shared_ptr<PhotoLibrary> library_;
  PhotoListModel* photoList_ = nullptr;

  Module module_ = Module::library;
  LibraryQuery query_;
  Records photos_;
  std::unordered_map<std::int64_t, int> rows_;  // id -> position in photos_
  IDSet selection_;
  std::optional<std::int64_t> currentID_;
  std::optional<PhotoRecord> openRecord_;  // the record Develop has open
  std::vector<Collection> collections_;
  Strings folders_;
  FolderCounts folderCounts_;
  Strings keywordList_;
  KeywordCounts keywordCounts_;
  Strings currentKeywords_;
  IDSet currentCollections_;
  Details currentDetails_;
  int thumbVersion_ = 0;
  double gridSize_ = defaultGridSize;
  QString status_;
  std::optional<QString> importing_;
  std::optional<ImportResult> lastImport_;
  std::optional<VeskSheet> sheet_;
  QString catalogTitle_ = QString::fromUtf8(allPhotographsTitle);
  EditSettings settings_;
  QImage preview_;
  QImage beforeImage_;
  CompareMode compare_ = CompareMode::off;
  DevTool tool_ = DevTool::none;
  std::optional<std::string> selectedMask_;
  bool showMaskOverlay_ = false;
  std::vector<HistoryStep> history_;
  int historyPos_ = 0;
  std::vector<Snapshot> snapshots_;
  std::vector<UserPreset> userPresets_;
  double lastFrameMS_ = 0;
  bool loadingOriginal_ = false;
  std::optional<Histogram> histogram_;
  int curveChannel_ = 0;
  double brushSize_ = 0.04;
  double brushFeather_ = 0.5;
  double brushFlow_ = 0.8;
  bool brushErase_ = false;
  std::optional<EditSettings> clipboard_;
  GroupSet copyGroups_;
  ExportOptions exportOptions_;
  Progress exportProgress_;
  bool lensAvailable_ = false;
  bool showClipping_ = false;
  bool closeUp_ = false;
  BackupState backupState_;

  // Main-thread working state.
  std::uint64_t loadToken_ = 0;
  bool rendering_ = false;
  bool pendingRender_ = false;
  int previewSide_ = previewSideNormal;
  std::optional<Size> sourceSize_;  // the open source's, as the render queue reported it
  std::map<std::int64_t, QTimer*> thumbWork_;
  std::deque<double> frameTimes_;
  int rendersStarted_ = 0;
  int editedThumbnailsWritten_ = 0;
  bool strokeOpen_ = false;
  std::int64_t detailsFor_ = 0;  // the photo whose details are published or being read
  bool detailsReading_ = false;
  std::uint64_t detailsToken_ = 0;

  friend class PhotoListModel;
  friend struct Impl;
};

}  // namespace lumivale::app
