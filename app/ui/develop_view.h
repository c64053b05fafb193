#pragma once
// The Develop module: tool bar, canvas and filmstrip on the left, the
// panels in a scrolling column on the right.

#include <QWidget>

class QComboBox;
class QLabel;
class QToolButton;

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

class DevelopCanvas;
class DevelopPanels;
class PhotoGridView;

class DevelopView : public QWidget {
  Q_OBJECT
 public:
  explicit DevelopView(app::VeskModel& model, QWidget* parent = nullptr);
  DevelopCanvas* canvas() const { return canvas_; }
  DevelopPanels* panels() const { return panels_; }
  PhotoGridView* filmstrip() const { return filmstrip_; }

 private:
  void refreshBar();

  app::VeskModel& model_;
  DevelopCanvas* canvas_;
  DevelopPanels* panels_;
  PhotoGridView* filmstrip_;
  QLabel* name_;
  QComboBox* compare_;
  QToolButton* closeUp_;
  QLabel* frameTime_;
};

}  // namespace lumivale::ui
