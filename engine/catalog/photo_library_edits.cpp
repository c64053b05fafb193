// Edit persistence: each photo's current settings, its linear history of
// named steps with a position, its snapshots, and the user's presets.
//
// History model, per photo: rows of `history` numbered 1, 2, 3 ...; step 1
// is "Import" with the photo's initial settings and is written together
// with the first named step. `photos.histPos` is the step the current
// settings came from (0: no history yet); the steps above it are the redo
// tail, kept until the next named save drops them.
//
// The editing operations (commit, read-modify-commit, undo, redo, going to
// a step, applying snapshots, presets and copied settings) each read what
// they decide on and write in one transaction, so that the app and the
// command line working on one library never act on each other's stale
// reads. Commits record nothing when the settings did not change.

#include <algorithm>
#include <mutex>
#include <new>
#include <string_view>

#include "engine/catalog/photo_library.h"
#include "engine/edit/json.h"
#include "engine/util/clock.h"

namespace lumivale {
namespace {

std::int64_t firstInt(const std::vector<SQLRow>& rows, std::int64_t fallback = 0) {
  if (rows.empty() || rows.front().empty()) return fallback;
  return rows.front().front().intValue().value_or(fallback);
}

// A value that cannot be written as JSON (a NaN slipped into a slider) is
// stored as an empty blob, which reads back as the initial settings: the
// save itself must not fail over it.
Blob encodedBlob(const EditSettings& settings) {
  auto text = settings.encoded();
  if (!text) return {};
  return Blob(text->begin(), text->end());
}

bool isJsonObject(std::string_view text) {
  try {
    JsonReader reader(text);
    if (reader.peek() != JsonReader::Kind::object) return false;
    reader.skipValue();
    reader.finish();
    return true;
  } catch (const JsonSyntaxError&) {
    return false;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// The settings in a stored column, or nothing when it holds none: absent,
// empty, or not a JSON object. Decoding is tolerant and gives the default
// record for unreadable text, so only a default result needs the syntax
// check that tells "stored defaults" from "unreadable".
std::optional<EditSettings> readSettings(const SQLValue& value) {
  auto bytes = value.dataValue();
  if (!bytes || bytes->empty()) return std::nullopt;
  std::string_view text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
  EditSettings settings = EditSettings::decode(text);
  if (settings == EditSettings::blank() && !isJsonObject(text)) return std::nullopt;
  return settings;
}

const std::string stepColumns = "SELECT seq, name, edits, date FROM history WHERE photo = ?";

// One row of `stepColumns`; nothing when its number or settings cannot be read.
std::optional<HistoryStep> stepFrom(const SQLRow& row) {
  if (row.size() < 4) return std::nullopt;
  auto seq = row[0].intValue();
  auto stored = readSettings(row[2]);
  if (!seq || !stored) return std::nullopt;
  return HistoryStep{static_cast<int>(*seq), row[1].stringValue().value_or(""), std::move(*stored),
                     row[3].doubleValue().value_or(0)};
}

[[noreturn]] void throwNoPhoto(std::int64_t id) { throw SQLError("No photo with id " + std::to_string(id)); }

}  // namespace

EditSettings PhotoLibrary::initialSettings(bool isRaw) {
  EditSettings settings;
  if (isRaw) {
    settings.sharpenAmount = 25;
    settings.noiseColor = 25;
  }
  return settings;
}

EditSettings PhotoLibrary::settings(std::int64_t id) {
  auto rows = db_->query("SELECT edits, raw FROM photos WHERE id = ?", {id});
  if (rows.empty() || rows.front().size() < 2) return initialSettings(false);
  if (auto stored = readSettings(rows.front()[0])) return *stored;
  return initialSettings(rows.front()[1].intValue().value_or(0) != 0);
}

std::optional<std::string> PhotoLibrary::storedSettings(std::int64_t id) {
  auto rows = db_->query("SELECT edits FROM photos WHERE id = ?", {id});
  if (rows.empty() || rows.front().empty() || !readSettings(rows.front()[0])) return std::nullopt;
  Blob bytes = rows.front()[0].dataValue().value_or(Blob{});
  return std::string(bytes.begin(), bytes.end());
}

void PhotoLibrary::saveSettings(std::int64_t id, const EditSettings& settings,
                                const std::optional<std::string>& step) {
  db_->transaction([&] { writeSettings(id, settings, step, nowSeconds()); });
}

SettingsCommit PhotoLibrary::commitSettings(std::int64_t id, const EditSettings& settings,
                                            const std::optional<std::string>& step) {
  return updateSettings(id, step, [&](EditSettings& s) { s = settings; });
}

SettingsCommit PhotoLibrary::updateSettings(std::int64_t id, const std::optional<std::string>& step,
                                            const std::function<void(EditSettings&)>& change) {
  SettingsCommit result;
  db_->transaction([&] {
    const EditSettings current = settings(id);
    EditSettings changed = current;
    change(changed);
    result = editState(id, commitWithin(id, current, changed, step, nowSeconds()));
  });
  return result;
}

bool PhotoLibrary::commitWithin(std::int64_t id, const EditSettings& current, const EditSettings& settings,
                                const std::optional<std::string>& step, double now) {
  // Equal settings record no empty step; but a photo without history gets
  // its step all the same, which writes its "Import" baseline too.
  const bool unchanged =
      settings == current &&
      (!step || !db_->query("SELECT 1 FROM history WHERE photo = ? LIMIT 1", {id}).empty());
  if (!unchanged) {
    writeSettings(id, settings, step, now);
  } else if (db_->query("SELECT 1 FROM photos WHERE id = ?", {id}).empty()) {
    throwNoPhoto(id);
  }
  return !unchanged;
}

SettingsCommit PhotoLibrary::editState(std::int64_t id, bool changed) {
  SettingsCommit state;
  state.photo = id;
  state.changed = changed;
  state.settings = settings(id);
  auto rows = db_->query("SELECT edited, histPos FROM photos WHERE id = ?", {id});
  if (!rows.empty() && rows.front().size() == 2) {
    state.edited = rows.front()[0].intValue().value_or(0) != 0;
    state.position = static_cast<int>(rows.front()[1].intValue().value_or(0));
  }
  for (const SQLRow& row : db_->query(stepColumns + " AND seq = ?", {id, state.position})) {
    state.step = stepFrom(row);
  }
  return state;
}

void PhotoLibrary::writeSettings(std::int64_t id, const EditSettings& settings,
                                 const std::optional<std::string>& step, double now) {
  // The photo is looked up inside the transaction: the UPDATE alone would
  // quietly touch nothing for a missing photo, but the history rows after
  // it would still be written, as orphans no removal would ever clean up.
  auto rawRows = db_->query("SELECT raw FROM photos WHERE id = ?", {id});
  if (rawRows.empty()) throwNoPhoto(id);
  const EditSettings initial = initialSettings(firstInt(rawRows) != 0);
  const bool edited = !(settings == initial);
  const Blob blob = encodedBlob(settings);
  db_->run("UPDATE photos SET edits = ?, edited = ?, editDate = ? WHERE id = ?",
           {blob, edited ? 1 : 0, now, id});
  if (!step) return;

  // A damaged negative position counts as no history at all.
  const std::int64_t pos =
      std::max<std::int64_t>(firstInt(db_->query("SELECT histPos FROM photos WHERE id = ?", {id})), 0);
  db_->run("DELETE FROM history WHERE photo = ? AND seq > ?", {id, pos});
  if (pos == 0) {
    db_->run("INSERT OR REPLACE INTO history(photo, seq, name, edits, date) VALUES(?, 1, 'Import', ?, ?)",
             {id, encodedBlob(initial), now});
  }
  const std::int64_t next = std::max<std::int64_t>(pos, 1) + 1;
  db_->run("INSERT OR REPLACE INTO history(photo, seq, name, edits, date) VALUES(?, ?, ?, ?, ?)",
           {id, next, *step, blob, now});
  db_->run("UPDATE photos SET histPos = ? WHERE id = ?", {next, id});
}

EditHistory PhotoLibrary::history(std::int64_t id) {
  // Held across both reads so the steps and the position agree.
  std::lock_guard hold(db_->lock());
  EditHistory result;
  for (const SQLRow& row : db_->query(stepColumns + " ORDER BY seq", {id})) {
    if (auto step = stepFrom(row)) result.steps.push_back(std::move(*step));
  }
  result.position = static_cast<int>(firstInt(db_->query("SELECT histPos FROM photos WHERE id = ?", {id})));
  return result;
}

std::optional<HistoryStep> PhotoLibrary::moveTo(std::int64_t id, int seq, const EditHistory& h) {
  auto step =
      std::find_if(h.steps.begin(), h.steps.end(), [&](const HistoryStep& s) { return s.seq == seq; });
  if (step == h.steps.end()) return std::nullopt;
  auto rawRows = db_->query("SELECT raw FROM photos WHERE id = ?", {id});
  // History left behind by a photo that is gone moves nothing.
  if (rawRows.empty()) return std::nullopt;
  const bool edited = !(step->settings == initialSettings(firstInt(rawRows) != 0));
  db_->run("UPDATE photos SET edits = ?, edited = ?, editDate = ?, histPos = ? WHERE id = ?",
           {encodedBlob(step->settings), edited ? 1 : 0, nowSeconds(), step->seq, id});
  return *step;
}

// Each move reads the position and writes the new one in one transaction:
// another process moving or saving in between would otherwise be undone
// from a stale position.
std::optional<EditSettings> PhotoLibrary::goToHistory(std::int64_t id, int seq) {
  std::optional<HistoryStep> step;
  db_->transaction([&] { step = moveTo(id, seq, history(id)); });
  if (!step) return std::nullopt;
  return std::move(step->settings);
}

std::optional<HistoryStep> PhotoLibrary::undo(std::int64_t id) {
  std::optional<HistoryStep> step;
  db_->transaction([&] {
    const EditHistory h = history(id);
    if (h.position > 1) step = moveTo(id, h.position - 1, h);
  });
  return step;
}

std::optional<HistoryStep> PhotoLibrary::redo(std::int64_t id) {
  std::optional<HistoryStep> step;
  db_->transaction([&] {
    const EditHistory h = history(id);
    if (!h.steps.empty() && h.steps.back().seq > h.position) step = moveTo(id, h.position + 1, h);
  });
  return step;
}

std::vector<Snapshot> PhotoLibrary::snapshots(std::int64_t id) {
  std::vector<Snapshot> result;
  for (const SQLRow& row :
       db_->query("SELECT id, name, edits, date FROM snapshots WHERE photo = ? ORDER BY date", {id})) {
    if (row.size() < 4) continue;
    auto snapshotId = row[0].intValue();
    auto stored = readSettings(row[2]);
    if (!snapshotId || !stored) continue;
    result.push_back({*snapshotId, id, row[1].stringValue().value_or(""), std::move(*stored),
                      row[3].doubleValue().value_or(0)});
  }
  return result;
}

std::optional<Snapshot> PhotoLibrary::snapshot(std::int64_t snapshotId) {
  auto rows = db_->query("SELECT id, photo, name, edits, date FROM snapshots WHERE id = ?", {snapshotId});
  if (rows.empty() || rows.front().size() < 5) return std::nullopt;
  const SQLRow& row = rows.front();
  auto stored = readSettings(row[3]);
  if (!stored) return std::nullopt;
  return Snapshot{snapshotId, row[1].intValue().value_or(0), row[2].stringValue().value_or(""),
                  std::move(*stored), row[4].doubleValue().value_or(0)};
}

std::int64_t PhotoLibrary::addSnapshot(std::int64_t id, const std::string& name,
                                       const EditSettings& settings) {
  // As with history: a snapshot of a missing photo would be an orphan row.
  std::lock_guard hold(db_->lock());
  if (db_->query("SELECT 1 FROM photos WHERE id = ?", {id}).empty()) throwNoPhoto(id);
  return db_->run("INSERT INTO snapshots(photo, name, edits, date) VALUES(?, ?, ?, ?)",
                  {id, name, encodedBlob(settings), nowSeconds()});
}

void PhotoLibrary::deleteSnapshot(std::int64_t snapshotId) {
  db_->run("DELETE FROM snapshots WHERE id = ?", {snapshotId});
}

std::optional<SettingsCommit> PhotoLibrary::applySnapshot(std::int64_t snapshotId) {
  std::optional<SettingsCommit> result;
  db_->transaction([&] {
    const std::optional<Snapshot> s = snapshot(snapshotId);
    if (!s) return;
    const bool changed =
        commitWithin(s->photo, settings(s->photo), s->settings, "Snapshot: " + s->name, nowSeconds());
    result = editState(s->photo, changed);
  });
  return result;
}

std::vector<UserPreset> PhotoLibrary::userPresets() {
  std::vector<UserPreset> result;
  for (const SQLRow& row :
       db_->query("SELECT id, name, edits, groups FROM presets ORDER BY name COLLATE NOCASE")) {
    if (row.size() < 4) continue;
    auto id = row[0].intValue();
    auto name = row[1].stringValue();
    auto stored = readSettings(row[2]);
    if (!id || !name || !stored) continue;
    result.push_back({*id, std::move(*name), std::move(*stored), groupsFromText(row[3].stringValue())});
  }
  return result;
}

std::int64_t PhotoLibrary::savePreset(const std::string& name, const EditSettings& settings,
                                      const std::set<SettingsGroup>& groups) {
  return db_->run("INSERT OR REPLACE INTO presets(name, edits, groups, created) VALUES(?, ?, ?, ?)",
                  {name, encodedBlob(settings), groupsText(groups), nowSeconds()});
}

void PhotoLibrary::deletePreset(std::int64_t id) { db_->run("DELETE FROM presets WHERE id = ?", {id}); }

void PhotoLibrary::applyPreset(const std::vector<std::int64_t>& ids, const BuiltInPreset& look) {
  applyPresetSettings(ids, look.name, look.settings, look.groups());
}

void PhotoLibrary::applyPreset(const std::vector<std::int64_t>& ids, const UserPreset& preset) {
  applyPresetSettings(ids, preset.name, preset.settings, preset.groups);
}

void PhotoLibrary::applyPresetSettings(const std::vector<std::int64_t>& ids, const std::string& name,
                                       const EditSettings& preset, const std::set<SettingsGroup>& groups) {
  if (ids.empty()) return;
  const std::string step = "Preset: " + name;
  db_->transaction([&] {
    const double now = nowSeconds();
    for (std::int64_t id : ids) {
      const EditSettings current = settings(id);
      commitWithin(id, current, lumivale::applyPreset(current, preset, groups), step, now);
    }
  });
}

void PhotoLibrary::copySettings(std::int64_t from, const std::vector<std::int64_t>& to,
                                const std::set<SettingsGroup>& groups, const std::string& step) {
  db_->transaction([&] {
    if (db_->query("SELECT 1 FROM photos WHERE id = ?", {from}).empty()) throwNoPhoto(from);
    const EditSettings source = settings(from);
    const double now = nowSeconds();
    for (std::int64_t id : to) {
      if (id == from) continue;
      const EditSettings current = settings(id);
      commitWithin(id, current, current.merging(source, groups), step, now);
    }
  });
}

}  // namespace lumivale
