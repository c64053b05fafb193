#include "app/ui/library_panels.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMimeData>
#include <QToolButton>
#include <QTreeWidget>

#include "app/ui/library_view.h"
#include "app/ui/photo_grid.h"
#include "tests/app/ui/window_fixture.h"

namespace lumivale::test {
namespace {

using Kind = ui::CatalogPanel::Kind;

class LibraryPanelsTest : public WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    writePhotos(4);
    open();
  }

  ui::CatalogPanel* catalog() const { return window->libraryView()->catalogPanel(); }

  /// The first entry of `kind` (titled `title` when given).
  QTreeWidgetItem* entry(Kind kind, const QString& title = {}) const {
    for (QTreeWidgetItemIterator it(catalog()); *it; ++it) {
      if ((*it)->data(0, ui::CatalogPanel::kindRole).toInt() == int(kind) &&
          (title.isEmpty() || (*it)->text(0) == title)) {
        return *it;
      }
    }
    ADD_FAILURE() << "no catalog entry " << title.toStdString();
    return nullptr;
  }

  void clickEntry(QTreeWidgetItem* item) {
    ASSERT_NE(item, nullptr);
    catalog()->scrollToItem(item);
    QTest::mouseClick(catalog()->viewport(), Qt::LeftButton, {}, catalog()->visualItemRect(item).center());
  }

  void drop(QTreeWidgetItem* item, const std::vector<std::int64_t>& ids) {
    auto* mime = new QMimeData;
    mime->setData(QString::fromLatin1(ui::photoIdsMime), ui::encodePhotoIds(ids));
    const QPointF at = catalog()->visualItemRect(item).center();
    QDragEnterEvent enter(at.toPoint(), Qt::CopyAction, mime, Qt::LeftButton, {});
    QApplication::sendEvent(catalog()->viewport(), &enter);
    QDragMoveEvent move(at.toPoint(), Qt::CopyAction, mime, Qt::LeftButton, {});
    QApplication::sendEvent(catalog()->viewport(), &move);
    QDropEvent event(at, Qt::CopyAction, mime, Qt::LeftButton, {});
    QApplication::sendEvent(catalog()->viewport(), &event);
    delete mime;
  }
};

TEST_F(LibraryPanelsTest, CatalogEntriesScopeTheGrid) {
  QTreeWidgetItem* all = entry(Kind::all);
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(all->text(1), QStringLiteral("4"));
  QTreeWidgetItem* folder = entry(Kind::folder, QStringLiteral("photos"));
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(folder->text(1), QStringLiteral("4"));

  clickEntry(entry(Kind::edited));
  EXPECT_TRUE(model->query().editedOnly);
  EXPECT_TRUE(model->photos().empty());

  clickEntry(entry(Kind::folder, QStringLiteral("photos")));
  EXPECT_EQ(model->query().folder, (dir / "photos").string());
  EXPECT_FALSE(model->query().editedOnly);
  EXPECT_EQ(model->photos().size(), 4u);

  model->select(idAt(0));
  model->createCollection("Best", true);
  clickEntry(entry(Kind::collection, QStringLiteral("Best")));
  EXPECT_EQ(model->catalogTitle(), QStringLiteral("Best"));
  EXPECT_EQ(model->photos().size(), 1u);

  clickEntry(entry(Kind::all));
  EXPECT_EQ(model->photos().size(), 4u);
}

TEST_F(LibraryPanelsTest, KeywordEntryFindsItsPhotosEvenWithSpaces) {
  model->select(idAt(1));
  model->addKeywords(QStringLiteral("new york"));
  clickEntry(entry(Kind::keyword, QStringLiteral("new york")));
  ASSERT_EQ(model->photos().size(), 1u);
  EXPECT_EQ(model->photos()[0].id, idAt(0)) << "the one photo with the keyword";
}

TEST_F(LibraryPanelsTest, DroppingPhotosOnACollectionAddsThemOnce) {
  model->select(idAt(0));
  model->createCollection("Trip", true);
  QTreeWidgetItem* trip = entry(Kind::collection, QStringLiteral("Trip"));
  ASSERT_NE(trip, nullptr);
  drop(trip, {idAt(0), idAt(2)});
  ASSERT_EQ(model->collections().size(), 1u);
  EXPECT_EQ(model->collections()[0].count, 2) << "a photo already in it stays in it";
  drop(entry(Kind::collection, QStringLiteral("Trip")), {idAt(2), 424242});
  EXPECT_EQ(model->collections()[0].count, 2) << "unknown ids change nothing";
}

TEST_F(LibraryPanelsTest, FilterBarWritesTheQuery) {
  ui::FilterBar* bar = window->libraryView()->filterBar();
  auto combos = bar->findChildren<QComboBox*>();
  ASSERT_EQ(combos.size(), 3u);  // rating, flag, sort
  model->select(idAt(0));
  model->setRating(4);

  combos[0]->setCurrentIndex(3);
  emit combos[0]->activated(3);
  EXPECT_EQ(model->query().minRating, 3);
  EXPECT_EQ(model->photos().size(), 1u);

  combos[2]->setCurrentIndex(2);
  emit combos[2]->activated(2);
  EXPECT_EQ(model->query().sort, allSortOrders()[2]);

  for (QToolButton* b : bar->findChildren<QToolButton*>()) {
    if (b->property("labelKey").toString() == QStringLiteral("red")) b->click();
  }
  EXPECT_EQ(model->query().labels, std::set<std::string>{"red"});

  bar->searchField()->setFocus();
  QTest::keyClicks(bar->searchField(), QStringLiteral("iso:>800"));
  QTest::keyClick(bar->searchField(), Qt::Key_Return);
  EXPECT_EQ(model->query().text, "iso:>800");
  EXPECT_EQ(model->query().minRating, 3) << "the other filters stay";
}

TEST_F(LibraryPanelsTest, TypingInTheSearchFieldIsNotAShortcut) {
  model->select(idAt(0));
  ui::FilterBar* bar = window->libraryView()->filterBar();
  bar->searchField()->setFocus();
  QTest::keyClicks(bar->searchField(), QStringLiteral("p3x"));
  EXPECT_EQ(model->photos()[0].rating, 0);
  EXPECT_EQ(model->photos()[0].flag, 0);
}

TEST_F(LibraryPanelsTest, ManyKeywordsAndLongNamesStayUsable) {
  QStringList words;
  for (int i = 0; i < 2000; ++i) words << QStringLiteral("keyword %1").arg(i);
  words << QString(600, QLatin1Char('x'));
  model->select(idAt(0));
  model->addKeywords(words.join(QLatin1Char(',')));
  model->createCollection(std::string(500, 'c'), false);
  int keywords = 0;
  for (QTreeWidgetItemIterator it(catalog()); *it; ++it) {
    if ((*it)->data(0, ui::CatalogPanel::kindRole).toInt() == int(Kind::keyword)) ++keywords;
  }
  EXPECT_EQ(keywords, 2001);
  EXPECT_LE(catalog()->header()->sectionSize(0), catalog()->viewport()->width()) << "long names are elided";
}

TEST_F(LibraryPanelsTest, RemovalAsksAndCancelKeepsThePhotos) {
  QStringList asked;
  window->confirm = [&](const QString& message, const QString& informative, const QString&, const QString&) {
    asked << message << informative;
    return false;
  };
  model->select(idAt(0));
  model->select(idAt(1), true);
  QTest::keyClick(window->libraryView()->grid(), Qt::Key_Delete);
  ASSERT_EQ(asked.size(), 2);
  EXPECT_EQ(asked[0], QStringLiteral("Remove 2 photos from the library?"));
  EXPECT_TRUE(asked[1].contains(QStringLiteral("on this computer")));
  EXPECT_EQ(model->photos().size(), 4u);
}

}  // namespace
}  // namespace lumivale::test
