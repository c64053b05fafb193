#pragma once
// The panels around the Library grid: the catalog panel on the left, the
// filter bar above the grid and the info panel on the right. Each reads the
// model and calls its operations; none keeps state the model also keeps.

#include <QTreeWidget>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <vector>

#include "engine/catalog/library_query.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QSlider;
class QTableWidget;
class QTimer;
class QToolButton;

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

/// "All Photographs", edited photos, folders, collections and keywords.
/// Photos dropped on a collection are added to it.
class CatalogPanel : public QTreeWidget {
  Q_OBJECT
 public:
  explicit CatalogPanel(app::VeskModel& model, QWidget* parent = nullptr);
  /// Rebuilds the lists from the model.
  void refresh();

  /// What an entry of the tree stands for.
  enum class Kind { heading, all, edited, folder, collection, keyword };
  static constexpr int kindRole = Qt::UserRole + 1;
  static constexpr int valueRole = Qt::UserRole + 2;

 signals:
  void newCollectionRequested();

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragMoveEvent(QDragMoveEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  void activate(QTreeWidgetItem* item);
  QTreeWidgetItem* collectionAt(const QPoint& pos) const;
  void renameCollection(std::int64_t id, const QString& oldName);

  app::VeskModel& model_;
  bool refreshing_ = false;
};

/// Rating, flag and label filters, the search field with its help line,
/// the sort key and direction, and the grid size.
class FilterBar : public QWidget {
  Q_OBJECT
 public:
  explicit FilterBar(app::VeskModel& model, QWidget* parent = nullptr);
  /// Shows the model's query and grid size.
  void refresh();
  QLineEdit* searchField() const { return search_; }

 private:
  void changeQuery(const std::function<void(LibraryQuery&)>& body);

  app::VeskModel& model_;
  QComboBox* rating_;
  QComboBox* flag_;
  std::vector<QToolButton*> labels_;
  QLineEdit* search_;
  QTimer* searchDelay_;
  QComboBox* sort_;
  QToolButton* direction_;
  QSlider* size_;
};

/// The current photo: its details, keywords and collections.
class InfoPanel : public QWidget {
  Q_OBJECT
 public:
  explicit InfoPanel(app::VeskModel& model, QWidget* parent = nullptr);
  void refresh();

 private:
  void showDetails();
  void refreshKeywords();
  void refreshCollections();

  app::VeskModel& model_;
  QLabel* title_;
  QLabel* summary_;
  QTableWidget* details_;
  QListWidget* keywords_;
  QLineEdit* addKeyword_;
  QListWidget* collections_;
  std::int64_t shown_ = 0;
};

}  // namespace lumivale::ui
