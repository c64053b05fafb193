// The Library side of the model: start-up state, import, reload rules,
// selection and the organising operations, on a real imported library.

#include <QSignalSpy>

#include "tests/app/model_fixture.h"
#include "tests/support/library.h"

namespace lumivale::test {
namespace {

using app::Module;
using app::VeskModel;

class LibraryModelTest : public ModelTest {
 protected:
  // Three landscape photos and one portrait, imported.
  void importFour() {
    addPhotos({"orientation/Landscape_1.jpg", "orientation/Landscape_2.jpg", "orientation/Landscape_3.jpg",
               "orientation/Portrait_1.jpg"});
    makeModel();
    importPhotos();
    ASSERT_EQ(model->photos().size(), 4u);
  }
};

TEST_F(LibraryModelTest, AnEmptyCatalogStartsWithNothingCurrentUnderAllPhotographs) {
  makeModel();
  EXPECT_TRUE(model->photos().empty());
  EXPECT_EQ(model->currentID(), std::nullopt);
  EXPECT_TRUE(model->selectedIDs().empty());
  EXPECT_EQ(model->catalogTitle(), "All Photographs");
  EXPECT_EQ(model->module(), Module::library);
  EXPECT_EQ(model->copyGroups(), allButLocal());
  EXPECT_EQ(VeskModel::shared(), model.get());
  EXPECT_EQ(model->removalQuestion(), std::nullopt);
}

TEST_F(LibraryModelTest, GridSizeFallsBackTo170AndIsStoredOnEveryChange) {
  const UserDefaults store(dir / "config");
  for (const char* stored : {"", "wide", "-3", "nan", "1e999", "170px"}) {
    store.set(VeskModel::gridSizeKey, stored);
    EXPECT_EQ(makeModel().gridSize(), 170.0) << "stored: " << stored;
  }
  store.set(VeskModel::gridSizeKey, "212.5");
  EXPECT_EQ(makeModel().gridSize(), 212.5);
  model->setGridSize(240);
  EXPECT_EQ(store.data(VeskModel::gridSizeKey), "240.0");
  model->setGridSize(-1);
  EXPECT_EQ(model->gridSize(), 240);
}

TEST_F(LibraryModelTest, ImportReportsItsStepsAndASecondImportSaysWhatWasSkipped) {
  addPhotos({"orientation/Landscape_1.jpg", "orientation/Portrait_1.jpg"});
  makeModel();
  QSignalSpy importing(model.get(), &VeskModel::importingChanged);
  const ImportResult first = importPhotos();
  EXPECT_EQ(first.added, 2);
  ASSERT_GE(importing.count(), 2);
  EXPECT_EQ(model->importing(), std::nullopt);
  EXPECT_TRUE(model->status().startsWith("Imported 2 photos in ")) << model->status().toStdString();
  EXPECT_TRUE(model->status().endsWith("s")) << model->status().toStdString();
  EXPECT_EQ(model->catalogTitle(), "Folder: photos");
  EXPECT_EQ(model->query().folder, std::filesystem::canonical(dir / "photos").string());
  EXPECT_EQ(model->photos().size(), 2u);
  EXPECT_EQ(model->lastImport(), first);

  const ImportResult second = importPhotos();
  EXPECT_EQ(second.added, 0);
  const QString status = model->status();
  EXPECT_TRUE(status.startsWith("Imported 0 photos in ")) << status.toStdString();
  EXPECT_TRUE(status.endsWith("s (2 already in the library)")) << status.toStdString();
}

TEST_F(LibraryModelTest, AFolderThatCannotBeReadImportsNothingWithoutAnError) {
  makeModel();
  std::optional<ImportResult> result;
  model->importFolder(dir / "missing", [&](const ImportResult& r) { result = r; });
  ASSERT_TRUE(waitFor([&] { return result.has_value(); }));
  EXPECT_EQ(result->added, 0);
  EXPECT_TRUE(model->status().startsWith("Imported 0 photos in ")) << model->status().toStdString();
  EXPECT_TRUE(model->photos().empty());
}

TEST_F(LibraryModelTest, AReloadKeepsTheOpenDevelopPhotoButMovesTheLibraryOne) {
  importFour();
  const std::int64_t portrait = idNamed("Portrait_1.jpg");
  LibraryQuery landscapes = model->query();
  landscapes.text = "Landscape";
  for (Module module : {Module::library, Module::develop}) {
    model->setQuery(LibraryQuery{.folder = model->query().folder});
    model->select(portrait);
    if (module == Module::develop) model->enterDevelop();
    ASSERT_EQ(model->module(), module);
    model->setQuery(landscapes);
    ASSERT_EQ(model->photos().size(), 3u);
    if (module == Module::develop) {
      EXPECT_EQ(model->currentID(), portrait);
      EXPECT_EQ(model->current()->name, "Portrait_1.jpg");
    } else {
      EXPECT_EQ(model->currentID(), model->photos().front().id);
    }
    EXPECT_TRUE(model->selection().empty()) << "the portrait left the grid";
  }
}

TEST_F(LibraryModelTest, ClicksSelectAloneToggleAndSelectRangesInGridOrder) {
  importFour();
  const auto& p = model->photos();
  model->select(p[1].id);
  EXPECT_EQ(model->selection(), VeskModel::IDSet({p[1].id}));
  model->select(p[3].id, false, true);
  EXPECT_EQ(model->selection(), VeskModel::IDSet({p[1].id, p[2].id, p[3].id}));
  EXPECT_EQ(model->currentID(), p[3].id);
  model->select(p[0].id, false, true);
  EXPECT_EQ(model->selection(), VeskModel::IDSet({p[0].id, p[1].id, p[2].id, p[3].id}));
  model->select(p[2].id, true);
  EXPECT_EQ(model->selectedIDs(), (std::vector<std::int64_t>{p[0].id, p[1].id, p[3].id}));
  model->select(p[2].id, true);
  EXPECT_EQ(model->selection().size(), 4u);
  model->stepCurrent(-10);
  EXPECT_EQ(model->currentID(), p[0].id);
  EXPECT_EQ(model->selectedIDs(), std::vector<std::int64_t>{p[0].id});
}

TEST_F(LibraryModelTest, ARatingUpdatesInPlaceAndReloadsOnlyAFilteredGrid) {
  importFour();
  QSignalSpy resets(model.get(), &VeskModel::photosReset);
  QSignalSpy updates(model.get(), &VeskModel::recordsUpdated);
  const std::int64_t first = model->photos()[0].id;
  model->select(first);
  model->setRating(4);
  EXPECT_EQ(resets.count(), 0);
  EXPECT_EQ(updates.count(), 1);
  EXPECT_EQ(model->photos()[0].rating, 4);
  EXPECT_EQ(library->photo(first)->rating, 4);

  LibraryQuery rated = model->query();
  rated.minRating = 3;
  model->setQuery(rated);
  ASSERT_EQ(model->photos().size(), 1u);
  resets.clear();
  model->setRating(1);
  EXPECT_EQ(resets.count(), 1);
  EXPECT_TRUE(model->photos().empty());
  EXPECT_EQ(model->currentID(), std::nullopt);
}

TEST_F(LibraryModelTest, ALabelAllSelectedPhotosCarryIsClearedAndAMixedOneSetOnAll) {
  importFour();
  const auto& p = model->photos();
  model->select(p[0].id);
  model->setLabel("red");
  model->select(p[1].id, true);
  model->setLabel("red");
  EXPECT_EQ(library->photo(p[0].id)->label, "red");
  EXPECT_EQ(library->photo(p[1].id)->label, "red");
  model->setLabel("red");
  EXPECT_EQ(library->photo(p[0].id)->label, "");
  EXPECT_EQ(library->photo(p[1].id)->label, "");
  EXPECT_EQ(model->photos()[1].label, "");
}

TEST_F(LibraryModelTest, KeywordsSplitAtCommasAndSemicolonsAndAreCountedForThePanels) {
  importFour();
  const auto p = model->photos();
  model->select(p[0].id);
  model->addKeywords("sky");
  EXPECT_EQ(model->currentKeywords(), (std::vector<std::string>{"sky"}));
  model->selectAll();
  QSignalSpy counts(model.get(), &VeskModel::keywordCountsChanged);
  model->addKeywords(" Sky, Sea;; ;beach ");
  EXPECT_EQ(model->keywordList(), (std::vector<std::string>{"beach", "sea", "sky"}));
  model->removeKeyword("beach");
  // Only a count moves here, the names stay: the counts still change.
  model->select(p[1].id);
  model->removeKeyword("sea");
  EXPECT_EQ(counts.count(), 3);
  EXPECT_EQ(model->keywordCounts(), (VeskModel::KeywordCounts{{"sea", 3}, {"sky", 4}}));
  EXPECT_EQ(model->currentKeywords(), (std::vector<std::string>{"sky"}));
  model->select(p[2].id);
  EXPECT_EQ(model->currentKeywords(), (std::vector<std::string>{"sea", "sky"}));
}

TEST_F(LibraryModelTest, CollectionsToggleAddOnlyNewPhotosAndRenameWhereShown) {
  importFour();
  const auto p = model->photos();
  model->select(p[0].id);
  model->createCollection("Trip", true);
  ASSERT_EQ(model->collections().size(), 1u);
  const Collection trip = model->collections()[0];
  EXPECT_EQ(trip.count, 1);
  EXPECT_EQ(model->currentCollections(), (VeskModel::IDSet{trip.id}));
  model->toggleCollection(trip, p[0].id);
  EXPECT_TRUE(model->currentCollections().empty());
  model->toggleCollection(trip, p[0].id);
  EXPECT_EQ(model->collections()[0].count, 1);

  model->addToCollection(trip, {p[0].id, p[1].id});
  const QString status = model->status();
  model->addToCollection(trip, {p[1].id, p[2].id, p[1].id});
  EXPECT_EQ(model->collections()[0].count, 3);
  EXPECT_EQ(model->status(), status) << "no error for the photo already there";

  model->showCatalog("Trip", [&](LibraryQuery& q) { q.collection = trip.id; });
  model->renameCollection(trip, "  Holiday ");
  model->renameCollection(trip, " ");
  EXPECT_EQ(model->collections()[0].name, "Holiday");
  EXPECT_EQ(model->catalogTitle(), "Holiday");
  EXPECT_EQ(model->photos().size(), 3u);

  model->deleteCollection(trip);
  EXPECT_TRUE(model->collections().empty());
  EXPECT_TRUE(model->currentCollections().empty());
  EXPECT_EQ(model->catalogTitle(), "All Photographs");
  EXPECT_EQ(model->query(), LibraryQuery());
  EXPECT_EQ(model->photos().size(), 4u);
}

TEST_F(LibraryModelTest, DetailsOfTheCurrentPhotoArriveInTheBackgroundForTheLastOneOnly) {
  importFour();
  const auto p = model->photos();
  // An unreadable file gives no rows rather than no answer.
  std::filesystem::resize_file(p[3].path, 0);
  auto arrived = [&] { return waitFor([&] { return model->currentDetails().has_value(); }, 20000); };

  model->select(p[0].id);
  model->select(p[1].id);
  EXPECT_FALSE(model->currentDetails());
  ASSERT_TRUE(arrived());
  EXPECT_EQ(*model->currentDetails(), PhotoMeta::details(p[1].path));
  EXPECT_FALSE(model->currentDetails()->empty());
  QTest::qWait(100);
  EXPECT_EQ(*model->currentDetails(), PhotoMeta::details(p[1].path)) << "a late answer for photo 0 won";

  // Entering Develop while the read runs moves the token; the rows still come.
  model->select(p[2].id);
  model->enterDevelop();
  ASSERT_TRUE(arrived());
  EXPECT_EQ(*model->currentDetails(), PhotoMeta::details(p[2].path));
  settle();
  model->setModule(Module::library);

  model->select(p[3].id);
  ASSERT_TRUE(arrived());
  EXPECT_TRUE(model->currentDetails()->empty());
}

TEST_F(LibraryModelTest, RemovalAsksFirstAndLeavesTheFiles) {
  importFour();
  const auto p = model->photos();
  model->select(p[0].id);
  model->select(p[1].id, true);
  const auto question = model->removalQuestion();
  ASSERT_TRUE(question);
  EXPECT_EQ(question->message, "Remove 2 photos from the library?");
  EXPECT_TRUE(question->informative.startsWith("The photo files stay on this computer, untouched."));
  model->removeFromLibrary();
  EXPECT_EQ(model->photos().size(), 2u);
  EXPECT_EQ(model->currentID(), model->photos().front().id);
  EXPECT_TRUE(model->selection().empty());
  EXPECT_TRUE(std::filesystem::exists(p[0].path));
}

TEST_F(LibraryModelTest, AReadOnlyCatalogSaysSoAndChangesNothing) {
  importFour();
  const std::int64_t first = model->photos()[0].id;
  model.reset();
  library.reset();
  // A catalog left without closing opens read-only when it is not checked.
  endWithoutClosing(dir / "lib", [&](PhotoLibrary& l) { l.setRating({first}, 3); });
  library = std::make_shared<PhotoLibrary>(dir / "lib", LibraryOptions{.checkWhenDue = false});
  ASSERT_TRUE(library->readOnly());
  makeModel();
  model->select(first);
  model->setRating(5);
  model->edit("Exposure", [](EditSettings& s) { s.exposure = 1; });
  EXPECT_FALSE(model->status().isEmpty());
  EXPECT_EQ(library->photo(first)->rating, 3);
  EXPECT_EQ(model->photos()[0].rating, 3);
  EXPECT_TRUE(library->history(first).steps.empty());
}

TEST_F(LibraryModelTest, TheGridListShowsRecordsAndFollowsInPlaceChanges) {
  importFour();
  app::PhotoListModel& list = *model->photoList();
  ASSERT_EQ(list.rowCount(), 4);
  model->select(model->photos()[2].id);
  QSignalSpy changed(&list, &QAbstractItemModel::dataChanged);
  model->setFlag(1);
  ASSERT_GE(changed.count(), 1);
  const QModelIndex row = list.index(2);
  EXPECT_EQ(list.data(row, app::PhotoListModel::flagRole).toInt(), 1);
  EXPECT_TRUE(list.data(row, app::PhotoListModel::currentRole).toBool());
  EXPECT_EQ(list.data(row, Qt::DisplayRole).toString().toStdString(), model->photos()[2].name);
  // A thumbnail comes in the background and is then served from the cache.
  QSignalSpy ready(model.get(), &VeskModel::thumbnailReady);
  EXPECT_TRUE(list.data(row, Qt::DecorationRole).value<QImage>().isNull());
  ASSERT_TRUE(waitFor([&] { return ready.count() > 0; }));
  const QImage thumb = list.data(row, Qt::DecorationRole).value<QImage>();
  ASSERT_FALSE(thumb.isNull());
  EXPECT_EQ(std::max(thumb.width(), thumb.height()), PhotoLibrary::thumbSide);
}

}  // namespace
}  // namespace lumivale::test
