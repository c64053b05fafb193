#pragma once
// The Develop canvas: the model's preview fitted to the widget, or shown at
// one image pixel per device pixel in close-up with panning, the before
// image beside it or under a split line, and the tools of `DevTool` drawn
// over it.
//
// Coordinates. The preview shows the photo as `displayGeometry` frames it
// (the whole frame while cropping). A widget point becomes a unit point of
// the shown preview (0 … 1, top-left origin) through `imageRect`, and the
// model maps that to the source with `viewToSource`; mask handles come back
// with the geometry's `sourceToView`. Crop rectangles are unit points of the
// oriented frame, which is what the preview shows while the crop tool is on.

#include <QPointF>
#include <QRectF>
#include <QWidget>
#include <optional>
#include <string>

#include "engine/edit/geometry.h"

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

class DevelopCanvas : public QWidget {
  Q_OBJECT
 public:
  explicit DevelopCanvas(app::VeskModel& model, QWidget* parent = nullptr);

  /// Where the (after) preview is drawn, in widget coordinates; empty
  /// without a preview.
  QRectF imageRect() const;
  /// Where the before image is drawn side by side; empty otherwise.
  QRectF beforeRect() const;
  /// A widget point as a unit point of the shown preview.
  Point toUnit(QPointF widgetPoint) const;
  QPointF fromUnit(Point unit) const;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;

 private:
  enum class Drag { none, pan, split, crop, brush, handle };
  /// The mask the tool works on, made when there is none of the tool's kind.
  std::optional<std::string> toolMask(bool create);
  std::optional<QPointF> sourceToWidget(Point sourceUnit) const;
  std::optional<Point> widgetToSource(QPointF widgetPoint) const;
  double brushRadiusPx() const;
  void drawCrop(QPainter& p, const QRectF& image) const;
  void drawGradient(QPainter& p) const;
  void clampPan();

  app::VeskModel& model_;
  Drag drag_ = Drag::none;
  QPointF pressPos_;
  QPointF pan_;  // close-up offset of the image centre from the widget centre
  QPointF panAtPress_;
  double split_ = 0.5;   // split line position, fraction of the image width
  int cropHandle_ = -1;  // 0…7 corners and edges, 8 inside
  CropRect cropAtPress_;
  int maskHandle_ = -1;
  std::optional<QPointF> hover_;
};

}  // namespace lumivale::ui
