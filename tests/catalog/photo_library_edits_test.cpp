#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>

#include "tests/support/errors.h"
#include "tests/support/library.h"

using namespace lumivale;

namespace {

using test::Ids;
using Names = std::vector<std::string>;

// Every stored edit of the catalog: equal dumps mean no edit changed.
std::string dumpEdits(PhotoLibrary& library) {
  return test::dumpRows(library,
                        {"SELECT id, edits, edited, editDate, histPos FROM photos ORDER BY id",
                         "SELECT photo, seq, name, edits, date FROM history ORDER BY photo, seq",
                         "SELECT * FROM snapshots ORDER BY id", "SELECT * FROM presets ORDER BY id"});
}

// The first look, "Natural Boost".
const BuiltInPreset& boost() { return BuiltInPresets::all().front(); }

EditSettings ex(double exposure) { return EditSettings{.exposure = exposure}; }

class EditsTest : public test::LibraryTest {
 protected:
  std::int64_t addPhoto(bool raw = false) {
    return test::insertPhoto(library, "/p/" + std::to_string(++made) + (raw ? ".nef" : ".jpg"),
                             {{"raw", raw}});
  }
  /// edited, editDate, histPos, edits
  SQLRow photoRow(std::int64_t id) {
    return library.db().query("SELECT edited, editDate, histPos, edits FROM photos WHERE id = ?", {id}).at(0);
  }
  bool edited(std::int64_t id) { return photoRow(id).at(0).intValue() == 1; }
  std::int64_t histPos(std::int64_t id) { return photoRow(id).at(2).intValue().value_or(-1); }
  Names stepNames(std::int64_t id) {
    Names names;
    for (const HistoryStep& s : library.history(id).steps)
      names.push_back(std::to_string(s.seq) + " " + s.name);
    return names;
  }
  // The history position, the steps and the edited flag, as in "2 of 1
  // Import, 2 s1; edited".
  std::string state(std::int64_t id) {
    std::string steps;
    for (const std::string& step : stepNames(id)) steps += (steps.empty() ? "" : ", ") + step;
    return std::to_string(histPos(id)) + " of " + steps + (edited(id) ? "; edited" : "; not edited");
  }
  int made = 0;
};

TEST_F(EditsTest, NamedSavesAddStepsAfterTheImportBaselineAndCutTheRedoTail) {
  const std::int64_t id = addPhoto(true);
  EXPECT_FALSE(photoRow(id).at(1).doubleValue());  // no edit date before the first save
  library.saveSettings(id, ex(1));                 // unnamed: no step
  EXPECT_EQ(library.history(id), EditHistory{});
  EXPECT_EQ(library.settings(id), ex(1));
  EXPECT_EQ(state(id), "0 of ; edited");
  EXPECT_GT(photoRow(id).at(1).doubleValue().value_or(0), 1.6e9);

  // The first step starts from the initial settings of the file kind, not
  // from what was saved unnamed.
  for (int e : {1, 2, 3}) library.saveSettings(id, ex(e), "s" + std::to_string(e));
  const EditHistory h = library.history(id);
  EXPECT_EQ(state(id), "4 of 1 Import, 2 s1, 3 s2, 4 s3; edited");
  EXPECT_EQ(h.position, 4);
  EXPECT_EQ(std::pair(h.steps[0].settings, h.steps[1].settings),
            std::pair(PhotoLibrary::initialSettings(true), ex(1)));
  EXPECT_GT(h.steps[1].date, 1.6e9);

  // Undo only moves the position: the tail stays for redo until a named save.
  ASSERT_EQ(library.goToHistory(id, 2), ex(1));
  EXPECT_EQ(state(id), "2 of 1 Import, 2 s1, 3 s2, 4 s3; edited");
  EXPECT_EQ(library.settings(id), ex(1));
  library.saveSettings(id, ex(9), "s9");
  EXPECT_EQ(state(id), "3 of 1 Import, 2 s1, 3 s9; edited");

  // An unnamed save leaves history and position alone.
  const auto steps = library.db().query("SELECT * FROM history ORDER BY seq");
  const double date = *photoRow(id).at(1).doubleValue();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  library.saveSettings(id, PhotoLibrary::initialSettings(true));
  EXPECT_EQ(library.db().query("SELECT * FROM history ORDER BY seq"), steps);
  EXPECT_EQ(state(id), "3 of 1 Import, 2 s1, 3 s9; not edited");
  EXPECT_GT(*photoRow(id).at(1).doubleValue(), date);

  // Back to the baseline, then a new step: everything above step 1 goes.
  library.goToHistory(id, 1);
  library.saveSettings(id, ex(4), "s4");
  EXPECT_EQ(state(id), "2 of 1 Import, 2 s4; edited");
}

TEST_F(EditsTest, EditedFlagComparesWithTheInitialSettingsOfTheFileKind) {
  const EditSettings rawStart = PhotoLibrary::initialSettings(true);
  for (auto [raw, settings, isEdited] :
       {std::tuple(true, rawStart, false), std::tuple(true, EditSettings{}, true),
        std::tuple(false, EditSettings{}, false), std::tuple(false, rawStart, true)}) {
    SCOPED_TRACE(raw);
    const std::int64_t id = addPhoto(raw);
    library.saveSettings(id, ex(3), "before");
    library.saveSettings(id, settings, "step");
    EXPECT_EQ(std::pair(edited(id), library.photo(id)->edited), std::pair(isEdited, isEdited));
    library.goToHistory(id, 1);  // goToHistory recomputes the flag the same way
    EXPECT_FALSE(edited(id));
    library.goToHistory(id, 3);
    EXPECT_EQ(edited(id), isEdited);
  }
}

TEST_F(EditsTest, GoingToAMissingStepChangesNothing) {
  const std::int64_t id = addPhoto(), other = addPhoto(), fresh = addPhoto();
  library.saveSettings(id, ex(1), "one");
  library.saveSettings(other, ex(2), "two");
  const std::string before = dumpEdits(library);
  for (int seq : {0, -1, 3, 100}) EXPECT_FALSE(library.goToHistory(id, seq)) << seq;
  EXPECT_FALSE(library.goToHistory(fresh, 1));  // a photo without history
  EXPECT_FALSE(library.goToHistory(999, 1));
  EXPECT_EQ(dumpEdits(library), before);
  // The other photo's step 2 is not this photo's.
  library.db().run("DELETE FROM history WHERE photo = ? AND seq = 2", {id});
  EXPECT_FALSE(library.goToHistory(id, 2));
}

TEST_F(EditsTest, UnreadableOrUnencodableSettingsReadAsInitial) {
  const std::int64_t raw = addPhoto(true), plain = addPhoto(false);
  const std::string good = *ex(1.5).encoded();
  for (const auto& [what, stored, readable] :
       {std::tuple("null", SQLValue(), false), std::tuple("empty", SQLValue(Blob{}), false),
        std::tuple("garbage", SQLValue(Blob{'x', 0, 0xFF}), false),
        std::tuple("array", SQLValue(Blob{'[', '1', ']'}), false),
        std::tuple("truncated", SQLValue(Blob(good.begin(), good.end() - 1)), false),
        std::tuple("trailing text", SQLValue(Blob{'{', '}', 'x'}), false),
        std::tuple("text", SQLValue(good), true),
        std::tuple("blob", SQLValue(Blob(good.begin(), good.end())), true)}) {
    SCOPED_TRACE(what);
    for (std::int64_t id : {raw, plain}) {
      library.db().run("UPDATE photos SET edits = ? WHERE id = ?", {stored, id});
      EXPECT_EQ(library.settings(id), readable ? ex(1.5) : PhotoLibrary::initialSettings(id == raw));
      EXPECT_EQ(library.storedSettings(id).has_value(), readable);
    }
  }
  // "{}" is a readable record: every field at its default, even for RAW.
  library.db().run("UPDATE photos SET edits = ? WHERE id = ?", {Blob{'{', '}'}, raw});
  EXPECT_EQ(library.settings(raw), EditSettings{});
  EXPECT_EQ(library.storedSettings(raw), "{}");
  EXPECT_EQ(library.settings(12345), EditSettings{});
  EXPECT_FALSE(library.storedSettings(12345));

  // Settings with no stored form are stored as an empty blob, the step's too.
  library.saveSettings(raw, ex(std::nan("")), "bad");
  EXPECT_EQ(photoRow(raw).at(3), SQLValue(Blob{}));
  EXPECT_EQ(library.settings(raw), PhotoLibrary::initialSettings(true));
  EXPECT_EQ(histPos(raw), 2);
  EXPECT_EQ(stepNames(raw), (Names{"1 Import"}));
}

TEST_F(EditsTest, UnreadableRowsAreLeftOutOfLists) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, ex(1), "one");
  library.saveSettings(id, ex(2), "two");
  library.db().run("UPDATE history SET edits = X'00' WHERE photo = ? AND seq = 2", {id});
  library.db().run("UPDATE history SET seq = 'x' WHERE photo = ? AND seq = 3", {id});
  EXPECT_EQ(stepNames(id), (Names{"1 Import"}));
  EXPECT_FALSE(library.goToHistory(id, 2));

  const std::int64_t kept = library.addSnapshot(id, "kept", ex(3));
  const std::int64_t broken = library.addSnapshot(id, "broken", ex(4));
  library.db().run("UPDATE snapshots SET edits = NULL WHERE id = ?", {broken});
  ASSERT_EQ(library.snapshots(id).size(), 1u);
  EXPECT_EQ(library.snapshots(id)[0].id, kept);
  EXPECT_FALSE(library.snapshot(broken));

  for (const char* name : {"good", "bad settings", "bad name"}) library.savePreset(name, ex(1), {});
  library.db().exec(
      "UPDATE presets SET edits = 'nope' WHERE name = 'bad settings';"
      "UPDATE presets SET name = NULL WHERE name = 'bad name'");
  ASSERT_EQ(library.userPresets().size(), 1u);
  EXPECT_EQ(library.userPresets()[0].name, "good");
}

TEST_F(EditsTest, WritesForAMissingPhotoFailAndLeaveNoRows) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, ex(1), "one");
  const std::string before = dumpEdits(library);
  EXPECT_EQ(test::errorMessage<SQLError>([&] { library.saveSettings(77, ex(2), "orphan"); }),
            "No photo with id 77");
  EXPECT_THROW(library.saveSettings(77, ex(2)), SQLError);
  EXPECT_THROW(library.addSnapshot(77, "snap", ex(2)), SQLError);
  EXPECT_THROW(library.applyPreset(Ids{id, 77}, boost()), SQLError);
  EXPECT_THROW(library.copySettings(id, Ids{77}), SQLError);
  EXPECT_THROW(library.copySettings(78, Ids{id}), SQLError);
  EXPECT_EQ(dumpEdits(library), before);
}

TEST_F(EditsTest, SnapshotsKeepNamedSettingsApartFromTheHistory) {
  const std::int64_t id = addPhoto(), other = addPhoto();
  library.saveSettings(id, ex(1), "one");
  const std::string before = dumpEdits(library);
  const std::int64_t a = library.addSnapshot(id, "Look", ex(2));
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  const std::int64_t b = library.addSnapshot(id, "Look", ex(3));  // names need not be unique
  library.addSnapshot(other, "Other", ex(4));
  EXPECT_EQ(library.settings(id), ex(1));  // only snapshot rows were added
  EXPECT_EQ(library.history(id).steps.size(), 2u);

  const auto list = library.snapshots(id);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0], (Snapshot{a, id, "Look", ex(2), list[0].date}));
  EXPECT_EQ(list[1], (Snapshot{b, id, "Look", ex(3), list[1].date}));
  EXPECT_LE(list[0].date, list[1].date);
  EXPECT_EQ(library.snapshot(b), list[1]);

  for (std::int64_t s : {a, b, b}) library.deleteSnapshot(s);  // the second b is already gone
  EXPECT_TRUE(library.snapshots(id).empty());
  EXPECT_EQ(library.snapshots(other).size(), 1u);
  library.db().run("DELETE FROM snapshots");
  EXPECT_EQ(dumpEdits(library), before);
}

TEST_F(EditsTest, PresetsStoreTheirGroupsAsSortedKeys) {
  using enum SettingsGroup;
  const EditSettings s{.temperature = 20, .exposure = 0.7};
  const std::int64_t id = library.savePreset("Warm", s, {light, detail, colorMixer});
  EXPECT_EQ(library.db().query("SELECT groups FROM presets WHERE id = ?", {id}).at(0).at(0),
            SQLValue("colorMixer,detail,light"));
  library.savePreset("empty", s, {});
  library.savePreset("apple", s, allButLocal());
  library.db().exec("INSERT INTO presets(name, edits, groups) VALUES('Null groups', X'7B7D', NULL)");
  std::vector<std::pair<std::string, std::set<SettingsGroup>>> groups;
  for (const UserPreset& p : library.userPresets()) groups.emplace_back(p.name, p.groups);
  EXPECT_EQ(groups, (decltype(groups){{"apple", allButLocal()},
                                      {"empty", {}},
                                      {"Null groups", {}},
                                      {"Warm", {light, detail, colorMixer}}}));
  EXPECT_EQ(library.userPresets()[3], (UserPreset{id, "Warm", s, {light, detail, colorMixer}}));

  // The same name replaces the preset under a new id; names compare exactly.
  const std::int64_t again = library.savePreset("Warm", ex(1), {whiteBalance});
  const std::int64_t cased = library.savePreset("warm", ex(2), {});
  const auto presets = library.userPresets();
  ASSERT_EQ(presets.size(), 5u);
  for (const UserPreset& p : presets) {
    EXPECT_NE(p.id, id);
    if (p.name == "Warm") {
      EXPECT_EQ(p, (UserPreset{again, "Warm", ex(1), {whiteBalance}}));
    }
  }
  library.deletePreset(again);
  library.deletePreset(cased);
  EXPECT_EQ(library.userPresets().size(), 3u);
}

TEST_F(EditsTest, ApplyingAPresetStoresTheRuleResultAsOneStepPerPhoto) {
  const Ids ids{addPhoto(), addPhoto(true), addPhoto()};
  EditSettings edited = ex(-1);
  edited.vibrance = 25, edited.grainAmount = 40, edited.straighten = 3, edited.crop = {0.1, 0.2, 0.5, 0.6};
  edited.masks = {PhotoMask(MaskKind::radial)};
  for (std::int64_t id : ids) library.saveSettings(id, edited, "edit");

  // A RAW photo too resets to the default record, not to its starting values.
  library.savePreset("WB", {.temperature = 30, .tint = -5, .exposure = 2}, {SettingsGroup::whiteBalance});
  library.applyPreset(Ids{ids[1], ids[2]}, library.userPresets().at(0));
  EditSettings expected = edited;
  expected.exposure = expected.vibrance = expected.grainAmount = 0;
  expected.temperature = 30, expected.tint = -5;
  for (std::int64_t id : {ids[1], ids[2]}) {
    EXPECT_EQ(library.settings(id), expected);
    EXPECT_EQ(stepNames(id), (Names{"1 Import", "2 edit", "3 Preset: WB"}));
  }
  EXPECT_EQ(library.settings(ids[0]), edited);  // not selected

  library.applyPreset(Ids{ids[0]}, boost());
  EXPECT_EQ(library.settings(ids[0]), applyPreset(edited, boost().settings, boost().groups()));
  EXPECT_EQ(library.settings(ids[0]).masks, edited.masks);  // kept as they were, ids too
  EXPECT_EQ(stepNames(ids[0]), (Names{"1 Import", "2 edit", "3 Preset: Natural Boost"}));
}

TEST_F(EditsTest, CopySettingsTakesTheChosenGroupsOntoEachTarget) {
  const std::int64_t source = addPhoto();
  EditSettings s = ex(1.25);
  s.temperature = -12, s.crop = {0.3, 0.3, 0.4, 0.4};
  s.masks = {PhotoMask(MaskKind::linear), PhotoMask(MaskKind::brush)};
  library.saveSettings(source, s, "source");
  const Ids targets{addPhoto(), addPhoto(), addPhoto()};
  EditSettings own;
  own.vignetteAmount = -30, own.crop = {0, 0, 0.9, 0.9}, own.masks = {PhotoMask(MaskKind::sky)};
  library.saveSettings(targets[0], own, "own");
  const auto sourceBefore = std::pair(photoRow(source), library.history(source));

  library.copySettings(source, Ids{targets[0], source, targets[1]});
  // The copied groups (effects too) come from the source; crop and masks stay.
  EXPECT_EQ(library.settings(targets[0]), own.merging(s, allButLocal()));
  EXPECT_EQ(library.settings(targets[1]), EditSettings{}.merging(s, allButLocal()));
  EXPECT_EQ(stepNames(targets[0]), (Names{"1 Import", "2 own", "3 Paste Settings"}));
  EXPECT_EQ(stepNames(targets[1]), (Names{"1 Import", "2 Paste Settings"}));
  EXPECT_EQ(library.history(targets[0]).position, 3);
  EXPECT_EQ(library.settings(targets[2]), EditSettings{});

  library.copySettings(source, Ids{targets[2]}, {SettingsGroup::masks, SettingsGroup::geometry}, "Sync");
  const EditSettings synced = library.settings(targets[2]);
  EXPECT_EQ(synced.crop, s.crop);
  EXPECT_EQ(synced.exposure, 0);
  ASSERT_EQ(synced.masks.size(), 2u);
  for (std::size_t i : {0, 1}) {
    EXPECT_EQ(synced.masks[i].kind, s.masks[i].kind);
    EXPECT_NE(synced.masks[i].id, s.masks[i].id);  // pasted masks get their own ids
  }
  EXPECT_EQ(stepNames(targets[2]), (Names{"1 Import", "2 Sync"}));
  EXPECT_EQ(std::pair(photoRow(source), library.history(source)), sourceBefore);  // the source is only read
}

TEST_F(EditsTest, ConcurrentNamedSavesNumberTheirStepsWithoutGaps) {
  const std::int64_t id = addPhoto();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 15; ++i) library.saveSettings(id, ex(t + i / 100.0), "t" + std::to_string(t));
    });
  for (auto& t : threads) t.join();
  const EditHistory h = library.history(id);
  ASSERT_EQ(h.steps.size(), 61u);
  for (std::size_t i = 0; i < h.steps.size(); ++i) EXPECT_EQ(h.steps[i].seq, static_cast<int>(i + 1));
  EXPECT_EQ(h.position, 61);
  EXPECT_EQ(library.settings(id), h.steps.back().settings);
}

}  // namespace
