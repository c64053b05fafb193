#pragma once
// The Library grid and the Develop filmstrip: list views over the model's
// `PhotoListModel`, drawn by one delegate.
//
// The views never keep their own selection: what is selected and current
// comes from the model's roles, and a click is handed to `VeskModel::select`.
// Layout is uniform and wrapped in list mode, so 100,000 rows cost one size
// computation, and only visible cells are ever painted; a thumbnail that is
// not cached yet is asked for and the cell repaints when it arrives.

#include <QCache>
#include <QListView>
#include <QPixmap>
#include <QStyledItemDelegate>
#include <cstdint>
#include <vector>

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

/// The drag payload of photos: their ids, one decimal number per line.
inline constexpr const char* photoIdsMime = "application/x-lumivale-photo-ids";
QByteArray encodePhotoIds(const std::vector<std::int64_t>& ids);
std::vector<std::int64_t> decodePhotoIds(const QByteArray& data);

class PhotoCellDelegate : public QStyledItemDelegate {
  Q_OBJECT
 public:
  /// `compact` cells (the filmstrip) show the picture and the marks only.
  explicit PhotoCellDelegate(bool compact, QObject* parent = nullptr);
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  void setCellSize(QSize size) { cellSize_ = size; }
  /// Forgets every scaled picture (thumbnails were remade).
  void clearCache() { scaled_.clear(); }

 private:
  bool compact_;
  QSize cellSize_{170, 194};
  /// Thumbnails scaled to the cell, keyed by id, edited mark, size and pixel ratio.
  mutable QCache<QString, QPixmap> scaled_{600};
};

class PhotoGridView : public QListView {
  Q_OBJECT
 public:
  /// A wrapped grid (Library) or, with `filmstrip`, one scrolling row.
  PhotoGridView(app::VeskModel& model, bool filmstrip, QWidget* parent = nullptr);
  /// The cell size for a `gridSize` in points.
  static QSize cellSizeFor(double gridSize, bool filmstrip);
  /// Keeps the current photo in view.
  void revealCurrent();

 signals:
  /// A double click on a photo.
  void photoActivated(std::int64_t id);

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void applyCellSize();
  std::int64_t idAt(const QPoint& pos) const;

  app::VeskModel& model_;
  bool filmstrip_;
  PhotoCellDelegate* delegate_;
  QPoint pressPos_;
  bool pressOnSelected_ = false;
};

}  // namespace lumivale::ui
