#pragma once
// The column of Develop panels, each a collapsible section, from the overall
// look down to the photo's history: histogram, presets, white balance and
// light, presence, curves, colour mixer, colour grading, detail and noise,
// lens, effects, crop and straighten, masks, history, snapshots.
//
// Every control writes through the model (`change` while it moves, `commit`
// with the control's name when the gesture ends) and is shown again from
// `settings` whenever they change, so undo, presets and pastes show at once.

#include <QWidget>
#include <functional>
#include <string>
#include <vector>

#include "engine/edit/edit_settings.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QToolButton;
class QVBoxLayout;

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

class SliderRow;

/// A titled section whose body folds away.
class CollapsibleSection : public QWidget {
  Q_OBJECT
 public:
  CollapsibleSection(const QString& title, QWidget* parent = nullptr);
  QVBoxLayout* body() const { return body_; }
  void setOpen(bool open);
  bool isOpen() const;

 private:
  QToolButton* header_;
  QWidget* content_;
  QVBoxLayout* body_;
};

/// The four histograms of the last preview, drawn over each other.
class HistogramView : public QWidget {
  Q_OBJECT
 public:
  explicit HistogramView(app::VeskModel& model, QWidget* parent = nullptr);
  QSize sizeHint() const override { return {280, 110}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  app::VeskModel& model_;
};

/// The point editor of the curve of `curveChannel`.
class CurveEditor : public QWidget {
  Q_OBJECT
 public:
  explicit CurveEditor(app::VeskModel& model, QWidget* parent = nullptr);
  QSize sizeHint() const override { return {260, 260}; }
  bool hasHeightForWidth() const override { return true; }
  int heightForWidth(int w) const override { return w; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  ToneCurve curve() const;
  void setCurve(const ToneCurve& curve);
  QRectF plot() const;
  QPointF toWidget(const CurvePoint& p) const;
  CurvePoint toCurve(QPointF p) const;
  int pointNear(QPointF p) const;

  app::VeskModel& model_;
  int dragging_ = -1;
};

/// A colour wheel: angle is hue, distance from the centre saturation.
class ColorWheel : public QWidget {
  Q_OBJECT
 public:
  explicit ColorWheel(QWidget* parent = nullptr);
  void setValue(double hue, double saturation);
  QSize sizeHint() const override { return {96, 96}; }

 signals:
  void moved(double hue, double saturation);
  void committed();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  void pick(QPointF p);
  double hue_ = 0, saturation_ = 0;
  bool dragging_ = false;
};

class DevelopPanels : public QWidget {
  Q_OBJECT
 public:
  explicit DevelopPanels(app::VeskModel& model, QWidget* parent = nullptr);
  /// The slider titled `title` (for tests and the screenshot tour).
  SliderRow* slider(const QString& title) const;
  /// Every section in order.
  const std::vector<CollapsibleSection*>& sections() const { return sections_; }

 private:
  struct Binding {
    SliderRow* row;
    std::function<double(const EditSettings&)> get;
  };
  CollapsibleSection* addSection(const QString& title, bool open);
  SliderRow* addSetting(QVBoxLayout* layout, const QString& title, double min, double max, int decimals,
                        std::function<double&(EditSettings&)> field);
  SliderRow* addMaskSetting(QVBoxLayout* layout, const QString& title, double min, double max, int decimals,
                            double MaskAdjust::*field);
  void buildPresets(QVBoxLayout* layout);
  void buildCurves(QVBoxLayout* layout);
  void buildMixer(QVBoxLayout* layout);
  void buildGrading(QVBoxLayout* layout);
  void buildCrop(QVBoxLayout* layout);
  void buildMasks(QVBoxLayout* layout);
  void refresh();
  void refreshMasks();
  void refreshHistory();
  void refreshSnapshots();
  void refreshPresets();
  const PhotoMask* selectedMask() const;

  app::VeskModel& model_;
  QVBoxLayout* column_;
  std::vector<CollapsibleSection*> sections_;
  std::vector<Binding> bindings_;
  std::vector<std::pair<SliderRow*, double MaskAdjust::*>> maskRows_;
  int mixerMode_ = 0;
  std::vector<SliderRow*> mixerRows_;
  struct Wheel {
    ColorWheel* wheel;
    GradeWheel EditSettings::*field;
  };
  std::vector<Wheel> wheels_;
  QCheckBox* blackAndWhite_ = nullptr;
  QCheckBox* lens_ = nullptr;
  QLabel* lensNote_ = nullptr;
  QComboBox* aspect_ = nullptr;
  QComboBox* curveChannel_ = nullptr;
  QListWidget* userPresets_ = nullptr;
  QListWidget* masks_ = nullptr;
  QWidget* maskControls_ = nullptr;
  QCheckBox* maskInvert_ = nullptr;
  SliderRow* maskOpacity_ = nullptr;
  QWidget* brushControls_ = nullptr;
  QListWidget* history_ = nullptr;
  QListWidget* snapshots_ = nullptr;
  QToolButton* cropTool_ = nullptr;
  QToolButton* wbPicker_ = nullptr;
};

}  // namespace lumivale::ui
