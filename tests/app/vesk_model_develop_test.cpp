// The Develop side of the model: loading, render scheduling, stale results,
// close-up, edited thumbnails, and the editing operations with their history.

#include <QSignalSpy>

#include "tests/app/model_fixture.h"

namespace lumivale::test {
namespace {

using app::CompareMode;
using app::Module;
using app::VeskModel;

class DevelopModelTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    addPhotos({"orientation/Landscape_1.jpg", "orientation/Landscape_2.jpg", "orientation/Portrait_1.jpg"});
    makeModel();
    importPhotos();
    ASSERT_EQ(model->photos().size(), 3u);
  }

  // Opens a photo in Develop and waits for its first preview.
  void develop(const std::string& name) {
    model->select(idNamed(name));
    model->enterDevelopIfNeeded();
    ASSERT_EQ(model->module(), Module::develop);
    settle();
    ASSERT_FALSE(model->preview().isNull());
  }

  std::vector<std::string> stepNames() const {
    std::vector<std::string> names;
    for (const HistoryStep& step : model->history()) names.push_back(step.name);
    return names;
  }
};

TEST_F(DevelopModelTest, OpeningAPhotoGivesAPreviewItsHistogramAndAFrameTime) {
  develop("Landscape_1.jpg");
  EXPECT_EQ(model->preview().size(), QSize(600, 450));
  EXPECT_TRUE(waitFor([&] { return model->histogram().has_value(); }));
  EXPECT_GT(model->lastFrameMS(), 0);
  EXPECT_EQ(model->frameTimes().size(), std::size_t(model->rendersStarted()));
  EXPECT_FALSE(model->loadingOriginal());
  EXPECT_FALSE(model->lensAvailable());
  ASSERT_TRUE(model->sourceSize());
  EXPECT_EQ(*model->sourceSize(), (Size{600, 450}));
  EXPECT_EQ(model->displayGeometry()->outputSize(), (Size{600, 450}));
}

TEST_F(DevelopModelTest, FiftyRequestsDuringOneRenderGiveExactlyOneMore) {
  develop("Landscape_1.jpg");
  const int before = model->rendersStarted();
  QSignalSpy finished(model.get(), &VeskModel::renderFinished);
  for (int i = 0; i < 51; ++i) model->requestRender();
  EXPECT_EQ(model->rendersStarted(), before + 1);
  settle();
  EXPECT_EQ(model->rendersStarted(), before + 2);
  EXPECT_EQ(finished.count(), 2);
}

TEST_F(DevelopModelTest, QuickPhotoChangesNeverShowAPreviewOfAnEarlierPhoto) {
  develop("Landscape_1.jpg");
  std::vector<QSize> shown;
  QObject::connect(model.get(), &VeskModel::previewChanged,
                   [&] { shown.push_back(model->preview().size()); });
  model->select(idNamed("Landscape_2.jpg"));
  model->select(idNamed("Landscape_1.jpg"));
  model->select(idNamed("Portrait_1.jpg"));
  shown.clear();
  settle();
  ASSERT_FALSE(shown.empty());
  for (const QSize& size : shown) {
    if (size.isValid()) {
      EXPECT_LT(size.width(), size.height()) << "a landscape preview after the portrait opened";
    }
  }
  EXPECT_EQ(model->preview().size(), QSize(450, 600));
}

TEST_F(DevelopModelTest, LeavingDevelopDuringALoadEndsItAndRendersNothingMore) {
  develop("Landscape_1.jpg");
  model->select(idNamed("Portrait_1.jpg"));
  ASSERT_TRUE(model->loadingOriginal());
  model->setModule(Module::library);
  EXPECT_FALSE(model->loadingOriginal());
  const int renders = model->rendersStarted();
  QTest::qWait(300);
  model->requestRender();
  EXPECT_EQ(model->rendersStarted(), renders);
  EXPECT_FALSE(model->sourceSize());
}

TEST_F(DevelopModelTest, DestroyingTheModelWhileItRendersEndsCleanly) {
  develop("Landscape_1.jpg");
  model->select(idNamed("Portrait_1.jpg"));
  model->set(&EditSettings::exposure, 1.0);
  model->scheduleEditedThumbnail(*model->currentID());
  model.reset();
  EXPECT_EQ(VeskModel::shared(), nullptr);
  QTest::qWait(100);
}

TEST_F(DevelopModelTest, CloseUpRendersOncePerChangeAndNotForItsOwnValue) {
  develop("Landscape_1.jpg");
  int renders = model->rendersStarted();
  model->setCloseUp(true);
  EXPECT_EQ(model->previewSide(), VeskModel::previewSideCloseUp);
  EXPECT_EQ(model->rendersStarted(), renders + 1);
  settle();
  renders = model->rendersStarted();
  model->setCloseUp(true);
  EXPECT_EQ(model->rendersStarted(), renders);
  model->setCloseUp(false);
  EXPECT_EQ(model->previewSide(), VeskModel::previewSideNormal);
  EXPECT_EQ(model->rendersStarted(), renders + 1);
  settle();
}

TEST_F(DevelopModelTest, CompareMakesABeforeImageOfThePreviewsSize) {
  develop("Landscape_1.jpg");
  model->set(&EditSettings::exposure, 2.0);
  model->setCompare(CompareMode::split);
  settle();
  ASSERT_FALSE(model->beforeImage().isNull());
  EXPECT_EQ(model->beforeImage().size(), model->preview().size());
  // The untouched photo is darker than the one two stops up.
  const QImage& before = model->beforeImage();
  const QImage& after = model->preview();
  const QPoint middle(before.width() / 2, before.height() / 2);
  EXPECT_LT(qGray(before.pixel(middle)), qGray(after.pixel(middle)));
}

TEST_F(DevelopModelTest, TenQuickEditsWriteTheEditedThumbnailOnce) {
  develop("Landscape_1.jpg");
  const std::int64_t id = *model->currentID();
  for (int i = 1; i <= 10; ++i) {
    model->edit("Exposure", [&](EditSettings& s) { s.exposure = 0.1 * i; });
    QTest::qWait(30);
  }
  ASSERT_TRUE(waitFor([&] { return model->editedThumbnailsWritten() > 0; }));
  QTest::qWait(VeskModel::editedThumbnailDelayMS + 400);
  EXPECT_EQ(model->editedThumbnailsWritten(), 1);
  EXPECT_TRUE(std::filesystem::exists(library->thumbnailURL(id, true)));
  EXPECT_TRUE(model->photos()[std::size_t(*model->rowOf(id))].edited);
  const QImage thumb = model->thumbnail(model->photos()[std::size_t(*model->rowOf(id))]);
  EXPECT_EQ(std::max(thumb.width(), thumb.height()), std::min(VeskModel::editedThumbnailSide, 600));
}

TEST_F(DevelopModelTest, ASliderDragIsOneStepAndAnUnchangedCommitNone) {
  develop("Landscape_1.jpg");
  for (int v = 0; v <= 40; v += 2) model->set(&EditSettings::contrast, double(v));
  EXPECT_TRUE(model->history().empty()) << "a drag records nothing before it ends";
  model->commit("Contrast");
  model->commit("Contrast");
  EXPECT_EQ(stepNames(), (std::vector<std::string>{"Import", "Contrast"}));
  EXPECT_EQ(model->historyPos(), 2);
  EXPECT_EQ(library->settings(*model->currentID()).contrast, 40);
  EXPECT_TRUE(model->set("hsl.2.hue", "15"));
  EXPECT_FALSE(model->set("hsl.9.hue", "15"));
  EXPECT_FALSE(model->set("exposure", "\"bright\""));
  EXPECT_EQ(model->settings().hsl[2].hue, 15);
}

TEST_F(DevelopModelTest, UndoStopsAtTheImportStepAndANewEditDropsTheRedoTail) {
  develop("Landscape_1.jpg");
  model->edit("Exposure", [](EditSettings& s) { s.exposure = 1; });
  model->edit("Contrast", [](EditSettings& s) { s.contrast = 20; });
  EXPECT_FALSE(model->canRedo());
  model->redo();
  EXPECT_EQ(model->historyPos(), 3);
  model->undo();
  model->undo();
  EXPECT_EQ(model->historyPos(), 1);
  EXPECT_FALSE(model->canUndo());
  model->undo();
  EXPECT_EQ(model->historyPos(), 1);
  EXPECT_EQ(model->settings(), EditSettings());
  model->redo();
  EXPECT_EQ(model->settings().exposure, 1);
  model->goToHistory(9);
  EXPECT_EQ(model->historyPos(), 2);
  model->edit("Whites", [](EditSettings& s) { s.whites = 10; });
  EXPECT_EQ(stepNames(), (std::vector<std::string>{"Import", "Exposure", "Whites"}));
  EXPECT_FALSE(model->canRedo());
}

TEST_F(DevelopModelTest, ResetAllOfARawKeepsItsStartingSharpeningAndNoiseReduction) {
  auto raw = sharedPhoto("raw/IMG_5952.CR2");
  ASSERT_TRUE(raw);
  std::filesystem::create_directories(dir / "raw");
  std::filesystem::copy_file(*raw, dir / "raw" / "IMG_5952.CR2");
  std::optional<ImportResult> done;
  model->importFolder(dir / "raw", [&](const ImportResult& r) { done = r; });
  ASSERT_TRUE(waitFor([&] { return done.has_value(); }));
  model->select(idNamed("IMG_5952.CR2"));
  model->edit("Exposure", [](EditSettings& s) { s.sharpenAmount = 80; });
  model->resetAll();
  EXPECT_EQ(stepNames().back(), "Reset All");
  EXPECT_EQ(model->settings().sharpenAmount, 25);
  EXPECT_EQ(model->settings().noiseColor, 25);
  EXPECT_EQ(library->settings(*model->currentID()), PhotoLibrary::initialSettings(true));
}

TEST_F(DevelopModelTest, MasksBrushStrokesAndGeometryEachMakeOneNamedStep) {
  develop("Landscape_1.jpg");
  const auto brush = model->addMask(MaskKind::brush);
  ASSERT_TRUE(brush);
  EXPECT_EQ(model->selectedMask(), brush);
  model->setBrushSize(0.1);
  for (double x : {0.2, 0.3, 0.4}) model->paintDab({x, 0.5});
  model->endStroke();
  ASSERT_EQ(model->settings().masks.size(), 1u);
  EXPECT_EQ(model->settings().masks[0].dabs.size(), 3u);
  EXPECT_EQ(model->settings().masks[0].dabs[0].radius, 0.1);
  const auto radial = model->addMask(MaskKind::radial);
  model->setMaskAdjust(*radial, &MaskAdjust::exposure, 1.5);
  model->commit("Mask Exposure");
  model->renameMask(*radial, "Face");
  model->deleteMask(*brush);
  model->rotate(true);
  model->flip(true);
  model->setCropAspect("1 : 1");
  EXPECT_EQ(stepNames(), (std::vector<std::string>{"Import", "Add Brush", "Brush", "Add Radial Gradient",
                                                   "Mask Exposure", "Rename Mask", "Delete Mask",
                                                   "Rotate Right", "Flip Horizontal", "Crop Aspect"}));
  const EditSettings& s = model->settings();
  ASSERT_EQ(s.masks.size(), 1u);
  EXPECT_EQ(s.masks[0].name, "Face");
  EXPECT_EQ(s.masks[0].adjust.exposure, 1.5);
  EXPECT_EQ(s.rotateQuarterTurns, 1);
  EXPECT_TRUE(s.flipVertical) << "after a quarter turn the screen's horizontal is the source's vertical";
  EXPECT_FALSE(s.flipHorizontal);
  EXPECT_NEAR(s.crop.w * 450, s.crop.h * 600, 1) << "a square crop of the turned 450 x 600 frame";
  settle();
  EXPECT_EQ(model->preview().width(), model->preview().height());
}

TEST_F(DevelopModelTest, SmartMasksWithoutTheSubjectModelSaySoAndTheSkyStillWorks) {
  // No segmentation model: the subject cannot be found, the sky can.
  std::filesystem::create_directories(dir / "no-models");
  ScopedEnv models("LUMIVALE_MODELS", (dir / "no-models").c_str());
  develop("Landscape_1.jpg");
  model->setStatus("");
  model->addMask(MaskKind::subject);
  ASSERT_TRUE(waitFor([&] { return !model->status().isEmpty(); }));
  EXPECT_TRUE(model->status().startsWith("Select Subject: Subject detection is not available"))
      << model->status().toStdString();
  EXPECT_TRUE(model->settings().masks.empty());
  EXPECT_EQ(stepNames(), std::vector<std::string>{});

  const auto sky = model->addMask(MaskKind::sky);
  ASSERT_TRUE(sky);
  ASSERT_TRUE(waitFor([&] { return !model->settings().masks.empty(); }));
  EXPECT_TRUE(model->settings().masks[0].maskPNG.has_value());
  EXPECT_EQ(model->selectedMask(), sky);
  EXPECT_EQ(stepNames().back(), "Add Select Sky");
}

TEST_F(DevelopModelTest, PasteCarriesTheCopiedGroupsOntoTheSelection) {
  develop("Landscape_1.jpg");
  model->edit("Look", [](EditSettings& s) {
    s.exposure = 1;
    s.rotateQuarterTurns = 1;
  });
  model->copySettings();
  const std::int64_t other = idNamed("Landscape_2.jpg");
  model->select(other);
  model->pasteSettings();
  EXPECT_EQ(library->settings(other).exposure, 1);
  EXPECT_EQ(library->settings(other).rotateQuarterTurns, 0) << "geometry is not among the copied groups";
  EXPECT_EQ(model->settings().exposure, 1);
  EXPECT_EQ(stepNames().back(), "Paste Settings");

  const BuiltInPreset& look = BuiltInPresets::all().front();
  model->applyLook(look);
  EXPECT_EQ(stepNames().back(), "Preset: " + look.name);
  model->addSnapshot("");
  ASSERT_EQ(model->snapshots().size(), 1u);
  EXPECT_EQ(model->snapshots()[0].name, "Snapshot 1");
  model->resetAll();
  model->applySnapshot(model->snapshots()[0].id);
  EXPECT_EQ(stepNames().back(), "Snapshot: Snapshot 1");
  EXPECT_EQ(model->settings(), model->snapshots()[0].settings);
}

TEST_F(DevelopModelTest, TheWhiteBalancePickerNeutralisesTheSampledColour) {
  develop("Landscape_1.jpg");
  model->sampleWhiteBalance({0.5, 0.5});
  ASSERT_TRUE(waitFor([&] { return model->history().size() == 2; }));
  EXPECT_EQ(stepNames().back(), "White Balance");
  EXPECT_TRUE(model->settings().temperature != 0 || model->settings().tint != 0);
}

TEST_F(DevelopModelTest, AMissingFileOrPhotoIsToldOnTheStatusLine) {
  const std::int64_t id = idNamed("Landscape_2.jpg");
  std::filesystem::remove(model->photos()[std::size_t(*model->rowOf(id))].path);
  model->select(id);
  model->enterDevelop();
  ASSERT_TRUE(waitFor([&] { return !model->loadingOriginal(); }));
  EXPECT_EQ(model->status(), "This file could not be opened: Landscape_2.jpg");
  EXPECT_FALSE(model->sourceSize());
  model->requestRender();
  settle();

  develop("Landscape_1.jpg");
  library->remove({*model->currentID()});
  model->edit("Exposure", [](EditSettings& s) { s.exposure = 1; });
  EXPECT_TRUE(model->status().contains("No photo with id")) << model->status().toStdString();
}

TEST_F(DevelopModelTest, ExportWritesNewFilesAndCountsProgress) {
  model->selectAll();
  std::optional<app::ExportSummary> summary;
  std::filesystem::create_directories(dir / "out");
  QSignalSpy progress(model.get(), &VeskModel::exportProgressChanged);
  model->exportPhotos(model->selectedIDs(), dir / "out", [&](const app::ExportSummary& s) { summary = s; });
  ASSERT_TRUE(waitFor([&] { return summary.has_value(); }));
  EXPECT_EQ(summary->written, 3);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "out"), {}), 3);
  EXPECT_EQ(model->exportProgress(), std::nullopt);
  EXPECT_GE(progress.count(), 4);
  EXPECT_EQ(model->exportOptions().folderPath, (dir / "out").string());
}

}  // namespace
}  // namespace lumivale::test
