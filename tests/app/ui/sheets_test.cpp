#include "app/ui/sheets.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>

#include "tests/app/ui/window_fixture.h"

namespace lumivale::test {
namespace {

class SheetTest : public WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    writePhotos(3);
    open();
    model->select(idAt(0));
    model->select(idAt(1), true);
  }

  template <class T = QDialog>
  T* sheet(app::VeskSheet kind) {
    model->setSheet(kind);
    auto* dialog = qobject_cast<T*>(window->openSheet());
    EXPECT_NE(dialog, nullptr);
    return dialog;
  }
};

TEST_F(SheetTest, ExportCarriesItsOptionsAndWritesTheFiles) {
  auto* s = sheet<ui::ExportSheet>(app::VeskSheet::exportPhotos);
  ASSERT_NE(s, nullptr);
  auto combos = s->findChildren<QComboBox*>();
  ASSERT_FALSE(combos.empty());
  combos[0]->setCurrentIndex(3);  // the formats in order: JPEG, HEIC, TIFF, PNG
  for (QCheckBox* box : s->findChildren<QCheckBox*>()) {
    if (box->text() == QStringLiteral("Add a text watermark")) box->setChecked(true);
  }
  const auto out = dir / "out";
  std::filesystem::create_directories(out);
  for (QLineEdit* field : s->findChildren<QLineEdit*>()) {
    if (field->placeholderText() == QStringLiteral("Choose a folder…"))
      field->setText(QString::fromStdString(out.string()));
  }
  s->startExport();
  EXPECT_EQ(model->exportOptions().format, ExportFormat::png);
  EXPECT_TRUE(model->exportOptions().watermarkOn);
  EXPECT_EQ(model->exportOptions().folderPath, out.string());
  // Files are written under a temporary name first: wait for the two PNGs alone.
  auto written = [&out] {
    int png = 0, other = 0;
    for (const auto& file : std::filesystem::directory_iterator(out))
      ++(file.path().extension() == ".png" ? png : other);
    return png == 2 && other == 0;
  };
  EXPECT_TRUE(QTest::qWaitFor(written, 30000));
  // The sheet lists what it wrote when the export ends.
  auto* results = s->findChild<QListWidget*>();
  ASSERT_NE(results, nullptr);
  EXPECT_TRUE(QTest::qWaitFor([&] { return results->count() == 2; }, 10000));
}

TEST_F(SheetTest, ExportSheetShowsTheStoredOptions) {
  ExportOptions stored = model->exportOptions();
  stored.format = ExportFormat::tiff;
  stored.tiff16Bit = true;
  stored.sizeMode = SizeMode::longEdge;
  stored.sizeValue = 1600;
  stored.suffix = "-web";
  model->setExportOptions(stored);
  auto* s = sheet<ui::ExportSheet>(app::VeskSheet::exportPhotos);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->options(), stored);
}

TEST_F(SheetTest, CopySettingsStartsFromAllButLocalAndCarriesTheChoice) {
  auto* s = sheet<ui::CopySettingsSheet>(app::VeskSheet::copySettings);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->chooser()->groups(), allButLocal());
  std::set<SettingsGroup> chosen = allButLocal();
  chosen.erase(SettingsGroup::light);
  chosen.insert(SettingsGroup::geometry);
  s->chooser()->setGroups(chosen);
  s->accept();
  EXPECT_EQ(model->copyGroups(), chosen);
  EXPECT_TRUE(model->clipboard().has_value());
  EXPECT_FALSE(model->sheet().has_value()) << "closing the dialog closes the sheet";
}

TEST_F(SheetTest, SavePresetNamesItAndKeepsItsGroups) {
  auto* s = sheet<ui::SavePresetSheet>(app::VeskSheet::savePreset);
  ASSERT_NE(s, nullptr);
  s->nameField()->setText(QStringLiteral("  Warm evening "));
  s->chooser()->setGroups({SettingsGroup::whiteBalance});
  s->accept();
  ASSERT_EQ(model->userPresets().size(), 1u);
  EXPECT_EQ(model->userPresets()[0].name, "Warm evening");
  EXPECT_EQ(model->userPresets()[0].groups, std::set<SettingsGroup>{SettingsGroup::whiteBalance});
}

TEST_F(SheetTest, NewCollectionTakesTheSelection) {
  auto* s = sheet(app::VeskSheet::newCollection);
  ASSERT_NE(s, nullptr);
  s->findChild<QLineEdit*>(QStringLiteral("name"))->setText(QStringLiteral("Trip"));
  s->accept();
  ASSERT_EQ(model->collections().size(), 1u);
  EXPECT_EQ(model->collections()[0].name, "Trip");
  EXPECT_EQ(model->collections()[0].count, 2);
}

TEST_F(SheetTest, KeywordsGoOnEverySelectedPhoto) {
  auto* s = sheet(app::VeskSheet::keywords);
  ASSERT_NE(s, nullptr);
  s->findChild<QLineEdit*>(QStringLiteral("keywords"))->setText(QStringLiteral("sky; sea,, "));
  s->accept();
  for (int row : {0, 1}) {
    EXPECT_EQ(library->keywords(idAt(row)), (std::vector<std::string>{"sea", "sky"})) << row;
  }
  EXPECT_TRUE(library->keywords(idAt(2)).empty());
}

TEST_F(SheetTest, ImportDoneNeedsAnImport) {
  auto* s = sheet(app::VeskSheet::importDone);
  ASSERT_NE(s, nullptr) << "the fixture imported the photos folder";
  EXPECT_TRUE(s->isVisible());
}

}  // namespace
}  // namespace lumivale::test
