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
  // The history position, the steps and the edited flag, as in "2 of 1
  // Import, 2 s1; edited".
  std::string state(std::int64_t id) {
    std::string steps;
    for (const HistoryStep& s : library.history(id).steps)
      steps += (steps.empty() ? "" : ", ") + std::to_string(s.seq) + " " + s.name;
    return std::to_string(photoRow(id).at(2).intValue().value_or(-1)) + " of " + steps +
           (edited(id) ? "; edited" : "; not edited");
  }
  int made = 0;
};

TEST_F(EditsTest, NamedSavesAddStepsAfterTheImportBaselineAndCutTheRedoTail) {
  const std::int64_t id = addPhoto(true);
  EXPECT_FALSE(photoRow(id).at(1).doubleValue());  // no edit date before the first save
  library.saveSettings(id, ex(1));                 // unnamed: no step
  EXPECT_EQ(std::pair(library.history(id), library.settings(id)), std::pair(EditHistory{}, ex(1)));
  EXPECT_GT(photoRow(id).at(1).doubleValue().value_or(0), 1.6e9);

  // The first step starts from the initial settings of the file kind, not
  // from what was saved unnamed.
  for (int e : {1, 2, 3}) library.saveSettings(id, ex(e), "s" + std::to_string(e));
  const EditHistory h = library.history(id);
  EXPECT_EQ(state(id), "4 of 1 Import, 2 s1, 3 s2, 4 s3; edited");
  EXPECT_EQ(std::pair(h.steps[0].settings, h.steps[1].settings),
            std::pair(PhotoLibrary::initialSettings(true), ex(1)));

  // Going back only moves the position: the tail stays until a named save.
  ASSERT_EQ(library.goToHistory(id, 2), ex(1));
  EXPECT_EQ(state(id), "2 of 1 Import, 2 s1, 3 s2, 4 s3; edited");
  library.saveSettings(id, ex(9), "s9");
  EXPECT_EQ(state(id), "3 of 1 Import, 2 s1, 3 s9; edited");

  // An unnamed save leaves history and position alone but dates the edit.
  const auto steps = library.db().query("SELECT * FROM history ORDER BY seq");
  const double date = *photoRow(id).at(1).doubleValue();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  library.saveSettings(id, PhotoLibrary::initialSettings(true));
  EXPECT_EQ(library.db().query("SELECT * FROM history ORDER BY seq"), steps);
  EXPECT_EQ(state(id), "3 of 1 Import, 2 s1, 3 s9; not edited");
  EXPECT_GT(*photoRow(id).at(1).doubleValue(), date);
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
    library.goToHistory(id, 1);  // moving recomputes the flag the same way
    EXPECT_FALSE(edited(id));
    library.goToHistory(id, 3);
    EXPECT_EQ(edited(id), isEdited);
  }
}

TEST_F(EditsTest, CommitRecordsAStepOnlyWhenTheSettingsChange) {
  const std::int64_t id = addPhoto(true);
  // A photo without history gets its step even for unchanged settings.
  SettingsCommit c = library.commitSettings(id, PhotoLibrary::initialSettings(true), "Reset All");
  EXPECT_EQ(std::tuple(c.photo, c.changed, c.position, c.edited), std::tuple(id, true, 2, false));
  EXPECT_EQ(c.step->name, "Reset All");
  EXPECT_EQ(c.settings, PhotoLibrary::initialSettings(true));

  c = library.commitSettings(id, PhotoLibrary::initialSettings(true), "Reset All");
  EXPECT_EQ(std::tuple(c.changed, c.position, c.step->name), std::tuple(false, 2, "Reset All"));
  c = library.commitSettings(id, ex(1), "Exposure");
  EXPECT_EQ(std::tuple(c.changed, c.position, c.edited, c.step->name, c.step->settings),
            std::tuple(true, 3, true, "Exposure", ex(1)));
  EXPECT_FALSE(library.commitSettings(id, ex(1), "Exposure").changed);
  EXPECT_FALSE(library.commitSettings(id, ex(1), std::nullopt).changed);
  c = library.commitSettings(id, ex(2), std::nullopt);  // saved without a step
  EXPECT_EQ(std::tuple(c.changed, c.position, c.settings), std::tuple(true, 3, ex(2)));
  EXPECT_EQ(state(id), "3 of 1 Import, 2 Reset All, 3 Exposure; edited");

  // Read-modify-commit: the change sees the stored settings.
  c = library.updateSettings(id, "More", [](EditSettings& s) { s.exposure += 0.5; });
  EXPECT_EQ(std::tuple(c.changed, c.position, c.settings), std::tuple(true, 4, ex(2.5)));
  EXPECT_FALSE(library.updateSettings(id, "Nothing", [](EditSettings&) {}).changed);

  // A photo without stored settings and no step to record: nothing to do.
  const std::int64_t fresh = addPhoto();
  EXPECT_FALSE(library.commitSettings(fresh, EditSettings{}, std::nullopt).changed);
  EXPECT_EQ(state(fresh), "0 of ; not edited");
}

TEST_F(EditsTest, UpdateHoldsTheCatalogFromItsReadToItsWrite) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, ex(1), "one");
  const std::string before = test::dumpCatalog(library);
  // Another connection, as another process would have, cannot write while
  // the update decides; it gives up at once instead of waiting.
  PhotoLibrary other(folder);
  other.db().exec("PRAGMA busy_timeout = 0");
  EXPECT_THROW(library.updateSettings(id, "two",
                                      [&](EditSettings& s) {
                                        EXPECT_THROW(other.saveSettings(id, ex(7), "other"), SQLError);
                                        s.exposure = 2;
                                        throw std::runtime_error("changed my mind");
                                      }),
               std::runtime_error);
  EXPECT_EQ(test::dumpCatalog(library), before);  // a throwing change writes nothing
  EXPECT_EQ(library.updateSettings(id, "two", [](EditSettings& s) { s.exposure = 2; }).position, 3);
}

TEST_F(EditsTest, UndoStopsAtTheImportStepAndRedoAtTheLastStep) {
  const std::int64_t id = addPhoto(), fresh = addPhoto();
  for (int e : {1, 2}) library.saveSettings(id, ex(e), "s" + std::to_string(e));
  EXPECT_EQ(library.undo(id)->seq, 2);
  const std::optional<HistoryStep> first = library.undo(id);
  EXPECT_EQ(std::tuple(first->seq, first->name, first->settings), std::tuple(1, "Import", EditSettings{}));
  EXPECT_EQ(library.settings(id), EditSettings{});
  EXPECT_FALSE(library.undo(id));  // step 1 is the floor
  EXPECT_EQ(library.redo(id)->settings, ex(1));
  EXPECT_EQ(library.redo(id)->name, "s2");
  EXPECT_FALSE(library.redo(id));
  EXPECT_EQ(state(id), "3 of 1 Import, 2 s1, 3 s2; edited");

  // Nothing moves without history, for an unknown photo or onto a step that
  // cannot be read.
  const std::string before = test::dumpCatalog(library);
  EXPECT_FALSE(library.undo(fresh) || library.redo(fresh) || library.undo(999) ||
               library.goToHistory(fresh, 1));
  for (int seq : {0, -1, 4, 100}) EXPECT_FALSE(library.goToHistory(id, seq)) << seq;
  EXPECT_EQ(test::dumpCatalog(library), before);
  library.db().run("UPDATE history SET edits = X'00' WHERE photo = ? AND seq = 2", {id});
  EXPECT_FALSE(library.undo(id));
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
  EXPECT_EQ(std::pair(library.settings(raw), library.storedSettings(raw)),
            std::pair(EditSettings{}, std::optional<std::string>("{}")));
  EXPECT_EQ(std::pair(library.settings(12345), library.storedSettings(12345)),
            std::pair(EditSettings{}, std::optional<std::string>()));

  // Settings with no stored form are stored as an empty blob, the step's too.
  library.saveSettings(raw, ex(std::nan("")), "bad");
  EXPECT_EQ(photoRow(raw).at(3), SQLValue(Blob{}));
  EXPECT_EQ(library.settings(raw), PhotoLibrary::initialSettings(true));
  EXPECT_EQ(state(raw), "2 of 1 Import; edited");
}

TEST_F(EditsTest, UnreadableRowsAreLeftOutOfLists) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, ex(1), "one");
  library.saveSettings(id, ex(2), "two");
  library.db().run("UPDATE history SET seq = 'x' WHERE photo = ? AND seq = 3", {id});
  EXPECT_EQ(library.history(id).steps.size(), 2u);

  const std::int64_t kept = library.addSnapshot(id, "kept", ex(3));
  const std::int64_t broken = library.addSnapshot(id, "broken", ex(4));
  library.db().run("UPDATE snapshots SET edits = NULL WHERE id = ?", {broken});
  ASSERT_EQ(library.snapshots(id).size(), 1u);
  EXPECT_EQ(library.snapshots(id)[0].id, kept);
  EXPECT_FALSE(library.snapshot(broken) || library.applySnapshot(broken));

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
  const std::int64_t orphan = library.addSnapshot(id, "snap", ex(2));
  library.db().run("UPDATE snapshots SET photo = 77 WHERE id = ?", {orphan});
  const std::string before = test::dumpCatalog(library);
  EXPECT_EQ(test::errorMessage<SQLError>([&] { library.saveSettings(77, ex(2), "orphan"); }),
            "No photo with id 77");
  const std::function<void()> writes[] = {[&] { library.saveSettings(77, ex(2)); },
                                          [&] { library.commitSettings(77, ex(2), "x"); },
                                          [&] { library.commitSettings(77, EditSettings{}, std::nullopt); },
                                          [&] { library.updateSettings(77, "x", [](EditSettings&) {}); },
                                          [&] { library.applySnapshot(orphan); },
                                          [&] { library.addSnapshot(77, "snap", ex(2)); },
                                          [&] {
                                            library.applyPreset(Ids{id, 77}, BuiltInPresets::all().front());
                                          },
                                          [&] { library.copySettings(id, Ids{77}); },
                                          [&] { library.copySettings(78, Ids{id}); }};
  for (const auto& write : writes) EXPECT_THROW(write(), SQLError);
  EXPECT_EQ(test::dumpCatalog(library), before);
}

TEST_F(EditsTest, SnapshotsKeepNamedSettingsApartAndApplyAsAStep) {
  const std::int64_t id = addPhoto(), other = addPhoto();
  library.saveSettings(id, ex(1), "one");
  const std::int64_t a = library.addSnapshot(id, "Look", ex(2));
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  const std::int64_t b = library.addSnapshot(id, "Look", ex(3));  // names need not be unique
  library.addSnapshot(other, "Other", ex(4));
  EXPECT_EQ(state(id), "2 of 1 Import, 2 one; edited");  // only snapshot rows were added
  const auto list = library.snapshots(id);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0], (Snapshot{a, id, "Look", ex(2), list[0].date}));
  EXPECT_EQ(list[1], (Snapshot{b, id, "Look", ex(3), list[1].date}));
  EXPECT_LE(list[0].date, list[1].date);
  EXPECT_EQ(library.snapshot(b), list[1]);

  const std::optional<SettingsCommit> applied = library.applySnapshot(a);
  EXPECT_EQ(std::tuple(applied->photo, applied->changed, applied->position, applied->settings),
            std::tuple(id, true, 3, ex(2)));
  EXPECT_EQ(applied->step->name, "Snapshot: Look");
  EXPECT_FALSE(library.applySnapshot(a)->changed);  // already current: no empty step

  for (std::int64_t s : {a, b, b}) library.deleteSnapshot(s);  // the second b is already gone
  EXPECT_TRUE(library.snapshots(id).empty());
  EXPECT_EQ(library.snapshots(other).size(), 1u);
  EXPECT_FALSE(library.applySnapshot(a));
}

TEST_F(EditsTest, PresetsStoreTheirGroupsAndSameNamesReplace) {
  using enum SettingsGroup;
  const std::int64_t warm = library.savePreset("Warm", ex(0.7), {light, detail, colorMixer});
  EXPECT_EQ(library.db().query("SELECT groups FROM presets WHERE id = ?", {warm}).at(0).at(0),
            SQLValue("colorMixer,detail,light"));
  library.db().exec(
      "INSERT INTO presets(name, edits, groups) VALUES('Null groups', X'7B7D', NULL), ('empty', "
      "X'7B7D', '')");
  // Names compare exactly: "Warm" replaces the preset under a new id, "warm" is another one.
  const std::int64_t again = library.savePreset("Warm", ex(1), {whiteBalance});
  library.savePreset("warm", ex(2), {});
  const std::vector<UserPreset> presets = library.userPresets();
  ASSERT_EQ(presets.size(), 4u);
  EXPECT_EQ(std::tuple(presets[0].name, presets[0].groups, presets[1].name, presets[1].groups),
            std::tuple("empty", std::set<SettingsGroup>{}, "Null groups", std::set<SettingsGroup>{}));
  const UserPreset replaced{again, "Warm", ex(1), {whiteBalance}};
  EXPECT_TRUE(presets[2] == replaced || presets[3] == replaced);
  EXPECT_NE(again, warm);
  library.deletePreset(again);
  EXPECT_EQ(library.userPresets().size(), 3u);
}

TEST_F(EditsTest, ApplyingAPresetStoresTheRuleResultAsOneStepPerChangedPhoto) {
  const Ids ids{addPhoto(), addPhoto(true), addPhoto()};
  EditSettings edited = ex(-1);
  edited.vibrance = 25, edited.grainAmount = 40, edited.straighten = 3, edited.crop = {0.1, 0.2, 0.5, 0.6};
  edited.masks = {PhotoMask(MaskKind::radial)};
  for (std::int64_t id : ids) library.saveSettings(id, edited, "edit");

  // A RAW photo too resets to the default record, not to its starting values.
  library.savePreset("WB", {.temperature = 30, .tint = -5, .exposure = 2}, {SettingsGroup::whiteBalance});
  const UserPreset wb = library.userPresets().at(0);
  library.applyPreset(Ids{ids[1], ids[2]}, wb);
  library.applyPreset(Ids{ids[1], ids[2]}, wb);  // the second time changes nothing
  EditSettings expected = edited;
  expected.exposure = expected.vibrance = expected.grainAmount = 0;
  expected.temperature = 30, expected.tint = -5;
  for (std::int64_t id : {ids[1], ids[2]}) {
    EXPECT_EQ(library.settings(id), expected);
    EXPECT_EQ(state(id), "3 of 1 Import, 2 edit, 3 Preset: WB; edited");
  }
  EXPECT_EQ(library.settings(ids[0]), edited);  // not selected

  const BuiltInPreset& look = BuiltInPresets::all().front();
  library.applyPreset(Ids{ids[0]}, look);
  EXPECT_EQ(library.settings(ids[0]), applyPreset(edited, look.settings, look.groups()));
  EXPECT_EQ(library.settings(ids[0]).masks, edited.masks);  // kept as they were, ids too
  EXPECT_EQ(state(ids[0]), "3 of 1 Import, 2 edit, 3 Preset: Natural Boost; edited");
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
  EXPECT_EQ(state(targets[0]), "3 of 1 Import, 2 own, 3 Paste Settings; edited");
  EXPECT_EQ(state(targets[1]), "2 of 1 Import, 2 Paste Settings; edited");
  EXPECT_EQ(library.settings(targets[2]), EditSettings{});

  library.copySettings(source, Ids{targets[2]}, {SettingsGroup::masks, SettingsGroup::geometry}, "Sync");
  const EditSettings synced = library.settings(targets[2]);
  EXPECT_EQ(std::pair(synced.crop, synced.exposure), std::pair(s.crop, 0.0));
  ASSERT_EQ(synced.masks.size(), 2u);
  for (std::size_t i : {0, 1}) {
    EXPECT_EQ(synced.masks[i].kind, s.masks[i].kind);
    EXPECT_NE(synced.masks[i].id, s.masks[i].id);  // pasted masks get their own ids
  }
  EXPECT_EQ(state(targets[2]), "2 of 1 Import, 2 Sync; edited");
  EXPECT_EQ(std::pair(photoRow(source), library.history(source)), sourceBefore);  // the source is only read
}

TEST_F(EditsTest, ConcurrentNamedSavesNumberTheirStepsWithoutGaps) {
  const std::int64_t id = addPhoto();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 15; ++i)
        library.commitSettings(id, ex(t + i / 100.0 + 0.001), "t" + std::to_string(t));
    });
  for (auto& t : threads) t.join();
  const EditHistory h = library.history(id);
  ASSERT_EQ(h.steps.size(), 61u);
  for (std::size_t i = 0; i < h.steps.size(); ++i) EXPECT_EQ(h.steps[i].seq, static_cast<int>(i + 1));
  EXPECT_EQ(h.position, 61);
  EXPECT_EQ(library.settings(id), h.steps.back().settings);
}

}  // namespace
