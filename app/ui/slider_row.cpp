#include "app/ui/slider_row.h"

#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QSlider>
#include <QTimer>
#include <cmath>

namespace lumivale::ui {

SliderRow::SliderRow(const QString& title, double min, double max, double defaultValue, int decimals,
                     QWidget* parent)
    : QWidget(parent),
      min_(min),
      max_(max),
      default_(defaultValue),
      decimals_(decimals),
      scale_(std::pow(10.0, decimals)) {
  auto* layout = new QGridLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setHorizontalSpacing(6);
  layout->setVerticalSpacing(0);
  title_ = new QLabel(title);
  title_->setToolTip(tr("Double-click to reset"));
  slider_ = new QSlider(Qt::Horizontal);
  slider_->setRange(int(std::lround(min * scale_)), int(std::lround(max * scale_)));
  slider_->setSingleStep(std::max(1, int(std::lround((max - min) * scale_ / 200))));
  slider_->setPageStep(std::max(1, int(std::lround((max - min) * scale_ / 20))));
  slider_->setToolTip(title_->toolTip());
  slider_->setAccessibleName(title);
  field_ = new QLineEdit;
  field_->setFixedWidth(52);
  field_->setAlignment(Qt::AlignRight);
  field_->setFrame(false);
  field_->setStyleSheet(QStringLiteral("background: transparent;"));
  layout->addWidget(title_, 0, 0);
  layout->addWidget(field_, 0, 1);
  layout->addWidget(slider_, 1, 0, 1, 2);
  settle_ = new QTimer(this);
  settle_->setSingleShot(true);
  settle_->setInterval(settleMS);

  slider_->installEventFilter(this);
  title_->installEventFilter(this);
  connect(slider_, &QSlider::valueChanged, this, [this](int raw) {
    if (showing_) return;
    const double v = raw / scale_;
    showText(v);
    emit moved(v);
    if (!slider_->isSliderDown()) settle_->start();
  });
  connect(slider_, &QSlider::sliderReleased, this, [this] {
    settle_->stop();
    emit committed();
  });
  connect(settle_, &QTimer::timeout, this, &SliderRow::committed);
  connect(field_, &QLineEdit::editingFinished, this, [this] {
    bool ok = false;
    const double typed = field_->text().toDouble(&ok);
    if (!ok || !std::isfinite(typed)) {
      showText(value());
      return;
    }
    const double v = std::clamp(typed, min_, max_);
    if (std::abs(v - value()) < 0.5 / scale_) {
      showText(v);
      return;
    }
    setValue(v);
    emit moved(v);
    emit committed();
  });
  setValue(defaultValue);
}

double SliderRow::value() const { return slider_->value() / scale_; }

void SliderRow::setValue(double value) {
  if (slider_->isSliderDown() || settle_->isActive()) return;
  if (!std::isfinite(value)) value = default_;
  showing_ = true;
  slider_->setValue(int(std::lround(std::clamp(value, min_, max_) * scale_)));
  showing_ = false;
  showText(value);
}

void SliderRow::showText(double value) {
  QString text = QString::number(value, 'f', decimals_);
  if (value > 0 && min_ < 0) text.prepend(QLatin1Char('+'));
  if (!field_->hasFocus()) field_->setText(text);
}

void SliderRow::resetToDefault() {
  settle_->stop();
  showing_ = true;
  slider_->setValue(int(std::lround(default_ * scale_)));
  showing_ = false;
  showText(default_);
  emit moved(default_);
  emit committed();
}

bool SliderRow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::MouseButtonDblClick) {
    resetToDefault();
    return true;
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace lumivale::ui
