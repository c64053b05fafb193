#pragma once
// One develop slider: title, slider and value field. A drag reports every
// value with `moved` and ends with one `committed`, so that a drag becomes
// one history step; keys and the wheel commit once they have been still for
// a moment; a double-click puts the default back and commits.

#include <QWidget>

class QLabel;
class QLineEdit;
class QSlider;
class QTimer;

namespace lumivale::ui {

class SliderRow : public QWidget {
  Q_OBJECT
 public:
  /// Values from `min` to `max` shown with `decimals` digits after the point.
  SliderRow(const QString& title, double min, double max, double defaultValue, int decimals = 0,
            QWidget* parent = nullptr);

  double value() const;
  double defaultValue() const { return default_; }
  /// Shows `value` without reporting it; ignored while the user drags.
  void setValue(double value);
  QSlider* slider() const { return slider_; }
  /// Quiet time after a key or wheel change before it is committed.
  static constexpr int settleMS = 450;

 signals:
  void moved(double value);
  void committed();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void showText(double value);
  void resetToDefault();

  double min_, max_, default_;
  int decimals_;
  double scale_;
  QLabel* title_;
  QSlider* slider_;
  QLineEdit* field_;
  QTimer* settle_;
  bool showing_ = false;
};

}  // namespace lumivale::ui
