#pragma once
// The Library module: catalog panel, filter bar over the grid (or the empty
// state when there is nothing to show) and the info panel.

#include <QWidget>

class QLabel;
class QSplitter;
class QStackedWidget;

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

class CatalogPanel;
class FilterBar;
class InfoPanel;
class PhotoGridView;

class LibraryView : public QWidget {
  Q_OBJECT
 public:
  explicit LibraryView(app::VeskModel& model, QWidget* parent = nullptr);
  PhotoGridView* grid() const { return grid_; }
  CatalogPanel* catalogPanel() const { return catalog_; }
  FilterBar* filterBar() const { return filters_; }
  QSplitter* splitter() const { return splitter_; }

 signals:
  void newCollectionRequested();

 private:
  void refreshEmptyState();

  app::VeskModel& model_;
  QSplitter* splitter_;
  CatalogPanel* catalog_;
  FilterBar* filters_;
  QLabel* title_;
  QStackedWidget* stack_;
  PhotoGridView* grid_;
  QLabel* empty_;
  InfoPanel* info_;
};

}  // namespace lumivale::ui
