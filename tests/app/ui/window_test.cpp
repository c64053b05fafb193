#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QStackedWidget>
#include <QStyle>

#include "app/ui/library_view.h"
#include "app/ui/photo_grid.h"
#include "tests/app/ui/window_fixture.h"

namespace lumivale::test {
namespace {

using app::CompareMode;
using app::Module;

TEST_F(WindowTest, OpensAsTheDarkMainWindowOfTheRightSize) {
  ui::MainWindow& w = open();
  EXPECT_EQ(w.windowTitle(), QStringLiteral("KUVO Lumivale"));
  EXPECT_EQ(w.size(), QSize(1560, 960));
  EXPECT_EQ(w.minimumSize(), QSize(1100, 700));
  EXPECT_LT(w.palette().color(QPalette::Window).lightness(), 64);
  EXPECT_GT(w.palette().color(QPalette::WindowText).lightness(), 180);
}

TEST_F(WindowTest, RemembersTheWindowGeometry) {
  writePhotos(1);
  open().resize(1300, 800);
  window->close();
  window.reset();
  window = std::make_unique<ui::MainWindow>(*model);
  EXPECT_EQ(window->size(), QSize(1300, 800));
}

/// A key pressed over the grid, and what it must have done to the model.
struct KeyCase {
  const char* name;
  int key;
  Qt::KeyboardModifiers modifiers;
  std::function<bool(app::VeskModel&)> done;
};

class KeyTest : public WindowTest, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(KeyTest, ReachesItsOperation) {
  writePhotos(4);
  open();
  model->select(idAt(1));
  QWidget* grid = window->libraryView()->grid();
  grid->setFocus();
  QTest::keyClick(grid, Qt::Key(GetParam().key), GetParam().modifiers);
  EXPECT_TRUE(GetParam().done(*model)) << GetParam().name;
}

const PhotoRecord& second(app::VeskModel& m) { return m.photos().at(1); }

INSTANTIATE_TEST_SUITE_P(
    Keys, KeyTest,
    ::testing::Values(
        KeyCase{"three stars", Qt::Key_3, {}, [](app::VeskModel& m) { return second(m).rating == 3; }},
        KeyCase{"five stars", Qt::Key_5, {}, [](app::VeskModel& m) { return second(m).rating == 5; }},
        KeyCase{"pick", Qt::Key_P, {}, [](app::VeskModel& m) { return second(m).flag == 1; }},
        KeyCase{"reject", Qt::Key_X, {}, [](app::VeskModel& m) { return second(m).flag == -1; }},
        KeyCase{"red label", Qt::Key_6, {}, [](app::VeskModel& m) { return second(m).label == "red"; }},
        KeyCase{"blue label", Qt::Key_9, {}, [](app::VeskModel& m) { return second(m).label == "blue"; }},
        KeyCase{"next photo",
                Qt::Key_Right,
                {},
                [](app::VeskModel& m) { return m.currentID() == m.photos().at(2).id; }},
        KeyCase{"previous photo",
                Qt::Key_Left,
                {},
                [](app::VeskModel& m) { return m.currentID() == m.photos().at(0).id; }},
        KeyCase{"develop", Qt::Key_D, {}, [](app::VeskModel& m) { return m.module() == Module::develop; }},
        KeyCase{"larger cells", Qt::Key_Plus, {}, [](app::VeskModel& m) { return m.gridSize() == 190; }},
        KeyCase{"smaller cells", Qt::Key_Minus, {}, [](app::VeskModel& m) { return m.gridSize() == 150; }},
        KeyCase{"select all", Qt::Key_A, Qt::ControlModifier,
                [](app::VeskModel& m) { return m.selection().size() == 4; }},
        KeyCase{"remove", Qt::Key_Delete, {}, [](app::VeskModel& m) { return m.photos().size() == 3; }}),
    [](const auto& info) {
      std::string name = info.param.name;
      std::replace(name.begin(), name.end(), ' ', '_');
      return name;
    });

TEST_F(WindowTest, DevelopKeysSwitchItsDisplayAndGoBack) {
  writePhotos(2);
  open();
  QWidget* grid = window->libraryView()->grid();
  QTest::keyClick(grid, Qt::Key_D);
  ASSERT_EQ(model->module(), Module::develop);
  QWidget* focus = QApplication::focusWidget() ? QApplication::focusWidget() : window.get();
  QTest::keyClick(focus, Qt::Key_Backslash);
  EXPECT_EQ(model->compare(), CompareMode::sideBySide);
  QTest::keyClick(focus, Qt::Key_Backslash);
  EXPECT_EQ(model->compare(), CompareMode::split);
  QTest::keyClick(focus, Qt::Key_J);
  EXPECT_TRUE(model->showClipping());
  QTest::keyClick(focus, Qt::Key_Z);
  EXPECT_TRUE(model->closeUp());
  QTest::keyClick(focus, Qt::Key_G);
  EXPECT_EQ(model->module(), Module::library);
}

TEST_F(WindowTest, LabelKeyTwiceClearsTheLabel) {
  writePhotos(2);
  open();
  model->select(idAt(0));
  QWidget* grid = window->libraryView()->grid();
  QTest::keyClick(grid, Qt::Key_7);
  ASSERT_EQ(model->photos()[0].label, "yellow");
  QTest::keyClick(grid, Qt::Key_7);
  EXPECT_EQ(model->photos()[0].label, "");
}

TEST_F(WindowTest, EveryShortcutIsAlsoAMenuCommand) {
  open();
  for (QAction* action : window->actions()) {
    if (action->shortcut().isEmpty()) continue;
    EXPECT_FALSE(action->associatedObjects().size() < 2) << action->text().toStdString() << " is in no menu";
  }
  for (const char* name : {"importFolder", "export", "undo", "redo", "copySettings", "pasteSettings",
                           "syncSettings", "selectAll", "removeFromLibrary", "fullScreen", "help", "about"}) {
    EXPECT_NE(window->command(QString::fromLatin1(name)), nullptr) << name;
  }
}

TEST_F(WindowTest, TheAboutBoxShowsTheBackupMadeAfterTheWindowOpened) {
  open();
  const BackupResult made = CatalogBackups::create(dir / "lib");
  window->command(QStringLiteral("about"))->trigger();
  QLabel* shown = nullptr;
  for (QWidget* top : QApplication::topLevelWidgets()) {
    if (auto* label = top->findChild<QLabel*>(QStringLiteral("backupState"))) shown = label;
  }
  ASSERT_NE(shown, nullptr);
  EXPECT_TRUE(shown->text().contains(QString::fromStdString(made.backup.name)))
      << shown->text().toStdString();
  EXPECT_TRUE(shown->text().contains(QStringLiteral("Backups kept: 1"))) << shown->text().toStdString();
  shown->window()->close();
}

// ---- the grid --------------------------------------------------------------------------------

class GridTest : public WindowTest {
 protected:
  void click(int row, Qt::KeyboardModifiers modifiers = {}) {
    ui::PhotoGridView* grid = window->libraryView()->grid();
    const QRect cell = grid->visualRect(grid->model()->index(row, 0));
    ASSERT_TRUE(cell.isValid());
    QTest::mouseClick(grid->viewport(), Qt::LeftButton, modifiers, cell.center());
  }
  app::VeskModel::IDSet rows(std::initializer_list<int> list) const {
    app::VeskModel::IDSet ids;
    for (int row : list) ids.insert(idAt(row));
    return ids;
  }
};

TEST_F(GridTest, ClicksSelectAsTheModelSays) {
  writePhotos(6);
  open();
  click(1);
  EXPECT_EQ(model->selection(), rows({1}));
  click(3, Qt::ControlModifier);
  EXPECT_EQ(model->selection(), rows({1, 3}));
  click(1, Qt::ControlModifier);
  EXPECT_EQ(model->selection(), rows({3}));
  EXPECT_EQ(model->currentID(), idAt(1));
  click(4, Qt::ShiftModifier);
  EXPECT_EQ(model->selection(), rows({1, 2, 3, 4}));
  click(0, Qt::ShiftModifier);
  EXPECT_EQ(model->selection(), rows({0, 1, 2, 3, 4}));
  click(5);
  EXPECT_EQ(model->selection(), rows({5}));
  EXPECT_EQ(model->currentID(), idAt(5));
}

TEST_F(GridTest, FollowsFiltersAndRatings) {
  writePhotos(5);
  open();
  ui::PhotoGridView* grid = window->libraryView()->grid();
  ASSERT_EQ(grid->model()->rowCount(), 5);
  model->select(idAt(2));
  QTest::keyClick(grid, Qt::Key_4);
  EXPECT_EQ(grid->model()->index(2, 0).data(app::PhotoListModel::ratingRole).toInt(), 4);

  LibraryQuery q = model->query();
  q.minRating = 3;
  model->setQuery(q);
  EXPECT_EQ(grid->model()->rowCount(), 1);
  EXPECT_EQ(grid->model()->index(0, 0).data(app::PhotoListModel::idRole).toLongLong(), model->photos()[0].id);
}

TEST_F(GridTest, RedrawsWhenThumbnailsChange) {
  writePhotos(3);
  open();
  ui::PhotoGridView* grid = window->libraryView()->grid();
  QTest::qWait(50);
  int paints = 0;
  struct Counter : QObject {
    int* n;
    explicit Counter(int* count) : n(count) {}
    bool eventFilter(QObject*, QEvent* e) override {
      if (e->type() == QEvent::Paint) ++*n;
      return false;
    }
  } counter(&paints);
  grid->viewport()->installEventFilter(&counter);
  emit model->thumbVersionChanged();
  EXPECT_TRUE(QTest::qWaitFor([&] { return paints > 0; }, 2000));
  grid->viewport()->removeEventFilter(&counter);
}

TEST_F(GridTest, CellSizeFollowsGridSizeAndFillsTheRow) {
  writePhotos(3);
  open();
  ui::PhotoGridView* grid = window->libraryView()->grid();
  model->setGridSize(250);
  const int width = grid->viewport()->width();
  const QSize cell = grid->gridSize();
  EXPECT_GE(cell.width(), 250);
  EXPECT_EQ(width / cell.width(), width / 250) << "whole columns share the width";
  EXPECT_EQ(cell.height(), ui::PhotoGridView::cellSizeFor(250, false).height());
}

TEST_F(GridTest, EmptyLibrarySaysHowToImport) {
  open();
  auto* stack = window->libraryView()->findChild<QStackedWidget*>();
  ASSERT_NE(stack, nullptr);
  auto* label = qobject_cast<QLabel*>(stack->currentWidget());
  ASSERT_NE(label, nullptr) << "the empty state shows instead of the grid";
  EXPECT_TRUE(label->text().contains(QStringLiteral("Import Folder")));
  // Keys with nothing to act on do nothing and break nothing.
  for (int key : {Qt::Key_3, Qt::Key_P, Qt::Key_Right, Qt::Key_D, Qt::Key_Delete}) {
    QTest::keyClick(window.get(), Qt::Key(key));
  }
  EXPECT_EQ(model->module(), Module::library);
}

TEST(PhotoIdDrag, CarriesIdsAndIgnoresGarbage) {
  EXPECT_EQ(ui::decodePhotoIds(ui::encodePhotoIds({3, 7, 9000000000LL})),
            (std::vector<std::int64_t>{3, 7, 9000000000LL}));
  EXPECT_EQ(ui::decodePhotoIds("12\nx\n\n-4\n0\n 5 \n99999999999999999999999\n"),
            (std::vector<std::int64_t>{12, 5}));
  EXPECT_TRUE(ui::decodePhotoIds(QByteArray()).empty());
}

}  // namespace
}  // namespace lumivale::test
