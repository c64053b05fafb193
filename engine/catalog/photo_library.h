#pragma once
// The catalog: one library folder holding the SQLite database and the
// thumbnail cache. `PhotoLibrary` is the only place that issues SQL; the rest
// of the system reads `PhotoRecord` values and changes them through it.
//
// Reads never throw (a failed read gives no rows, defaults or nothing);
// writes throw `SQLError`, and writes of several statements are transactions.
// All access goes through the database's recursive lock, so a library may be
// used from several threads.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine/catalog/catalog_files.h"
#include "engine/catalog/catalog_safety.h"
#include "engine/catalog/library_query.h"
#include "engine/catalog/photo_meta.h"
#include "engine/catalog/photo_record.h"
#include "engine/catalog/sqlite_db.h"
#include "engine/edit/edit_settings.h"
#include "engine/edit/presets.h"
#include "engine/edit/settings_group.h"
#include "engine/media/bitmap.h"

namespace lumivale {

/// A library folder or one of its files could not be created or reached.
class FileError : public std::runtime_error {
 public:
  explicit FileError(const std::string& description) : std::runtime_error(description) {}
};

/// What one import did.
struct ImportResult {
  int added = 0;  ///< photos inserted
  int skipped = 0;  ///< files whose path was already catalogued
  int failed = 0;  ///< files whose header could not be read
  double seconds = 0;  ///< wall time of the whole import

  bool operator==(const ImportResult&) const = default;
};

/// Told (files handled so far, files to handle) while an import inserts.
using ImportProgress = std::function<void(int handled, int total)>;

/// What one run of `makeThumbnails` did.
struct ThumbnailBatch {
  int made = 0;     ///< thumbnails made and saved
  int present = 0;  ///< photos whose thumbnail was there and readable
  int failed = 0;   ///< photos whose file is missing or cannot be decoded
  int unsaved = 0;  ///< thumbnails made that could not be written
  bool operator==(const ThumbnailBatch&) const = default;
};

/// Told (photos handled so far, photos to handle) while thumbnails are made.
using ThumbnailProgress = std::function<void(int handled, int total)>;

/// A user collection and the number of photos in it.
struct Collection {
  std::int64_t id = 0;
  std::string name;
  int count = 0;
  bool operator==(const Collection&) const = default;
};

/// One step of a photo's edit history: the settings after the step.
struct HistoryStep {
  int seq = 0;       ///< step number, from 1; step 1 is "Import"
  std::string name;  ///< what the step did
  EditSettings settings;
  double date = 0;  ///< seconds since 1970
  bool operator==(const HistoryStep&) const = default;
};

/// A photo's history steps in order, and the step its current settings
/// came from (0: no history yet).
struct EditHistory {
  std::vector<HistoryStep> steps;
  int position = 0;
  bool operator==(const EditHistory&) const = default;
};

/// A photo's edit as a settings write left it, read inside the write's own
/// transaction.
struct SettingsCommit {
  std::int64_t photo = 0;
  bool changed = false;             ///< false: nothing was recorded (see `commitSettings`)
  EditSettings settings;            ///< the photo's current settings
  bool edited = false;              ///< they differ from the photo's initial settings
  int position = 0;                 ///< the history position (0: no history)
  std::optional<HistoryStep> step;  ///< the step at `position`, when it can be read
  bool operator==(const SettingsCommit&) const = default;
};

/// Named settings of one photo, kept apart from its history.
struct Snapshot {
  std::int64_t id = 0;     ///< the snapshot's own row id
  std::int64_t photo = 0;  ///< the photo it belongs to
  std::string name;
  EditSettings settings;
  double date = 0;  ///< seconds since 1970
  bool operator==(const Snapshot&) const = default;
};

/// How a library is opened.
struct LibraryOptions {
  /// Check the catalog before opening it for writing when the check is due:
  /// when it was not closed cleanly, or no check passed for a day. A failed
  /// check throws CatalogDamaged. Without it (for reading only), a catalog
  /// that was not closed cleanly is opened read-only, so that it still
  /// counts as not closed cleanly for the next opening, which checks.
  bool checkWhenDue = true;
};

class PhotoLibrary {
 public:
  /// The value of the `format` row of the `meta` table.
  static constexpr const char* formatName = "KUVO Lumivale library 1";
  static constexpr const char* databaseName = "Lumivale Library.sqlite";
  static constexpr const char* thumbnailsName = "Thumbnails";
  /// Longest side of a grid thumbnail, in pixels.
  static constexpr int thumbSide = 420;
  /// The column list every photo read starts with.
  static const std::string recordColumns;

  /// Opens or creates the library at `folder`: makes the "Thumbnails" folder
  /// (with missing parents), checks the catalog when due (see
  /// LibraryOptions), opens the database and makes the schema when it is
  /// missing. A library that cannot be written is opened read-only, and
  /// every write then throws SQLError saying so. Throws FileError, SQLError
  /// (a database of another program, which is left as it is) or
  /// CatalogDamaged; no library results then.
  explicit PhotoLibrary(std::filesystem::path folder, const LibraryOptions& options = {});

  const std::filesystem::path& folder() const { return folder_; }
  std::filesystem::path databasePath() const { return folder_ / databaseName; }
  std::filesystem::path thumbFolder() const { return folder_ / thumbnailsName; }
  SQLiteDB& db() { return *db_; }

  /// Whether writes are refused, and why (see `safety`).
  bool readOnly() const;
  /// Throws the SQLError every write of a read-only library throws ("The
  /// library ... is read-only (why); nothing was changed"); nothing when it
  /// can be written.
  void requireWritable() const;
  /// The read-only state, how the catalog was last closed and checked.
  CatalogSafety safety() const;
  /// Checks the catalog now on a connection of its own (it takes a
  /// fraction of a second for 100,000 photos) and records a passing check.
  /// Never throws.
  CatalogCheck checkNow();

  /// The error of the last read that did not give every row (a damaged
  /// page, a search SQLite refused), or nothing; taking it clears it, so a
  /// caller learns whether the reads since it last asked were complete.
  std::optional<std::string> takeReadError() { return db_->takeReadError(); }

  /// Maps one row of `recordColumns` to a record; missing or NULL columns
  /// take the record's defaults.
  static PhotoRecord record(const SQLRow& row);

  /// The photo with this id, or nothing.
  std::optional<PhotoRecord> photo(std::int64_t id);

  /// The photos the query chooses, in its order; empty when the read fails.
  std::vector<PhotoRecord> photos(const LibraryQuery& query);

  /// Number of photos in the catalog; 0 when it cannot be read.
  int count();

  /// The value of a `meta` row, or nothing.
  std::optional<std::string> meta(const std::string& key);

  // Import

  /// Imports the supported photo files of `folder` (and of its subfolders
  /// when `recursive`; hidden files, packages and our library folder are left
  /// out) in the file browser's order, and records the folder in `folders`
  /// in the same transaction. Throws FileError when the folder cannot be
  /// listed, SQLError (with nothing inserted) when the catalog cannot be
  /// written.
  ImportResult importFolder(const std::filesystem::path& folder, bool recursive,
                            const ImportProgress& progress = {});

  /// Catalogues `files`, skipping paths already in the catalog (or earlier
  /// in the list): headers are read in parallel on every core, then all new
  /// photos and their keywords are inserted in one transaction. `progress`
  /// is called after every 50 files inserted or failed. Files are only read.
  /// Throws SQLError, rolling back every insert of the call.
  ImportResult importFiles(const std::vector<std::filesystem::path>& files,
                           const ImportProgress& progress = {});

  /// The insert step of `importFiles`: in one transaction, a row (and its
  /// keyword rows, stored as `keywordForm` gives them) for each file whose
  /// meta is present, a `failed` count for each absent one, and a `folders`
  /// row for `folder` when given; `files` and `metas` pair up by index and
  /// `files` are standardized paths. A path that is in the catalog by the
  /// time its row goes in (another import got there first) counts as
  /// skipped, and its keywords are left alone. Throws SQLError, rolling
  /// everything back.
  ImportResult insertPhotos(const std::vector<std::filesystem::path>& files,
                            const std::vector<std::optional<PhotoMeta>>& metas,
                            const ImportProgress& progress = {},
                            const std::optional<std::filesystem::path>& folder = std::nullopt);

  // Thumbnails
  //
  // Thumbnail files live in the "Thumbnails" folder; reading and making
  // them issues no SQL and takes no lock, so any thread may call these.

  /// "Thumbnails/<id>.jpg", the photo's thumbnail as shot, or with `edited`
  /// "Thumbnails/<id>-e.jpg", the one showing its develop settings.
  std::filesystem::path thumbnailURL(std::int64_t id, bool edited) const;

  /// The photo's grid thumbnail as 8-bit sRGB pixels: its edited thumbnail
  /// when the record is edited and that file loads, else its plain one, else
  /// one made from the photo's file at `thumbSide` and saved as the plain
  /// one. A thumbnail file that does not decode counts as missing. Nothing
  /// when the photo's file is missing or cannot be decoded (and nothing is
  /// written then). Never throws.
  std::optional<Bitmap> thumbnail(const PhotoRecord& record) const;

  /// Makes the plain thumbnails of `photos` that are missing or do not
  /// decode (all of them with `force`), several at once on every core.
  /// `progress` is called from the working threads, one call at a time.
  /// Never throws.
  ThumbnailBatch makeThumbnails(const std::vector<PhotoRecord>& photos, bool force,
                                const ThumbnailProgress& progress = {}) const;

  // Organising
  //
  // Writes that take a list of ids change each listed photo; an id that is
  // not in the catalog (or listed twice) is passed over. Each write is all
  // or nothing for its whole list, however long: one statement or one
  // transaction. Reads never throw.

  /// Stores the rating clamped to 0...5.
  void setRating(const std::vector<std::int64_t>& ids, int rating);
  /// 1 pick, 0 none, -1 reject; stored as given.
  void setFlag(const std::vector<std::int64_t>& ids, int flag);
  /// A colour label key, or empty to clear the label.
  void setLabel(const std::vector<std::int64_t>& ids, const std::string& label);

  /// The photo's keywords in order.
  std::vector<std::string> keywords(std::int64_t id);
  /// Every keyword in order with the number of photos that carry it.
  std::vector<std::pair<std::string, int>> allKeywords();
  /// The form in which keywords are stored and compared: trimmed and
  /// lower-cased, so "Sky", " sky " and "sky" are one keyword.
  static std::string keywordForm(const std::string& word);
  /// Adds each word in `keywordForm` to each photo; a word that is empty
  /// after trimming is left out.
  void addKeywords(const std::vector<std::int64_t>& ids, const std::vector<std::string>& words);
  /// Removes the word (in `keywordForm`) from each photo; returns the number
  /// of photos that had it.
  int removeKeyword(const std::vector<std::int64_t>& ids, const std::string& word);

  /// Every collection, by name without regard to case.
  std::vector<Collection> collections();
  /// The id of the collection with this name, made if there is none.
  std::int64_t createCollection(const std::string& name);
  /// Throws SQLError when another collection has the name.
  void renameCollection(std::int64_t id, const std::string& name);
  /// Deletes the collection and its membership rows; photos stay.
  void deleteCollection(std::int64_t id);
  void addToCollection(std::int64_t id, const std::vector<std::int64_t>& photos);
  void removeFromCollection(std::int64_t id, const std::vector<std::int64_t>& photos);
  std::set<std::int64_t> collectionsContaining(std::int64_t photo);

  /// The import roots, by path without regard to case.
  std::vector<std::string> folders();
  /// Photos per containing folder, keyed by folder path.
  std::map<std::string, int> folderCounts();

  /// The ids of the list that are not in the catalog, in list order.
  std::vector<std::int64_t> missingPhotos(const std::vector<std::int64_t>& ids);

  /// Removes the photos and every row that refers to them in one
  /// transaction, then deletes their cached thumbnails. The photo files are
  /// never touched. Unknown ids are passed over.
  void remove(const std::vector<std::int64_t>& ids);

  // Edits
  //
  // Settings are stored as the JSON form of `EditSettings`; a value that
  // cannot be encoded is stored as an empty blob, and an empty or unreadable
  // blob reads as the photo's initial settings. Reads never throw. Writes
  // throw SQLError and are all-or-nothing; a write for a photo that is not
  // in the catalog throws "No photo with id N" and changes nothing. Batch
  // writes (`applyPreset`, `copySettings`) are one transaction for all
  // their photos.

  /// The settings of a photo never saved: the defaults, with sharpening and
  /// colour noise reduction at 25 for a RAW file.
  static EditSettings initialSettings(bool isRaw);

  /// The photo's current settings; its initial settings when none are
  /// stored or they cannot be read (an unknown photo: the non-RAW ones).
  EditSettings settings(std::int64_t id);

  /// The stored settings text exactly as stored, or nothing when the photo
  /// has none that can be read.
  std::optional<std::string> storedSettings(std::int64_t id);

  /// Stores the photo's settings, its `edited` flag and edit date. With a
  /// `step` name also records a history step after the current position:
  /// the redo tail is dropped, the first step ever is preceded by step 1
  /// "Import" holding the initial settings, and the position moves to the
  /// new step. Without a step, history and position stay as they are.
  void saveSettings(std::int64_t id, const EditSettings& settings,
                    const std::optional<std::string>& step = std::nullopt);

  /// Records `settings` as the photo's edit, with a history step when
  /// `step` is given, unless nothing changed: when the stored settings equal
  /// them (and, with a step, the photo already has a history) nothing is
  /// written and the result says `changed` false. A photo without history
  /// always gets its step, which also writes the "Import" step. Comparing
  /// and saving are one transaction, so no other writer comes between.
  SettingsCommit commitSettings(std::int64_t id, const EditSettings& settings,
                                const std::optional<std::string>& step);

  /// Reads the photo's settings, lets `change` modify them and commits the
  /// result as `commitSettings` does, all in one transaction. An exception
  /// from `change` rolls back and passes through, with nothing written.
  SettingsCommit updateSettings(std::int64_t id, const std::optional<std::string>& step,
                                const std::function<void(EditSettings&)>& change);

  /// The photo's steps (rows that cannot be read are left out) and position.
  EditHistory history(std::int64_t id);

  /// Makes the settings of step `seq` current and moves the position there;
  /// the steps themselves stay. Nothing (and no change) when the photo has
  /// no such step.
  std::optional<EditSettings> goToHistory(std::int64_t id, int seq);

  /// Moves one step back, never below step 1 ("Import", the floor), and
  /// returns the step now current; nothing (and no change) when there is no
  /// step to go back to.
  std::optional<HistoryStep> undo(std::int64_t id);
  /// Moves one step forward when a later step exists, and returns it;
  /// nothing (and no change) otherwise.
  std::optional<HistoryStep> redo(std::int64_t id);

  /// The photo's snapshots, oldest first; unreadable ones left out.
  std::vector<Snapshot> snapshots(std::int64_t id);
  /// One snapshot by its own id, or nothing.
  std::optional<Snapshot> snapshot(std::int64_t snapshotId);
  /// Records named settings for the photo; returns the snapshot's id. The
  /// photo's settings and history are not touched.
  std::int64_t addSnapshot(std::int64_t id, const std::string& name, const EditSettings& settings);
  void deleteSnapshot(std::int64_t snapshotId);
  /// Commits the snapshot's settings to its photo as a step
  /// "Snapshot: " + its name (as `commitSettings` does), reading the
  /// snapshot in the same transaction; nothing when it cannot be read.
  std::optional<SettingsCommit> applySnapshot(std::int64_t snapshotId);

  /// The user's presets by name without regard to case; unreadable ones
  /// left out.
  std::vector<UserPreset> userPresets();
  /// Stores a preset carrying `groups`; a preset of the same name (compared
  /// exactly) is replaced and gets a new id, which is returned.
  std::int64_t savePreset(const std::string& name, const EditSettings& settings,
                          const std::set<SettingsGroup>& groups);
  void deletePreset(std::int64_t id);

  /// Applies a look or a user preset to each photo by the preset rule (the
  /// non-local groups reset, then the carried groups taken from the
  /// preset), each photo getting one step "Preset: " + the preset's name
  /// unless its settings do not change (as `commitSettings` decides).
  void applyPreset(const std::vector<std::int64_t>& ids, const BuiltInPreset& look);
  void applyPreset(const std::vector<std::int64_t>& ids, const UserPreset& preset);

  /// Copies the `groups` of photo `from`'s settings onto each photo of `to`
  /// (copy and paste, sync), each getting one step named `step` unless its
  /// settings do not change. The source itself is passed over when it is
  /// among the targets.
  void copySettings(std::int64_t from, const std::vector<std::int64_t>& to,
                    const std::set<SettingsGroup>& groups = allButLocal(),
                    const std::string& step = "Paste Settings");

 private:
  // The body of `saveSettings`, run inside a transaction the caller holds
  // (transactions do not nest), so batches can save many photos in one.
  void writeSettings(std::int64_t id, const EditSettings& settings, const std::optional<std::string>& step,
                     double now);
  // The commit rule inside a transaction the caller holds: `current` are the
  // photo's stored settings. True when something was written.
  bool commitWithin(std::int64_t id, const EditSettings& current, const EditSettings& settings,
                    const std::optional<std::string>& step, double now);
  // The photo's edit as it now stands, for the result of a commit.
  SettingsCommit editState(std::int64_t id, bool changed);
  // Makes step `seq` of `history` current, inside a transaction the caller holds.
  std::optional<HistoryStep> moveTo(std::int64_t id, int seq, const EditHistory& history);
  ImportResult importListed(const std::vector<std::filesystem::path>& files, const ImportProgress& progress,
                            const std::optional<std::filesystem::path>& folder);
  void applyPresetSettings(const std::vector<std::int64_t>& ids, const std::string& name,
                           const EditSettings& preset, const std::set<SettingsGroup>& groups);
  // Opening: the check when due, and the schema when it is missing.
  void checkBeforeOpening();
  void prepareSchema();
  void recordCheck(const CatalogCheck& check);
  // What a refused write says; the read-only state is set once, at opening.
  std::string readOnlyMessage() const;

  std::filesystem::path folder_;
  std::optional<FolderLock> lock_;
  std::unique_ptr<SQLiteDB> db_;
  mutable std::mutex safetyMutex;
  CatalogSafety safety_;
};

}  // namespace lumivale
