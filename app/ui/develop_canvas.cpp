#include "app/ui/develop_canvas.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "app/model/vesk_model.h"
#include "app/ui/theme.h"

namespace lumivale::ui {

using app::CompareMode;
using app::DevTool;

namespace {

constexpr double margin = 14;
constexpr double handleRadius = 6;

QRectF fitted(QSizeF image, const QRectF& area) {
  if (image.isEmpty() || area.isEmpty()) return {};
  const double scale = std::min(area.width() / image.width(), area.height() / image.height());
  const QSizeF size = image * scale;
  return QRectF(area.center() - QPointF(size.width() / 2, size.height() / 2), size);
}

double distance(QPointF a, QPointF b) { return std::hypot(a.x() - b.x(), a.y() - b.y()); }

QPointF cropHandlePoint(const QRectF& r, int i) {
  switch (i) {
    case 0:
      return r.topLeft();
    case 1:
      return {r.center().x(), r.top()};
    case 2:
      return r.topRight();
    case 3:
      return {r.right(), r.center().y()};
    case 4:
      return r.bottomRight();
    case 5:
      return {r.center().x(), r.bottom()};
    case 6:
      return r.bottomLeft();
    default:
      return {r.left(), r.center().y()};
  }
}

}  // namespace

DevelopCanvas::DevelopCanvas(app::VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setMouseTracking(true);
  setMinimumSize(320, 240);
  setAttribute(Qt::WA_OpaquePaintEvent);
  auto repaint = [this] { update(); };
  connect(&model, &app::VeskModel::previewChanged, this, repaint);
  connect(&model, &app::VeskModel::beforeImageChanged, this, repaint);
  connect(&model, &app::VeskModel::compareChanged, this, repaint);
  connect(&model, &app::VeskModel::toolChanged, this, [this] {
    setCursor(model_.tool() == DevTool::whiteBalance ? Qt::CrossCursor
              : model_.tool() == DevTool::brush      ? Qt::BlankCursor
                                                     : Qt::ArrowCursor);
    update();
  });
  connect(&model, &app::VeskModel::settingsChanged, this, repaint);
  connect(&model, &app::VeskModel::selectedMaskChanged, this, repaint);
  connect(&model, &app::VeskModel::brushSizeChanged, this, repaint);
  connect(&model, &app::VeskModel::loadingOriginalChanged, this, repaint);
  connect(&model, &app::VeskModel::closeUpChanged, this, [this] {
    pan_ = {};
    update();
  });
}

QRectF DevelopCanvas::imageRect() const {
  const QImage& preview = model_.preview();
  if (preview.isNull()) return {};
  QRectF area = QRectF(rect()).adjusted(margin, margin, -margin, -margin);
  if (model_.compare() == CompareMode::sideBySide) area.setLeft(area.center().x() + margin / 2);
  if (model_.closeUp() && model_.compare() != CompareMode::sideBySide) {
    const QSizeF size = QSizeF(preview.size()) / devicePixelRatioF();
    return QRectF(QRectF(rect()).center() + pan_ - QPointF(size.width() / 2, size.height() / 2), size);
  }
  return fitted(QSizeF(preview.size()), area);
}

QRectF DevelopCanvas::beforeRect() const {
  if (model_.compare() != CompareMode::sideBySide) return {};
  const QImage& shown = model_.beforeImage().isNull() ? model_.preview() : model_.beforeImage();
  QRectF area = QRectF(rect()).adjusted(margin, margin, -margin, -margin);
  area.setRight(area.center().x() - margin / 2);
  return fitted(QSizeF(shown.size()), area);
}

Point DevelopCanvas::toUnit(QPointF p) const {
  const QRectF r = imageRect();
  if (r.isEmpty()) return {};
  return {(p.x() - r.left()) / r.width(), (p.y() - r.top()) / r.height()};
}

QPointF DevelopCanvas::fromUnit(Point u) const {
  const QRectF r = imageRect();
  return {r.left() + u.x * r.width(), r.top() + u.y * r.height()};
}

std::optional<QPointF> DevelopCanvas::sourceToWidget(Point sourceUnit) const {
  const auto geometry = model_.displayGeometry();
  if (!geometry) return std::nullopt;
  return fromUnit(geometry->sourceToView(sourceUnit));
}

std::optional<Point> DevelopCanvas::widgetToSource(QPointF p) const { return model_.viewToSource(toUnit(p)); }

double DevelopCanvas::brushRadiusPx() const {
  const auto geometry = model_.displayGeometry();
  const QRectF r = imageRect();
  if (!geometry || r.isEmpty() || geometry->crop.width <= 0) return 0;
  const double longSide = std::max(geometry->source.width, geometry->source.height);
  return model_.brushSize() * longSide * r.width() / geometry->crop.width;
}

void DevelopCanvas::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), theme::gridBackground);
  p.setRenderHint(QPainter::SmoothPixmapTransform);
  const QImage& preview = model_.preview();
  if (preview.isNull()) {
    p.setPen(theme::dimText);
    QString text = model_.current() ? (model_.loadingOriginal() ? tr("Loading…") : model_.status())
                                    : tr("Choose a photo in the Library (G) to develop it.");
    p.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, text);
    return;
  }
  const QRectF after = imageRect();
  p.drawImage(after, preview);

  const QImage& before = model_.beforeImage();
  if (model_.compare() == CompareMode::sideBySide) {
    const QRectF b = beforeRect();
    if (!before.isNull()) p.drawImage(b, before);
    QFont f = font();
    f.setPixelSize(12);
    p.setFont(f);
    p.setPen(QColor(0xf0, 0xf0, 0xf2));
    const QRectF captionB(b.left(), b.top() - margin + 1, b.width(), margin - 1);
    const QRectF captionA(after.left(), after.top() - margin + 1, after.width(), margin - 1);
    p.drawText(captionB.translated(0, 0), Qt::AlignLeft | Qt::AlignVCenter, tr("Before"));
    p.drawText(captionA, Qt::AlignLeft | Qt::AlignVCenter, tr("After"));
  } else if (model_.compare() == CompareMode::split && !before.isNull()) {
    const double x = after.left() + split_ * after.width();
    p.save();
    p.setClipRect(QRectF(after.left(), after.top(), x - after.left(), after.height()));
    p.drawImage(after, before);
    p.restore();
    p.setPen(QPen(QColor(255, 255, 255, 220), 1.5));
    p.drawLine(QPointF(x, after.top()), QPointF(x, after.bottom()));
    p.setBrush(QColor(255, 255, 255, 230));
    p.drawEllipse(QPointF(x, after.center().y()), 7, 7);
    QFont f = font();
    f.setPixelSize(12);
    p.setFont(f);
    p.setPen(Qt::white);
    p.drawText(QRectF(after.left() + 8, after.top() + 6, 80, 18), tr("Before"));
    p.drawText(QRectF(x + 8, after.top() + 6, 80, 18), tr("After"));
  }

  p.setRenderHint(QPainter::Antialiasing);
  if (model_.tool() == DevTool::crop) drawCrop(p, after);
  if (model_.tool() == DevTool::linear || model_.tool() == DevTool::radial) drawGradient(p);
  if (model_.tool() == DevTool::brush && hover_) {
    const double r = brushRadiusPx();
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(QColor(0, 0, 0, 140), 3));
    p.drawEllipse(*hover_, r, r);
    p.setPen(QPen(model_.brushErase() ? QColor(0xff, 0x9c, 0x90) : QColor(255, 255, 255), 1.2));
    p.drawEllipse(*hover_, r, r);
    const double inner = r * (1 - std::clamp(model_.brushFeather(), 0.0, 1.0));
    if (inner > 2) {
      p.setPen(QPen(QColor(255, 255, 255, 130), 1, Qt::DashLine));
      p.drawEllipse(*hover_, inner, inner);
    }
  }
}

void DevelopCanvas::drawCrop(QPainter& p, const QRectF& image) const {
  const CropRect& c = model_.settings().crop;
  const QRectF crop(image.left() + c.x * image.width(), image.top() + c.y * image.height(),
                    c.w * image.width(), c.h * image.height());
  QPainterPath outside;
  outside.addRect(image);
  outside.addRect(crop);
  p.fillPath(outside, QColor(0, 0, 0, 140));
  p.setPen(QPen(QColor(255, 255, 255, 90), 1));
  for (int i = 1; i < 3; ++i) {
    const double x = crop.left() + crop.width() * i / 3, y = crop.top() + crop.height() * i / 3;
    p.drawLine(QPointF(x, crop.top()), QPointF(x, crop.bottom()));
    p.drawLine(QPointF(crop.left(), y), QPointF(crop.right(), y));
  }
  p.setPen(QPen(Qt::white, 1.5));
  p.setBrush(Qt::NoBrush);
  p.drawRect(crop);
  p.setBrush(Qt::white);
  p.setPen(QPen(QColor(0, 0, 0, 160), 1));
  for (int i = 0; i < 8; ++i) {
    const QPointF h = cropHandlePoint(crop, i);
    p.drawRect(QRectF(h - QPointF(4.5, 4.5), QSizeF(9, 9)));
  }
}

void DevelopCanvas::drawGradient(QPainter& p) const {
  const auto id = model_.selectedMask();
  if (!id) return;
  for (const PhotoMask& m : model_.settings().masks) {
    if (m.id != *id) continue;
    auto handle = [&p](QPointF at, bool main) {
      p.setPen(QPen(QColor(0, 0, 0, 170), 1.5));
      p.setBrush(main ? theme::accent : QColor(255, 255, 255));
      p.drawEllipse(at, handleRadius, handleRadius);
    };
    if (m.kind == MaskKind::linear) {
      const auto a = sourceToWidget({m.x0, m.y0}), b = sourceToWidget({m.x1, m.y1});
      if (!a || !b) return;
      const QPointF d = *b - *a;
      const double len = std::max(1.0, std::hypot(d.x(), d.y()));
      const QPointF n(-d.y() / len * 2000, d.x() / len * 2000);
      p.setPen(QPen(QColor(255, 255, 255, 200), 1.2));
      p.drawLine(*a - n, *a + n);
      p.setPen(QPen(QColor(255, 255, 255, 200), 1.2, Qt::DashLine));
      p.drawLine(*b - n, *b + n);
      p.setPen(QPen(QColor(255, 255, 255, 120), 1));
      p.drawLine(*a, *b);
      handle(*a, true);
      handle(*b, false);
    } else if (m.kind == MaskKind::radial) {
      const auto c = sourceToWidget({m.cx, m.cy});
      const auto rx = sourceToWidget({m.cx + m.rx, m.cy});
      const auto ry = sourceToWidget({m.cx, m.cy + m.ry});
      if (!c || !rx || !ry) return;
      p.setBrush(Qt::NoBrush);
      p.setPen(QPen(QColor(255, 255, 255, 210), 1.3));
      p.drawEllipse(*c, distance(*c, *rx), distance(*c, *ry));
      const double inner = 1 - std::clamp(m.feather, 0.0, 1.0);
      p.setPen(QPen(QColor(255, 255, 255, 110), 1, Qt::DashLine));
      p.drawEllipse(*c, distance(*c, *rx) * inner, distance(*c, *ry) * inner);
      handle(*c, true);
      handle(*rx, false);
      handle(*ry, false);
    }
    return;
  }
}

std::optional<std::string> DevelopCanvas::toolMask(bool create) {
  const MaskKind kind = model_.tool() == DevTool::brush    ? MaskKind::brush
                        : model_.tool() == DevTool::linear ? MaskKind::linear
                                                           : MaskKind::radial;
  if (const auto id = model_.selectedMask()) {
    for (const PhotoMask& m : model_.settings().masks) {
      if (m.id == *id && m.kind == kind) return id;
    }
  }
  if (!create) return std::nullopt;
  return model_.addMask(kind);
}

void DevelopCanvas::mousePressEvent(QMouseEvent* event) {
  const QPointF pos = event->position();
  pressPos_ = pos;
  drag_ = Drag::none;
  if (event->button() != Qt::LeftButton || model_.preview().isNull()) return;
  const QRectF image = imageRect();
  if (model_.compare() == CompareMode::split &&
      std::abs(pos.x() - (image.left() + split_ * image.width())) < 8) {
    drag_ = Drag::split;
    return;
  }
  switch (model_.tool()) {
    case DevTool::whiteBalance:
      if (image.contains(pos)) {
        if (const auto source = widgetToSource(pos)) model_.sampleWhiteBalance(*source);
        model_.setTool(DevTool::none);
      }
      return;
    case DevTool::crop: {
      const CropRect& c = model_.settings().crop;
      const QRectF crop(image.left() + c.x * image.width(), image.top() + c.y * image.height(),
                        c.w * image.width(), c.h * image.height());
      cropHandle_ = -1;
      for (int i = 0; i < 8 && cropHandle_ < 0; ++i) {
        if (distance(cropHandlePoint(crop, i), pos) < 10) cropHandle_ = i;
      }
      if (cropHandle_ < 0 && crop.contains(pos)) cropHandle_ = 8;
      if (cropHandle_ >= 0) {
        cropAtPress_ = c;
        drag_ = Drag::crop;
      }
      return;
    }
    case DevTool::brush:
      if (toolMask(true)) {
        drag_ = Drag::brush;
        if (const auto source = widgetToSource(pos)) model_.paintDab(*source);
      }
      return;
    case DevTool::linear:
    case DevTool::radial: {
      const bool linear = model_.tool() == DevTool::linear;
      const auto existing = toolMask(false);
      const auto source = widgetToSource(pos);
      if (!source) return;
      maskHandle_ = -1;
      if (existing) {
        for (const PhotoMask& m : model_.settings().masks) {
          if (m.id != *existing) continue;
          std::vector<Point> handles =
              linear ? std::vector<Point>{{m.x0, m.y0}, {m.x1, m.y1}}
                     : std::vector<Point>{{m.cx, m.cy}, {m.cx + m.rx, m.cy}, {m.cx, m.cy + m.ry}};
          for (std::size_t i = 0; i < handles.size() && maskHandle_ < 0; ++i) {
            const auto at = sourceToWidget(handles[i]);
            if (at && distance(*at, pos) <= handleRadius + 4) maskHandle_ = int(i);
          }
        }
      }
      const auto id = existing ? existing : toolMask(true);
      if (!id) return;
      if (maskHandle_ < 0) {
        // A press away from the handles starts the gradient anew there.
        const Point s = *source;
        model_.changeMask(*id, [s, linear](PhotoMask& m) {
          if (linear) {
            m.x0 = m.x1 = s.x;
            m.y0 = m.y1 = s.y;
          } else {
            m.cx = s.x;
            m.cy = s.y;
          }
        });
        maskHandle_ = linear ? 1 : 3;
      }
      drag_ = Drag::handle;
      return;
    }
    case DevTool::none:
      if (model_.closeUp()) {
        drag_ = Drag::pan;
        panAtPress_ = pan_;
        setCursor(Qt::ClosedHandCursor);
      }
      return;
  }
}

void DevelopCanvas::mouseMoveEvent(QMouseEvent* event) {
  const QPointF pos = event->position();
  if (model_.tool() == DevTool::brush) {
    hover_ = pos;
    update();
  }
  const QRectF image = imageRect();
  switch (drag_) {
    case Drag::none:
      return;
    case Drag::pan:
      pan_ = panAtPress_ + (pos - pressPos_);
      clampPan();
      update();
      return;
    case Drag::split:
      if (image.width() > 0) split_ = std::clamp((pos.x() - image.left()) / image.width(), 0.0, 1.0);
      update();
      return;
    case Drag::brush:
      if (const auto source = widgetToSource(pos)) model_.paintDab(*source);
      return;
    case Drag::crop: {
      if (image.isEmpty()) return;
      const double dx = (pos.x() - pressPos_.x()) / image.width();
      const double dy = (pos.y() - pressPos_.y()) / image.height();
      const CropRect c0 = cropAtPress_;
      double l = c0.x, t = c0.y, r = c0.x + c0.w, b = c0.y + c0.h;
      const int h = cropHandle_;
      if (h == 8) {
        l += dx, r += dx, t += dy, b += dy;
      } else {
        if (h == 0 || h == 6 || h == 7) l = std::min(l + dx, r - 0.02);
        if (h == 2 || h == 3 || h == 4) r = std::max(r + dx, l + 0.02);
        if (h == 0 || h == 1 || h == 2) t = std::min(t + dy, b - 0.02);
        if (h == 4 || h == 5 || h == 6) b = std::max(b + dy, t + 0.02);
        // A fixed aspect keeps its shape: the dragged side leads and the
        // other follows, anchored on the opposite side.
        const auto geometry = model_.displayGeometry();
        const auto ratio =
            geometry ? CropAspect::ratio(model_.settings().cropAspect, geometry->frame) : std::nullopt;
        if (ratio && geometry->frame.width > 0) {
          const double unitRatio = *ratio * geometry->frame.height / geometry->frame.width;
          if (h == 1 || h == 5) {
            const double w = (b - t) * unitRatio, cx = (l + r) / 2;
            l = cx - w / 2;
            r = cx + w / 2;
          } else {
            const double hh = (r - l) / unitRatio;
            if (h == 0 || h == 2) {
              t = b - hh;
            } else if (h == 3 || h == 7) {
              const double cy = (t + b) / 2;
              t = cy - hh / 2;
              b = cy + hh / 2;
            } else {
              b = t + hh;
            }
          }
        }
      }
      CropRect next;
      next.x = l;
      next.y = t;
      next.w = r - l;
      next.h = b - t;
      if (h != 8 && (next.x < 0 || next.y < 0 || next.x + next.w > 1 || next.y + next.h > 1)) {
        // Keep the size within the frame rather than sliding the rectangle.
        next.w = std::min(next.w, 1.0 - std::max(0.0, next.x));
        next.h = std::min(next.h, 1.0 - std::max(0.0, next.y));
      }
      model_.setCrop(next.clamped());
      return;
    }
    case Drag::handle: {
      const auto id = model_.selectedMask();
      const auto source = widgetToSource(pos);
      if (!id || !source) return;
      const Point s = *source;
      const int handle = maskHandle_;
      model_.changeMask(*id, [s, handle](PhotoMask& m) {
        if (m.kind == MaskKind::linear) {
          if (handle == 0) {
            m.x0 = s.x, m.y0 = s.y;
          } else {
            m.x1 = s.x, m.y1 = s.y;
          }
        } else if (handle == 0) {
          m.cx = s.x, m.cy = s.y;
        } else if (handle == 1) {
          m.rx = std::max(0.005, std::abs(s.x - m.cx));
        } else if (handle == 2) {
          m.ry = std::max(0.005, std::abs(s.y - m.cy));
        } else {
          m.rx = std::max(0.005, std::abs(s.x - m.cx));
          m.ry = std::max(0.005, std::abs(s.y - m.cy));
        }
      });
      return;
    }
  }
}

void DevelopCanvas::mouseReleaseEvent(QMouseEvent*) {
  const Drag ended = drag_;
  drag_ = Drag::none;
  switch (ended) {
    case Drag::crop:
      model_.commit("Crop");
      break;
    case Drag::brush:
      model_.endStroke();
      break;
    case Drag::handle:
      model_.commit(model_.tool() == DevTool::linear ? "Linear Gradient" : "Radial Gradient");
      break;
    case Drag::pan:
      unsetCursor();
      break;
    default:
      break;
  }
}

void DevelopCanvas::leaveEvent(QEvent*) {
  hover_.reset();
  update();
}

void DevelopCanvas::wheelEvent(QWheelEvent* event) {
  if (!model_.closeUp()) return;
  pan_ += QPointF(event->angleDelta()) / 2;
  clampPan();
  update();
}

void DevelopCanvas::clampPan() {
  const QSizeF size = QSizeF(model_.preview().size()) / devicePixelRatioF();
  const double mx = std::max(0.0, (size.width() - width()) / 2 + margin);
  const double my = std::max(0.0, (size.height() - height()) / 2 + margin);
  pan_.setX(std::clamp(pan_.x(), -mx, mx));
  pan_.setY(std::clamp(pan_.y(), -my, my));
}

}  // namespace lumivale::ui
