#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "tests/support/errors.h"
#include "tests/support/library.h"

using namespace lumivale;

namespace {

using test::Ids;

// Every stored edit of the catalog: equal dumps mean no edit changed.
std::string dumpEdits(PhotoLibrary& library) {
  return test::dumpRows(library,
                        {"SELECT id, edits, edited, editDate, histPos FROM photos ORDER BY id",
                         "SELECT photo, seq, name, edits, date FROM history ORDER BY photo, seq",
                         "SELECT * FROM snapshots ORDER BY id", "SELECT * FROM presets ORDER BY id"});
}

const BuiltInPreset& look(const std::string& name) {
  for (const BuiltInPreset& p : BuiltInPresets::all()) {
    if (p.name == name) return p;
  }
  throw std::runtime_error("no look " + name);
}

EditSettings withExposure(double exposure) {
  EditSettings s;
  s.exposure = exposure;
  return s;
}

class EditsTest : public test::LibraryTest {
 protected:
  std::int64_t addPhoto(bool raw = false) {
    return test::insertPhoto(library, "/p/" + std::to_string(++made) + (raw ? ".nef" : ".jpg"),
                             {{"raw", raw}});
  }

  SQLRow photoRow(std::int64_t id) {
    auto rows = library.db().query("SELECT edited, editDate, histPos, edits FROM photos WHERE id = ?", {id});
    return rows.empty() ? SQLRow{} : rows.front();
  }
  bool edited(std::int64_t id) { return photoRow(id).at(0).intValue() == 1; }
  std::int64_t histPos(std::int64_t id) { return photoRow(id).at(2).intValue().value_or(-1); }

  std::vector<std::string> stepNames(std::int64_t id) {
    std::vector<std::string> names;
    for (const HistoryStep& s : library.history(id).steps)
      names.push_back(std::to_string(s.seq) + " " + s.name);
    return names;
  }

  int made = 0;
};

TEST_F(EditsTest, FirstNamedSaveWritesTheImportBaselineAndTheStep) {
  const std::int64_t id = addPhoto(true);
  EXPECT_EQ(library.history(id), EditHistory{});
  EXPECT_FALSE(photoRow(id).at(1).doubleValue());  // no edit date before the first save

  const EditSettings first = withExposure(0.5);
  library.saveSettings(id, first, "Exposure");

  EditHistory h = library.history(id);
  EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import", "2 Exposure"}));
  EXPECT_EQ(h.position, 2);
  EXPECT_EQ(h.steps[0].settings, PhotoLibrary::initialSettings(true));
  EXPECT_EQ(h.steps[1].settings, first);
  EXPECT_GT(h.steps[1].date, 1.6e9);
  EXPECT_EQ(library.settings(id), first);
  EXPECT_TRUE(edited(id));
  EXPECT_GT(photoRow(id).at(1).doubleValue().value_or(0), 1.6e9);
  EXPECT_TRUE(library.photo(id)->edited);
}

TEST_F(EditsTest, SavingAfterUndoDropsTheRedoTail) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, withExposure(1), "one");    // step 2
  library.saveSettings(id, withExposure(2), "two");    // step 3
  library.saveSettings(id, withExposure(3), "three");  // step 4
  EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import", "2 one", "3 two", "4 three"}));

  ASSERT_EQ(library.goToHistory(id, 2), withExposure(1));
  EXPECT_EQ(histPos(id), 2);
  // Undo only moves the position: the tail is still there for redo.
  EXPECT_EQ(library.history(id).steps.size(), 4u);
  EXPECT_EQ(library.settings(id), withExposure(1));

  library.saveSettings(id, withExposure(9), "nine");
  EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import", "2 one", "3 nine"}));
  EXPECT_EQ(library.history(id).steps.back().settings, withExposure(9));
  EXPECT_EQ(histPos(id), 3);

  // Back to the baseline, then a new step: everything above step 1 goes.
  library.goToHistory(id, 1);
  EXPECT_FALSE(edited(id));
  library.saveSettings(id, withExposure(4), "four");
  EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import", "2 four"}));
  EXPECT_EQ(histPos(id), 2);
}

TEST_F(EditsTest, SavingWithoutAStepLeavesHistoryAndPositionAlone) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, withExposure(1));
  EXPECT_TRUE(library.history(id).steps.empty());
  EXPECT_EQ(histPos(id), 0);
  EXPECT_EQ(library.settings(id), withExposure(1));
  EXPECT_TRUE(edited(id));

  // The first named step after unnamed saves still starts from the
  // photo's initial settings, not from what was saved unnamed.
  library.saveSettings(id, withExposure(2), "two");
  EXPECT_EQ(library.history(id).steps.front().settings, EditSettings{});
  const auto historyBefore = library.db().query("SELECT * FROM history ORDER BY seq");
  const double dateBefore = *photoRow(id).at(1).doubleValue();

  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  library.saveSettings(id, EditSettings{});
  EXPECT_EQ(library.db().query("SELECT * FROM history ORDER BY seq"), historyBefore);
  EXPECT_EQ(histPos(id), 2);
  EXPECT_FALSE(edited(id));
  EXPECT_GT(*photoRow(id).at(1).doubleValue(), dateBefore);
}

TEST_F(EditsTest, EditedFlagComparesWithTheInitialSettingsOfTheFileKind) {
  struct Case {
    bool raw;
    EditSettings settings;
    bool edited;
  };
  EditSettings rawZeroed;  // the non-RAW baseline: no sharpening, no colour noise reduction
  EditSettings rawBaselineTweaked = PhotoLibrary::initialSettings(true);
  rawBaselineTweaked.noiseColor = 26;
  for (const Case& c :
       {Case{true, PhotoLibrary::initialSettings(true), false}, Case{true, rawZeroed, true},
        Case{true, rawBaselineTweaked, true}, Case{false, EditSettings{}, false},
        Case{false, PhotoLibrary::initialSettings(true), true}, Case{false, withExposure(-0.1), true}}) {
    const std::int64_t id = addPhoto(c.raw);
    library.saveSettings(id, withExposure(3), "before");
    library.saveSettings(id, c.settings, "step");
    EXPECT_EQ(edited(id), c.edited) << "raw " << c.raw << " sharpen " << c.settings.sharpenAmount;
    EXPECT_EQ(library.photo(id)->edited, c.edited);
    // goToHistory recomputes the flag the same way.
    library.goToHistory(id, 1);
    EXPECT_FALSE(edited(id));
    library.goToHistory(id, 3);
    EXPECT_EQ(edited(id), c.edited);
  }
}

TEST_F(EditsTest, GoingToAMissingStepChangesNothing) {
  const std::int64_t id = addPhoto();
  const std::int64_t other = addPhoto();
  library.saveSettings(id, withExposure(1), "one");
  library.saveSettings(other, withExposure(2), "two");
  const std::int64_t fresh = addPhoto();
  const std::string before = dumpEdits(library);
  for (int seq : {0, -1, 3, 100}) EXPECT_FALSE(library.goToHistory(id, seq)) << seq;
  EXPECT_FALSE(library.goToHistory(fresh, 1));  // a photo without history
  EXPECT_FALSE(library.goToHistory(999, 1));
  EXPECT_EQ(dumpEdits(library), before);
  // The other photo's step 2 is not this photo's.
  library.db().run("DELETE FROM history WHERE photo = ? AND seq = 2", {id});
  EXPECT_FALSE(library.goToHistory(id, 2));
}

TEST_F(EditsTest, UnreadableStoredSettingsReadAsInitial) {
  const std::int64_t raw = addPhoto(true);
  const std::int64_t plain = addPhoto(false);
  const std::string good = *withExposure(1.5).encoded();
  struct Case {
    const char* what;
    SQLValue stored;
    bool readable;
  };
  const Case cases[] = {
      {"null", SQLValue(), false},
      {"empty blob", SQLValue(Blob{}), false},
      {"garbage", SQLValue(Blob{'x', 0, 0xFF}), false},
      {"array", SQLValue(Blob{'[', '1', ']'}), false},
      {"truncated", SQLValue(Blob(good.begin(), good.end() - 1)), false},
      {"trailing text", SQLValue(Blob{'{', '}', 'x'}), false},
      {"text column", SQLValue(good), true},
      {"blob", SQLValue(Blob(good.begin(), good.end())), true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    for (std::int64_t id : {raw, plain}) {
      library.db().run("UPDATE photos SET edits = ? WHERE id = ?", {c.stored, id});
      const EditSettings expected = c.readable ? withExposure(1.5) : PhotoLibrary::initialSettings(id == raw);
      EXPECT_EQ(library.settings(id), expected);
      EXPECT_EQ(library.storedSettings(id).has_value(), c.readable);
    }
  }
  // "{}" is a readable record: every field at its default, even for RAW.
  library.db().run("UPDATE photos SET edits = ? WHERE id = ?", {Blob{'{', '}'}, raw});
  EXPECT_EQ(library.settings(raw), EditSettings{});
  EXPECT_EQ(library.storedSettings(raw), "{}");
  EXPECT_EQ(library.settings(12345), EditSettings{});
  EXPECT_FALSE(library.storedSettings(12345));
}

TEST_F(EditsTest, UnreadableRowsAreLeftOutOfLists) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, withExposure(1), "one");
  library.saveSettings(id, withExposure(2), "two");
  library.db().run("UPDATE history SET edits = X'00' WHERE photo = ? AND seq = 2", {id});
  library.db().run("UPDATE history SET seq = 'x' WHERE photo = ? AND seq = 3", {id});
  EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import"}));
  EXPECT_FALSE(library.goToHistory(id, 2));

  const std::int64_t kept = library.addSnapshot(id, "kept", withExposure(3));
  const std::int64_t broken = library.addSnapshot(id, "broken", withExposure(4));
  library.db().run("UPDATE snapshots SET edits = NULL WHERE id = ?", {broken});
  ASSERT_EQ(library.snapshots(id).size(), 1u);
  EXPECT_EQ(library.snapshots(id)[0].id, kept);
  EXPECT_FALSE(library.snapshot(broken));

  library.savePreset("good", withExposure(1), {});
  library.savePreset("bad settings", withExposure(1), {});
  library.savePreset("bad name", withExposure(1), {});
  library.db().run("UPDATE presets SET edits = 'nope' WHERE name = 'bad settings'");
  library.db().run("UPDATE presets SET name = NULL WHERE name = 'bad name'");
  ASSERT_EQ(library.userPresets().size(), 1u);
  EXPECT_EQ(library.userPresets()[0].name, "good");
}

TEST_F(EditsTest, SettingsThatCannotBeEncodedAreStoredAsAnEmptyBlob) {
  const std::int64_t id = addPhoto(true);
  EditSettings bad;
  bad.exposure = std::nan("");
  library.saveSettings(id, bad, "bad");
  EXPECT_EQ(photoRow(id).at(3), SQLValue(Blob{}));
  EXPECT_EQ(library.settings(id), PhotoLibrary::initialSettings(true));
  EXPECT_EQ(histPos(id), 2);
  // The step's blob is empty too, so the step cannot be read back.
  EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import"}));
}

TEST_F(EditsTest, WritesForAMissingPhotoFailAndLeaveNoRows) {
  const std::int64_t id = addPhoto();
  library.saveSettings(id, withExposure(1), "one");
  const std::string before = dumpEdits(library);
  EXPECT_EQ(test::errorMessage<SQLError>([&] { library.saveSettings(77, withExposure(2), "orphan"); }),
            "No photo with id 77");
  EXPECT_THROW(library.saveSettings(77, withExposure(2)), SQLError);
  EXPECT_THROW(library.addSnapshot(77, "snap", withExposure(2)), SQLError);
  EXPECT_THROW(library.applyPreset(Ids{id, 77}, look("Natural Boost")), SQLError);
  EXPECT_THROW(library.copySettings(id, Ids{77}), SQLError);
  EXPECT_THROW(library.copySettings(78, Ids{id}), SQLError);
  EXPECT_EQ(dumpEdits(library), before);
}

TEST_F(EditsTest, SnapshotsKeepNamedSettingsApartFromTheHistory) {
  const std::int64_t id = addPhoto();
  const std::int64_t other = addPhoto();
  library.saveSettings(id, withExposure(1), "one");
  const std::string before = dumpEdits(library);

  const std::int64_t a = library.addSnapshot(id, "Look", withExposure(2));
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  const std::int64_t b = library.addSnapshot(id, "Look", withExposure(3));  // names need not be unique
  library.addSnapshot(other, "Other", withExposure(4));
  EXPECT_NE(a, b);
  // Only snapshot rows were added.
  EXPECT_EQ(library.settings(id), withExposure(1));
  EXPECT_EQ(library.history(id).steps.size(), 2u);

  auto list = library.snapshots(id);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].id, a);
  EXPECT_EQ(list[0].settings, withExposure(2));
  EXPECT_EQ(list[1].id, b);
  EXPECT_EQ(list[1].name, "Look");
  EXPECT_EQ(list[1].photo, id);
  EXPECT_LE(list[0].date, list[1].date);
  EXPECT_EQ(library.snapshot(b), list[1]);

  library.deleteSnapshot(a);
  library.deleteSnapshot(b);
  library.deleteSnapshot(b);  // already gone: nothing to do
  EXPECT_TRUE(library.snapshots(id).empty());
  EXPECT_EQ(library.snapshots(other).size(), 1u);
  library.db().run("DELETE FROM snapshots");
  EXPECT_EQ(dumpEdits(library), before);
}

TEST_F(EditsTest, PresetsStoreTheirGroupsAsSortedKeys) {
  EditSettings s = withExposure(0.7);
  s.temperature = 20;
  const std::int64_t id =
      library.savePreset("Warm", s, {SettingsGroup::light, SettingsGroup::detail, SettingsGroup::colorMixer});
  auto rows = library.db().query("SELECT groups FROM presets WHERE id = ?", {id});
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], SQLValue("colorMixer,detail,light"));

  library.savePreset("empty", s, {});
  library.savePreset("apple", s, allButLocal());
  library.db().run(
      "INSERT INTO presets(name, edits, groups) VALUES('Broken groups', ?, 'light,,bogus,light')",
      {Blob{'{', '}'}});
  library.db().run("INSERT INTO presets(name, edits, groups) VALUES('Null groups', ?, NULL)",
                   {Blob{'{', '}'}});

  auto presets = library.userPresets();
  std::vector<std::string> names;
  for (const UserPreset& p : presets) names.push_back(p.name);
  EXPECT_EQ(names, (std::vector<std::string>{"apple", "Broken groups", "empty", "Null groups", "Warm"}));
  EXPECT_EQ(presets[0].groups, allButLocal());
  EXPECT_EQ(presets[1].groups, (std::set<SettingsGroup>{SettingsGroup::light}));
  EXPECT_TRUE(presets[2].groups.empty());
  EXPECT_TRUE(presets[3].groups.empty());
  EXPECT_EQ(presets[4].id, id);
  EXPECT_EQ(presets[4].settings, s);

  // The same name replaces the preset under a new id; names compare exactly.
  const std::int64_t again = library.savePreset("Warm", withExposure(1), {SettingsGroup::whiteBalance});
  const std::int64_t cased = library.savePreset("warm", withExposure(2), {});
  EXPECT_NE(again, id);
  presets = library.userPresets();
  ASSERT_EQ(presets.size(), 6u);
  std::vector<UserPreset> warm;
  std::copy_if(presets.begin(), presets.end(), std::back_inserter(warm),
               [](auto& p) { return p.name == "Warm"; });
  EXPECT_EQ(warm, (std::vector<UserPreset>{{again, "Warm", withExposure(1), {SettingsGroup::whiteBalance}}}));
  for (const UserPreset& p : presets) EXPECT_NE(p.id, id);
  library.deletePreset(again);
  library.deletePreset(cased);
  EXPECT_EQ(library.userPresets().size(), 4u);
}

TEST_F(EditsTest, ApplyingALookResetsTheLookAndKeepsCropAndMasks) {
  const std::int64_t id = addPhoto();
  EditSettings mine = withExposure(1.0);
  mine.crop = {0.1, 0.2, 0.5, 0.6};
  mine.straighten = 3;
  mine.masks = {PhotoMask(MaskKind::radial)};
  mine.grainAmount = 40;
  library.saveSettings(id, mine, "mine");

  const BuiltInPreset& boost = look("Natural Boost");
  library.applyPreset(Ids{id}, boost);
  EditSettings got = library.settings(id);
  EXPECT_EQ(got, applyPreset(mine, boost.settings, boost.groups()));
  EXPECT_EQ(got.masks, mine.masks);  // kept as they were, ids too
  EXPECT_EQ(stepNames(id).back(), "3 Preset: Natural Boost");

  library.applyPreset(Ids{id}, look("Silver Gelatin B&W"));
  EXPECT_TRUE(library.settings(id).blackAndWhite);
  library.applyPreset(Ids{id}, boost);
  EXPECT_EQ(library.settings(id), got);
  EXPECT_EQ(library.history(id).position, 5);
}

TEST_F(EditsTest, ApplyingAUserPresetTakesOnlyItsGroups) {
  EditSettings preset = withExposure(2);
  preset.temperature = 30;
  preset.tint = -5;
  preset.crop = {0, 0, 0.5, 0.5};
  preset.rotateQuarterTurns = 1;

  library.savePreset("WB", preset, {SettingsGroup::whiteBalance});
  library.savePreset("Geo", preset, {SettingsGroup::whiteBalance, SettingsGroup::geometry});
  const std::vector<UserPreset> saved = library.userPresets();  // by name: Geo, WB

  const Ids ids{addPhoto(), addPhoto(true), addPhoto()};
  EditSettings edited = withExposure(-1);
  edited.vibrance = 25;
  edited.crop = {0.2, 0.2, 0.6, 0.6};
  for (std::int64_t id : ids) library.saveSettings(id, edited, "edit");

  library.applyPreset(Ids{ids[0], ids[1]}, saved[1]);
  EditSettings expected = edited;
  expected.exposure = expected.vibrance = 0;
  expected.temperature = 30, expected.tint = -5;
  // The RAW photo too: the reset is to the default record, not to the RAW
  // starting values.
  for (std::int64_t id : {ids[0], ids[1]}) {
    EXPECT_EQ(library.settings(id), expected);
    EXPECT_EQ(stepNames(id), (std::vector<std::string>{"1 Import", "2 edit", "3 Preset: WB"}));
  }
  EXPECT_EQ(library.settings(ids[2]), edited);  // not selected

  library.applyPreset(Ids{ids[2]}, saved[0]);
  expected.crop = preset.crop;
  expected.rotateQuarterTurns = 1;
  EXPECT_EQ(library.settings(ids[2]), expected);
}

TEST_F(EditsTest, CopySettingsTakesTheChosenGroupsOntoEachTarget) {
  const std::int64_t source = addPhoto();
  EditSettings s = withExposure(1.25);
  s.temperature = -12;
  s.crop = {0.3, 0.3, 0.4, 0.4};
  s.masks = {PhotoMask(MaskKind::linear), PhotoMask(MaskKind::brush)};
  library.saveSettings(source, s, "source");

  const Ids targets{addPhoto(), addPhoto(), addPhoto()};
  EditSettings own;
  own.crop = {0, 0, 0.9, 0.9};
  own.masks = {PhotoMask(MaskKind::sky)};
  own.vignetteAmount = -30;
  library.saveSettings(targets[0], own, "own");
  const auto sourceRows = [&] {
    const std::string id = std::to_string(source);
    return test::dumpRows(library, {"SELECT edits, edited, editDate, histPos FROM photos WHERE id = " + id,
                                    "SELECT * FROM history WHERE photo = " + id + " ORDER BY seq"});
  };
  const std::string sourceBefore = sourceRows();

  library.copySettings(source, Ids{targets[0], source, targets[1]});
  // The copied groups (effects too) come from the source; crop and masks stay.
  EditSettings expected = own.merging(s, allButLocal());
  EXPECT_EQ(expected.vignetteAmount, 0);
  EXPECT_EQ(library.settings(targets[0]), expected);
  EXPECT_EQ(library.settings(targets[1]), EditSettings{}.merging(s, allButLocal()));
  for (std::int64_t id : {targets[0], targets[1]})
    EXPECT_EQ(stepNames(id).back().substr(2), "Paste Settings");
  EXPECT_EQ(library.history(targets[0]).position, 3);
  EXPECT_EQ(library.history(targets[1]).position, 2);
  EXPECT_EQ(library.settings(targets[2]), EditSettings{});

  library.copySettings(source, Ids{targets[2]}, {SettingsGroup::masks, SettingsGroup::geometry}, "Sync");
  EditSettings synced = library.settings(targets[2]);
  EXPECT_EQ(synced.crop, s.crop);
  EXPECT_EQ(synced.exposure, 0);
  ASSERT_EQ(synced.masks.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(synced.masks[i].kind, s.masks[i].kind);
    EXPECT_NE(synced.masks[i].id, s.masks[i].id);  // pasted masks get their own ids
  }
  EXPECT_EQ(stepNames(targets[2]), (std::vector<std::string>{"1 Import", "2 Sync"}));
  EXPECT_EQ(sourceRows(), sourceBefore);  // the source is only read
}

TEST_F(EditsTest, ConcurrentNamedSavesNumberTheirStepsWithoutGaps) {
  const std::int64_t id = addPhoto();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 15; ++i)
        library.saveSettings(id, withExposure(t + i / 100.0), "t" + std::to_string(t));
    });
  }
  for (auto& t : threads) t.join();
  EditHistory h = library.history(id);
  ASSERT_EQ(h.steps.size(), 61u);
  for (std::size_t i = 0; i < h.steps.size(); ++i) EXPECT_EQ(h.steps[i].seq, static_cast<int>(i + 1));
  EXPECT_EQ(h.position, 61);
  EXPECT_EQ(library.settings(id), h.steps.back().settings);
}

// A process killed in the middle of applying a preset to many photos must
// leave every photo's edit and history as they were before.
TEST(EditsInterruptedTest, KilledMidBatchLeavesEveryEditAsBefore) {
  constexpr int photos = 20000;
  test::TempDir dir;
  std::string before;
  {
    PhotoLibrary library(dir.path());
    library.db().exec(R"SQL(
      WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000)
      INSERT INTO photos(id, path, folder, name, imported, raw) SELECT i, '/p/' || i, '/p', i, 0, i % 2 FROM n;
    )SQL");
    // Some photos already have a history, so the batch also cuts redo tails.
    for (int id = 1; id <= photos; id += 997) {
      library.saveSettings(id, withExposure(id / 1000.0), "first");
      library.saveSettings(id, withExposure(1), "second");
      library.goToHistory(id, 2);
    }
    before = dumpEdits(library);
  }
  test::killInsideTransaction(dir.path(), [](PhotoLibrary& library) {
    Ids ids;
    for (int id = 1; id <= photos; ++id) ids.push_back(id);
    library.applyPreset(ids, look("Teal Canyon"));
  });

  PhotoLibrary library(dir.path());
  EXPECT_EQ(dumpEdits(library), before);
  EXPECT_EQ(library.db().query("SELECT COUNT(*) FROM history").front().front(), SQLValue(3 * 21));
}

}  // namespace
