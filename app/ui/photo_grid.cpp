#include "app/ui/photo_grid.h"

#include <QApplication>
#include <QDrag>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>
#include <algorithm>

#include "app/model/vesk_model.h"
#include "app/ui/theme.h"

namespace lumivale::ui {

using app::PhotoListModel;

QByteArray encodePhotoIds(const std::vector<std::int64_t>& ids) {
  QByteArray out;
  for (std::int64_t id : ids) out += QByteArray::number(qint64(id)) + '\n';
  return out;
}

std::vector<std::int64_t> decodePhotoIds(const QByteArray& data) {
  std::vector<std::int64_t> ids;
  for (const QByteArray& line : data.split('\n')) {
    bool ok = false;
    const qint64 id = line.trimmed().toLongLong(&ok);
    if (ok && id > 0) ids.push_back(id);
  }
  return ids;
}

namespace {

constexpr int footerHeight = 24;
constexpr int cellMargin = 4;

void drawStars(QPainter& p, QRect area, int rating, bool compact) {
  if (rating <= 0 && compact) return;
  QFont font = p.font();
  font.setPixelSize(compact ? 10 : 11);
  p.setFont(font);
  QString stars;
  for (int i = 1; i <= 5; ++i) stars += i <= rating ? QChar(0x2605) : QChar(0x00B7);
  p.setPen(rating > 0 ? QColor(0xf2, 0xf2, 0xf4) : theme::dimText);
  p.drawText(area, Qt::AlignLeft | Qt::AlignVCenter, stars);
}

void drawFlag(QPainter& p, QRect area, int flag) {
  if (flag == 0) return;
  p.save();
  p.setRenderHint(QPainter::Antialiasing);
  const QRectF r(area.right() - 16, area.top() + 4, 14, 14);
  if (flag > 0) {
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0xf4, 0xf4, 0xf6));
    QPainterPath pole;
    pole.addRect(r.left() + 2, r.top(), 1.6, r.height());
    QPainterPath cloth;
    cloth.moveTo(r.left() + 3.6, r.top());
    cloth.lineTo(r.right(), r.top() + 3.5);
    cloth.lineTo(r.left() + 3.6, r.top() + 7);
    cloth.closeSubpath();
    p.drawPath(pole.united(cloth));
  } else {
    p.setPen(QPen(theme::reject, 2.2, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(r.topLeft() + QPointF(2, 2), r.bottomRight() - QPointF(2, 2));
    p.drawLine(r.topRight() + QPointF(-2, 2), r.bottomLeft() + QPointF(2, -2));
  }
  p.restore();
}

void drawEditedMark(QPainter& p, QPointF centre) {
  p.save();
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(QColor(0xd8, 0xd8, 0xdc), 1.2));
  p.setBrush(Qt::NoBrush);
  p.drawEllipse(centre, 5, 5);
  QPainterPath half;
  half.moveTo(centre);
  half.arcTo(QRectF(centre.x() - 5, centre.y() - 5, 10, 10), 90, 180);
  half.closeSubpath();
  p.setBrush(QColor(0xd8, 0xd8, 0xdc));
  p.setPen(Qt::NoPen);
  p.drawPath(half);
  p.restore();
}

}  // namespace

PhotoCellDelegate::PhotoCellDelegate(bool compact, QObject* parent)
    : QStyledItemDelegate(parent), compact_(compact) {}

QSize PhotoCellDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const { return cellSize_; }

void PhotoCellDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const {
  QPainter& p = *painter;
  p.save();
  const bool selected = index.data(PhotoListModel::selectedRole).toBool();
  const bool current = index.data(PhotoListModel::currentRole).toBool();
  const int flag = index.data(PhotoListModel::flagRole).toInt();
  const QRect cell = option.rect.adjusted(cellMargin / 2, cellMargin / 2, -cellMargin / 2, -cellMargin / 2);

  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(Qt::NoPen);
  p.setBrush(selected ? theme::cellSelected : theme::cell);
  p.drawRoundedRect(cell, 4, 4);

  const QRect picture = compact_ ? cell.adjusted(4, 4, -4, -4) : cell.adjusted(8, 8, -8, -footerHeight);
  const QImage image = index.data(Qt::DecorationRole).value<QImage>();
  const qreal dpr = p.device() ? p.device()->devicePixelRatioF() : 1.0;
  if (!image.isNull()) {
    const bool edited = index.data(PhotoListModel::editedRole).toBool();
    const QString cacheKey = QStringLiteral("%1/%2/%3x%4@%5")
                                 .arg(index.data(PhotoListModel::idRole).toLongLong())
                                 .arg(edited)
                                 .arg(picture.width())
                                 .arg(picture.height())
                                 .arg(dpr);
    QPixmap* pix = scaled_.object(cacheKey);
    if (!pix) {
      const QSize target = (QSizeF(picture.size()) * dpr).toSize();
      QImage fitted = image.scaled(target, Qt::KeepAspectRatio, Qt::SmoothTransformation);
      pix = new QPixmap(QPixmap::fromImage(std::move(fitted)));
      pix->setDevicePixelRatio(dpr);
      scaled_.insert(cacheKey, pix);
    }
    const QSizeF shown = QSizeF(pix->size()) / dpr;
    const QPointF at(picture.x() + (picture.width() - shown.width()) / 2,
                     picture.y() + (picture.height() - shown.height()) / 2);
    if (flag < 0) p.setOpacity(0.45);
    p.drawPixmap(at, *pix);
    p.setOpacity(1.0);
  } else {
    // Not loaded yet, or the file gave none: a quiet placeholder naming the type.
    const QRect box = picture.adjusted(picture.width() / 8, picture.height() / 6, -picture.width() / 8,
                                       -picture.height() / 6);
    p.setBrush(QColor(0x37, 0x37, 0x3b));
    p.drawRoundedRect(box, 3, 3);
    QFont font = p.font();
    font.setPixelSize(std::max(9, std::min(14, box.height() / 5)));
    p.setFont(font);
    p.setPen(theme::dimText);
    const QString name = index.data(Qt::DisplayRole).toString();
    const QString ext = name.section(QLatin1Char('.'), -1).toUpper();
    p.drawText(box, Qt::AlignCenter, ext.isEmpty() ? QStringLiteral("?") : ext);
  }

  if (current) {
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(theme::accent, 2));
    p.drawRoundedRect(QRectF(cell).adjusted(1, 1, -1, -1), 4, 4);
  }

  const QString label = index.data(PhotoListModel::labelRole).toString();
  const int rating = index.data(PhotoListModel::ratingRole).toInt();
  if (compact_) {
    if (!label.isEmpty()) {
      p.setPen(Qt::NoPen);
      p.setBrush(labelColor(label));
      p.drawRect(QRect(cell.left(), cell.bottom() - 3, cell.width(), 4));
    }
    drawStars(p, QRect(cell.left() + 5, cell.bottom() - 16, cell.width(), 12), rating, true);
    drawFlag(p, cell, flag);
  } else {
    const QRect footer(cell.left() + 8, cell.bottom() - footerHeight + 2, cell.width() - 16,
                       footerHeight - 4);
    drawStars(p, footer, rating, false);
    int right = footer.right();
    if (index.data(PhotoListModel::editedRole).toBool()) {
      drawEditedMark(p, QPointF(right - 5, footer.center().y() + 0.5));
      right -= 16;
    }
    if (!label.isEmpty()) {
      p.setPen(Qt::NoPen);
      p.setBrush(labelColor(label));
      p.drawEllipse(QPointF(right - 5, footer.center().y() + 0.5), 5, 5);
    }
    drawFlag(p, cell.adjusted(0, 0, -2, 0), flag);
  }
  p.restore();
}

PhotoGridView::PhotoGridView(app::VeskModel& model, bool filmstrip, QWidget* parent)
    : QListView(parent),
      model_(model),
      filmstrip_(filmstrip),
      delegate_(new PhotoCellDelegate(filmstrip, this)) {
  setModel(model.photoList());
  setItemDelegate(delegate_);
  setViewMode(QListView::ListMode);
  setFlow(QListView::LeftToRight);
  setWrapping(!filmstrip);
  setResizeMode(QListView::Adjust);
  setUniformItemSizes(true);
  setMovement(QListView::Static);
  setSelectionMode(QAbstractItemView::NoSelection);
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
  setFrameShape(QFrame::NoFrame);
  setMouseTracking(false);
  setFocusPolicy(Qt::StrongFocus);
  setDragEnabled(false);  // drags are started by hand, with the model's selection
  QPalette pal = palette();
  pal.setColor(QPalette::Base, theme::gridBackground);
  setPalette(pal);
  if (filmstrip) {
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  }
  verticalScrollBar()->setSingleStep(24);
  applyCellSize();
  connect(&model, &app::VeskModel::gridSizeChanged, this, [this] {
    delegate_->clearCache();
    applyCellSize();
  });
  connect(&model, &app::VeskModel::thumbVersionChanged, this, [this] {
    delegate_->clearCache();
    viewport()->update();
  });
  connect(&model, &app::VeskModel::currentIDChanged, this, &PhotoGridView::revealCurrent);
}

QSize PhotoGridView::cellSizeFor(double gridSize, bool filmstrip) {
  if (filmstrip) return QSize(96, 80);
  const int side = int(std::clamp(gridSize, 80.0, 480.0));
  return QSize(side, side + footerHeight - 8);
}

void PhotoGridView::applyCellSize() {
  QSize size = cellSizeFor(model_.gridSize(), filmstrip_);
  if (filmstrip_) {
    size = QSize(std::max(64, (viewport()->height() - 4) * 6 / 5), viewport()->height() - 4);
  } else if (const int available = viewport()->width(); available > size.width()) {
    // Whole columns that share out the width, so the grid has no ragged gap.
    const int columns = std::max(1, available / size.width());
    size.setWidth(available / columns);
  }
  if (size == gridSize()) return;
  delegate_->setCellSize(size);
  setGridSize(size);
  doItemsLayout();
}

void PhotoGridView::resizeEvent(QResizeEvent* event) {
  QListView::resizeEvent(event);
  applyCellSize();
}

void PhotoGridView::revealCurrent() {
  if (!model_.currentID()) return;
  if (auto row = model_.rowOf(*model_.currentID())) scrollTo(model()->index(*row, 0));
}

std::int64_t PhotoGridView::idAt(const QPoint& pos) const {
  const QModelIndex index = indexAt(pos);
  return index.isValid() ? index.data(PhotoListModel::idRole).toLongLong() : 0;
}

void PhotoGridView::mousePressEvent(QMouseEvent* event) {
  setFocus(Qt::MouseFocusReason);
  pressPos_ = event->position().toPoint();
  const std::int64_t id = idAt(pressPos_);
  pressOnSelected_ = false;
  if (!id || event->button() != Qt::LeftButton) return;
  const auto mods = event->modifiers();
  const bool extend = !filmstrip_ && (mods & Qt::ControlModifier);
  const bool range = !filmstrip_ && (mods & Qt::ShiftModifier);
  // A plain press on a photo that is already part of a larger selection
  // keeps the selection, so that it can be dragged as a whole; the release
  // selects the photo alone if no drag happened.
  if (!extend && !range && model_.selection().count(id) && model_.selection().size() > 1) {
    pressOnSelected_ = true;
    model_.setCurrentID(id);
    return;
  }
  model_.select(id, extend, range);
}

void PhotoGridView::mouseMoveEvent(QMouseEvent* event) {
  if (filmstrip_ || !(event->buttons() & Qt::LeftButton)) return;
  if ((event->position().toPoint() - pressPos_).manhattanLength() < QApplication::startDragDistance()) return;
  if (!idAt(pressPos_)) return;
  const std::vector<std::int64_t> ids = model_.selectedIDs();
  if (ids.empty()) return;
  pressOnSelected_ = false;
  auto* mime = new QMimeData;
  mime->setData(QString::fromLatin1(photoIdsMime), encodePhotoIds(ids));
  mime->setText(ids.size() == 1 ? tr("1 photo") : tr("%1 photos").arg(ids.size()));
  auto* drag = new QDrag(this);
  drag->setMimeData(mime);
  drag->exec(Qt::CopyAction);
}

void PhotoGridView::mouseReleaseEvent(QMouseEvent* event) {
  if (pressOnSelected_) {
    if (const std::int64_t id = idAt(event->position().toPoint())) model_.select(id);
  }
  pressOnSelected_ = false;
}

void PhotoGridView::mouseDoubleClickEvent(QMouseEvent* event) {
  if (const std::int64_t id = idAt(event->position().toPoint())) emit photoActivated(id);
}

void PhotoGridView::keyPressEvent(QKeyEvent* event) {
  // Arrows and selection keys belong to the window's commands, which move
  // the model's current photo; the view only scrolls by pages.
  switch (event->key()) {
    case Qt::Key_PageUp:
    case Qt::Key_PageDown:
    case Qt::Key_Home:
    case Qt::Key_End:
      QListView::keyPressEvent(event);
      return;
    default:
      event->ignore();
  }
}

}  // namespace lumivale::ui
