#include "app/ui/develop_panels.h"

#include <QCheckBox>
#include <QComboBox>
#include <QConicalGradient>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QRadialGradient>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "app/model/vesk_model.h"
#include "app/ui/slider_row.h"
#include "app/ui/theme.h"

namespace lumivale::ui {

using app::DevTool;
using app::VeskModel;

namespace {

QString text(std::string_view s) { return QString::fromUtf8(s.data(), int(s.size())); }

QPushButton* smallButton(const QString& label, const QString& tip = {}) {
  auto* b = new QPushButton(label);
  b->setToolTip(tip);
  b->setAutoDefault(false);
  return b;
}

const char* bandTitles[] = {"Red", "Orange", "Yellow", "Green", "Aqua", "Blue", "Purple", "Magenta"};

}  // namespace

// ---- sections ----------------------------------------------------------------------------------

CollapsibleSection::CollapsibleSection(const QString& title, QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  header_ = new QToolButton;
  header_->setObjectName(QStringLiteral("sectionHeader"));
  header_->setText(QString(title).replace(QLatin1Char('&'), QStringLiteral("&&")));
  header_->setCheckable(true);
  header_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  header_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  content_ = new QWidget;
  body_ = new QVBoxLayout(content_);
  body_->setContentsMargins(10, 2, 10, 10);
  body_->setSpacing(6);
  layout->addWidget(header_);
  layout->addWidget(content_);
  auto* line = new QFrame;
  line->setFrameShape(QFrame::HLine);
  line->setStyleSheet(QStringLiteral("color: #1c1c1e;"));
  layout->addWidget(line);
  connect(header_, &QToolButton::toggled, this, &CollapsibleSection::setOpen);
  setOpen(true);
}

void CollapsibleSection::setOpen(bool open) {
  const QSignalBlocker block(header_);
  header_->setChecked(open);
  header_->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
  content_->setVisible(open);
}

bool CollapsibleSection::isOpen() const { return header_->isChecked(); }

// ---- histogram -----------------------------------------------------------------------------------

HistogramView::HistogramView(VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setMinimumHeight(90);
  connect(&model, &VeskModel::histogramChanged, this, qOverload<>(&QWidget::update));
}

void HistogramView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  const QRectF area = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
  p.fillRect(area, QColor(0x1c, 0x1c, 0x1e));
  p.setPen(QColor(0x3a, 0x3a, 0x3e));
  for (int i = 1; i < 4; ++i) {
    const double x = area.left() + area.width() * i / 4;
    p.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
  }
  const auto& h = model_.histogram();
  if (!h) return;
  p.setRenderHint(QPainter::Antialiasing);
  auto draw = [&](const std::array<double, 64>& bins, QColor colour) {
    QPainterPath path;
    path.moveTo(area.bottomLeft());
    for (int i = 0; i < 64; ++i) {
      const double x = area.left() + area.width() * (i + 0.5) / 64;
      path.lineTo(x, area.bottom() - std::clamp(bins[std::size_t(i)], 0.0, 1.0) * (area.height() - 4));
    }
    path.lineTo(area.bottomRight());
    path.closeSubpath();
    p.fillPath(path, colour);
  };
  p.setCompositionMode(QPainter::CompositionMode_Plus);
  draw(h->r, QColor(200, 50, 50, 150));
  draw(h->g, QColor(50, 180, 60, 150));
  draw(h->b, QColor(50, 90, 220, 150));
  p.setCompositionMode(QPainter::CompositionMode_SourceOver);
  draw(h->l, QColor(220, 220, 220, 50));
}

// ---- curve editor --------------------------------------------------------------------------------

CurveEditor::CurveEditor(VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setMinimumSize(200, 200);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
  setToolTip(tr("Click to add a point, drag to move it, double-click to remove it"));
  connect(&model, &VeskModel::settingsChanged, this, qOverload<>(&QWidget::update));
  connect(&model, &VeskModel::curveChannelChanged, this, qOverload<>(&QWidget::update));
}

ToneCurve CurveEditor::curve() const {
  const EditSettings& s = model_.settings();
  switch (model_.curveChannel()) {
    case 1:
      return s.curveRed;
    case 2:
      return s.curveGreen;
    case 3:
      return s.curveBlue;
    default:
      return s.curveRGB;
  }
}

void CurveEditor::setCurve(const ToneCurve& curve) {
  const int channel = model_.curveChannel();
  model_.change([&curve, channel](EditSettings& s) {
    (channel == 1   ? s.curveRed
     : channel == 2 ? s.curveGreen
     : channel == 3 ? s.curveBlue
                    : s.curveRGB) = curve;
  });
}

QRectF CurveEditor::plot() const {
  const double side = std::min(width(), height()) - 12;
  return QRectF((width() - side) / 2, 6, side, side);
}

QPointF CurveEditor::toWidget(const CurvePoint& c) const {
  const QRectF r = plot();
  return {r.left() + c.x * r.width(), r.bottom() - c.y * r.height()};
}

CurvePoint CurveEditor::toCurve(QPointF w) const {
  const QRectF r = plot();
  return {std::clamp((w.x() - r.left()) / r.width(), 0.0, 1.0),
          std::clamp((r.bottom() - w.y()) / r.height(), 0.0, 1.0)};
}

int CurveEditor::pointNear(QPointF w) const {
  const auto points = curve().points;
  for (int i = 0; i < int(points.size()); ++i) {
    const QPointF at = toWidget(points[std::size_t(i)]);
    if (std::hypot(at.x() - w.x(), at.y() - w.y()) < 9) return i;
  }
  return -1;
}

void CurveEditor::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const QRectF r = plot();
  p.fillRect(r, QColor(0x1c, 0x1c, 0x1e));
  p.setPen(QColor(0x3a, 0x3a, 0x3e));
  for (int i = 1; i < 4; ++i) {
    p.drawLine(QPointF(r.left() + r.width() * i / 4, r.top()),
               QPointF(r.left() + r.width() * i / 4, r.bottom()));
    p.drawLine(QPointF(r.left(), r.top() + r.height() * i / 4),
               QPointF(r.right(), r.top() + r.height() * i / 4));
  }
  p.setPen(QPen(QColor(0x50, 0x50, 0x55), 1, Qt::DashLine));
  p.drawLine(r.bottomLeft(), r.topRight());
  const ToneCurve c = curve();
  const CurveEvaluator eval = c.evaluator();
  const QColor colours[] = {QColor(0xe8, 0xe8, 0xea), QColor(0xf0, 0x60, 0x60), QColor(0x60, 0xd0, 0x70),
                            QColor(0x60, 0x90, 0xf0)};
  const QColor colour = colours[std::clamp(model_.curveChannel(), 0, 3)];
  QPainterPath path;
  for (int i = 0; i <= 128; ++i) {
    const double x = i / 128.0;
    const QPointF at = toWidget({x, std::clamp(eval(x), 0.0, 1.0)});
    if (i == 0) {
      path.moveTo(at);
    } else {
      path.lineTo(at);
    }
  }
  p.setPen(QPen(colour, 1.6));
  p.drawPath(path);
  p.setBrush(colour);
  p.setPen(QPen(QColor(0, 0, 0, 160), 1));
  for (const CurvePoint& point : c.points) p.drawEllipse(toWidget(point), 4.5, 4.5);
}

void CurveEditor::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !model_.current()) return;
  dragging_ = pointNear(event->position());
  if (dragging_ >= 0) return;
  ToneCurve c = curve();
  const CurvePoint added = toCurve(event->position());
  auto at = std::lower_bound(c.points.begin(), c.points.end(), added,
                             [](const CurvePoint& a, const CurvePoint& b) { return a.x < b.x; });
  dragging_ = int(at - c.points.begin());
  c.points.insert(at, added);
  setCurve(c);
}

void CurveEditor::mouseMoveEvent(QMouseEvent* event) {
  if (dragging_ < 0) return;
  ToneCurve c = curve();
  if (dragging_ >= int(c.points.size())) return;
  CurvePoint moved = toCurve(event->position());
  // A point stays between its neighbours, so the order never changes under the mouse.
  const auto i = std::size_t(dragging_);
  if (i > 0) moved.x = std::max(moved.x, c.points[i - 1].x + 0.01);
  if (i + 1 < c.points.size()) moved.x = std::min(moved.x, c.points[i + 1].x - 0.01);
  c.points[i] = moved;
  setCurve(c);
}

void CurveEditor::mouseReleaseEvent(QMouseEvent*) {
  if (dragging_ >= 0) model_.commit("Tone Curve");
  dragging_ = -1;
}

void CurveEditor::mouseDoubleClickEvent(QMouseEvent* event) {
  const int i = pointNear(event->position());
  ToneCurve c = curve();
  if (i <= 0 || i >= int(c.points.size()) - 1) return;  // the end points stay
  c.points.erase(c.points.begin() + i);
  setCurve(c);
  model_.commit("Tone Curve");
}

// ---- colour wheel --------------------------------------------------------------------------------

ColorWheel::ColorWheel(QWidget* parent) : QWidget(parent) {
  setMinimumSize(80, 80);
  setToolTip(tr("Drag to choose hue and strength; double-click to reset"));
}

void ColorWheel::setValue(double hue, double saturation) {
  if (dragging_) return;
  hue_ = hue;
  saturation_ = saturation;
  update();
}

void ColorWheel::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const double radius = std::min(width(), height()) / 2.0 - 4;
  const QPointF c = QRectF(rect()).center();
  QConicalGradient hues(c, 0);
  for (int i = 0; i <= 6; ++i)
    hues.setColorAt(i / 6.0, QColor::fromHsvF(std::fmod(i / 6.0, 1.0), 0.55, 0.75));
  p.setPen(Qt::NoPen);
  p.setBrush(hues);
  p.drawEllipse(c, radius, radius);
  QRadialGradient fade(c, radius);
  fade.setColorAt(0, QColor(0x60, 0x60, 0x64));
  fade.setColorAt(1, QColor(0x60, 0x60, 0x64, 0));
  p.setBrush(fade);
  p.drawEllipse(c, radius, radius);
  const double angle = hue_ * M_PI / 180;
  const double dist = std::clamp(saturation_, 0.0, 100.0) / 100 * radius;
  const QPointF at(c.x() + std::cos(angle) * dist, c.y() - std::sin(angle) * dist);
  p.setBrush(Qt::white);
  p.setPen(QPen(QColor(0, 0, 0, 180), 1.2));
  p.drawEllipse(at, 4.5, 4.5);
}

void ColorWheel::pick(QPointF w) {
  const double radius = std::min(width(), height()) / 2.0 - 4;
  const QPointF d = w - QRectF(rect()).center();
  double hue = std::atan2(-d.y(), d.x()) * 180 / M_PI;
  if (hue < 0) hue += 360;
  hue_ = std::round(hue);
  saturation_ = std::round(std::clamp(std::hypot(d.x(), d.y()) / radius, 0.0, 1.0) * 100);
  update();
  emit moved(hue_, saturation_);
}

void ColorWheel::mousePressEvent(QMouseEvent* event) {
  dragging_ = true;
  pick(event->position());
}

void ColorWheel::mouseMoveEvent(QMouseEvent* event) {
  if (dragging_) pick(event->position());
}

void ColorWheel::mouseReleaseEvent(QMouseEvent*) {
  if (!dragging_) return;
  dragging_ = false;
  emit committed();
}

void ColorWheel::mouseDoubleClickEvent(QMouseEvent*) {
  hue_ = saturation_ = 0;
  update();
  emit moved(0, 0);
  emit committed();
}

// ---- the panels ---------------------------------------------------------------------------------

DevelopPanels::DevelopPanels(VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  column_ = new QVBoxLayout(this);
  column_->setContentsMargins(0, 0, 0, 0);
  column_->setSpacing(0);
  using S = EditSettings;

  {
    auto* body = addSection(tr("Histogram"), true)->body();
    body->addWidget(new HistogramView(model));
    auto* clipping = new QCheckBox(tr("Show clipping (J)"));
    clipping->setObjectName(QStringLiteral("clipping"));
    body->addWidget(clipping);
    connect(clipping, &QCheckBox::toggled, &model, &VeskModel::setShowClipping);
    connect(&model, &VeskModel::showClippingChanged, clipping, [clipping, &model] {
      const QSignalBlocker b(clipping);
      clipping->setChecked(model.showClipping());
    });
  }
  buildPresets(addSection(tr("Presets"), false)->body());
  {
    auto* body = addSection(tr("White Balance & Light"), true)->body();
    auto* row = new QHBoxLayout;
    wbPicker_ = new QToolButton;
    wbPicker_->setText(tr("Pick Neutral"));
    wbPicker_->setCheckable(true);
    wbPicker_->setToolTip(tr("Click a spot of the photo that should be neutral grey"));
    row->addWidget(wbPicker_);
    row->addStretch();
    body->addLayout(row);
    connect(wbPicker_, &QToolButton::toggled, this,
            [this](bool on) { model_.setTool(on ? DevTool::whiteBalance : DevTool::none); });
    addSetting(body, tr("Temperature"), -100, 100, 0, [](S& s) -> double& { return s.temperature; });
    addSetting(body, tr("Tint"), -100, 100, 0, [](S& s) -> double& { return s.tint; });
    addSetting(body, tr("Exposure"), -5, 5, 2, [](S& s) -> double& { return s.exposure; });
    addSetting(body, tr("Contrast"), -100, 100, 0, [](S& s) -> double& { return s.contrast; });
    addSetting(body, tr("Highlights"), -100, 100, 0, [](S& s) -> double& { return s.highlights; });
    addSetting(body, tr("Shadows"), -100, 100, 0, [](S& s) -> double& { return s.shadows; });
    addSetting(body, tr("Whites"), -100, 100, 0, [](S& s) -> double& { return s.whites; });
    addSetting(body, tr("Blacks"), -100, 100, 0, [](S& s) -> double& { return s.blacks; });
  }
  {
    auto* body = addSection(tr("Presence"), true)->body();
    addSetting(body, tr("Vibrance"), -100, 100, 0, [](S& s) -> double& { return s.vibrance; });
    addSetting(body, tr("Saturation"), -100, 100, 0, [](S& s) -> double& { return s.saturation; });
    blackAndWhite_ = new QCheckBox(tr("Black && White"));
    body->addWidget(blackAndWhite_);
    connect(blackAndWhite_, &QCheckBox::clicked, this,
            [this](bool on) { model_.edit("Black & White", [on](S& s) { s.blackAndWhite = on; }); });
  }
  buildCurves(addSection(tr("Curves"), false)->body());
  buildMixer(addSection(tr("Colour Mixer"), false)->body());
  buildGrading(addSection(tr("Colour Grading"), false)->body());
  {
    auto* body = addSection(tr("Detail & Noise"), false)->body();
    addSetting(body, tr("Luminance Noise"), 0, 100, 0, [](S& s) -> double& { return s.noiseLuminance; });
    addSetting(body, tr("Colour Noise"), 0, 100, 0, [](S& s) -> double& { return s.noiseColor; });
  }
  {
    auto* body = addSection(tr("Lens"), false)->body();
    lens_ = new QCheckBox(tr("Automatic lens correction"));
    body->addWidget(lens_);
    lensNote_ = new QLabel;
    lensNote_->setObjectName(QStringLiteral("dim"));
    lensNote_->setWordWrap(true);
    body->addWidget(lensNote_);
    connect(lens_, &QCheckBox::clicked, this,
            [this](bool on) { model_.edit("Lens Correction", [on](S& s) { s.lensCorrection = on; }); });
    connect(&model, &VeskModel::lensAvailableChanged, this, &DevelopPanels::refresh);
  }
  {
    auto* body = addSection(tr("Effects"), false)->body();
    addSetting(body, tr("Sharpening"), 0, 150, 0, [](S& s) -> double& { return s.sharpenAmount; });
    addSetting(body, tr("Sharpening Radius"), 0.5, 3, 1, [](S& s) -> double& { return s.sharpenRadius; });
    addSetting(body, tr("Vignette"), -100, 100, 0, [](S& s) -> double& { return s.vignetteAmount; });
    addSetting(body, tr("Vignette Midpoint"), 0, 100, 0, [](S& s) -> double& { return s.vignetteMidpoint; });
    addSetting(body, tr("Vignette Feather"), 0, 100, 0, [](S& s) -> double& { return s.vignetteFeather; });
    addSetting(body, tr("Grain"), 0, 100, 0, [](S& s) -> double& { return s.grainAmount; });
    addSetting(body, tr("Grain Size"), 0, 100, 0, [](S& s) -> double& { return s.grainSize; });
  }
  buildCrop(addSection(tr("Crop & Straighten"), false)->body());
  buildMasks(addSection(tr("Masks"), true)->body());
  {
    auto* body = addSection(tr("History"), false)->body();
    history_ = new QListWidget;
    history_->setMinimumHeight(140);
    body->addWidget(history_);
    connect(history_, &QListWidget::itemClicked, this,
            [this](QListWidgetItem* item) { model_.goToHistory(item->data(Qt::UserRole).toInt()); });
    connect(&model, &VeskModel::historyChanged, this, &DevelopPanels::refreshHistory);
    connect(&model, &VeskModel::historyPosChanged, this, &DevelopPanels::refreshHistory);
  }
  {
    auto* body = addSection(tr("Snapshots"), false)->body();
    snapshots_ = new QListWidget;
    snapshots_->setMinimumHeight(90);
    snapshots_->setToolTip(tr("Double-click a snapshot to apply it"));
    body->addWidget(snapshots_);
    auto* row = new QHBoxLayout;
    auto* add = smallButton(tr("Add…"), tr("Keep the current settings under a name"));
    auto* remove = smallButton(tr("Delete"));
    row->addWidget(add);
    row->addWidget(remove);
    row->addStretch();
    body->addLayout(row);
    connect(add, &QPushButton::clicked, this, [this] {
      bool ok = false;
      const QString name = QInputDialog::getText(this, tr("Add Snapshot"), tr("Name:"), QLineEdit::Normal,
                                                 tr("Snapshot %1").arg(model_.snapshots().size() + 1), &ok);
      if (ok && !name.trimmed().isEmpty()) model_.addSnapshot(name.trimmed().toStdString());
    });
    connect(remove, &QPushButton::clicked, this, [this] {
      if (auto* item = snapshots_->currentItem())
        model_.deleteSnapshot(item->data(Qt::UserRole).toLongLong());
    });
    connect(snapshots_, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem* item) { model_.applySnapshot(item->data(Qt::UserRole).toLongLong()); });
    connect(&model, &VeskModel::snapshotsChanged, this, &DevelopPanels::refreshSnapshots);
  }
  column_->addStretch(1);

  connect(&model, &VeskModel::settingsChanged, this, &DevelopPanels::refresh);
  connect(&model, &VeskModel::selectedMaskChanged, this, &DevelopPanels::refreshMasks);
  connect(&model, &VeskModel::toolChanged, this, [this] {
    const QSignalBlocker a(cropTool_), b(wbPicker_);
    cropTool_->setChecked(model_.tool() == DevTool::crop);
    wbPicker_->setChecked(model_.tool() == DevTool::whiteBalance);
  });
  connect(&model, &VeskModel::userPresetsChanged, this, &DevelopPanels::refreshPresets);
  refresh();
  refreshHistory();
  refreshSnapshots();
  refreshPresets();
}

CollapsibleSection* DevelopPanels::addSection(const QString& title, bool open) {
  auto* section = new CollapsibleSection(title);
  section->setOpen(open);
  section->setObjectName(title);
  column_->addWidget(section);
  sections_.push_back(section);
  return section;
}

SliderRow* DevelopPanels::addSetting(QVBoxLayout* layout, const QString& title, double min, double max,
                                     int decimals, std::function<double&(EditSettings&)> field) {
  const auto get = [field](const EditSettings& s) { return field(const_cast<EditSettings&>(s)); };
  auto* row = new SliderRow(title, min, max, get(EditSettings::blank()), decimals);
  row->setObjectName(title);
  layout->addWidget(row);
  connect(row, &SliderRow::moved, this,
          [this, field](double v) { model_.change([&](EditSettings& s) { field(s) = v; }); });
  const std::string step = title.toStdString();
  connect(row, &SliderRow::committed, this, [this, step] { model_.commit(step); });
  bindings_.push_back({row, get});
  return row;
}

SliderRow* DevelopPanels::addMaskSetting(QVBoxLayout* layout, const QString& title, double min, double max,
                                         int decimals, double MaskAdjust::*field) {
  auto* row = new SliderRow(title, min, max, 0, decimals);
  row->setObjectName(QStringLiteral("mask ") + title);
  layout->addWidget(row);
  connect(row, &SliderRow::moved, this, [this, field](double v) {
    if (const auto id = model_.selectedMask()) model_.setMaskAdjust(*id, field, v);
  });
  const std::string step = "Mask " + title.toStdString();
  connect(row, &SliderRow::committed, this, [this, step] { model_.commit(step); });
  maskRows_.emplace_back(row, field);
  return row;
}

SliderRow* DevelopPanels::slider(const QString& title) const {
  for (const Binding& b : bindings_) {
    if (b.row->objectName() == title) return b.row;
  }
  for (const auto& [row, field] : maskRows_) {
    if (row->objectName() == title) return row;
  }
  return nullptr;
}

void DevelopPanels::buildPresets(QVBoxLayout* body) {
  auto* looks = new QComboBox;
  looks->addItem(tr("Apply a look…"));
  QString category;
  for (const BuiltInPreset& look : BuiltInPresets::all()) {
    if (QString::fromStdString(look.category) != category) {
      category = QString::fromStdString(look.category);
      looks->insertSeparator(looks->count());
    }
    looks->addItem(QString::fromStdString(look.name));
    looks->setItemData(looks->count() - 1, QString::fromStdString(look.note), Qt::ToolTipRole);
  }
  body->addWidget(looks);
  connect(looks, &QComboBox::activated, this, [this, looks](int index) {
    const QString name = looks->itemText(index);
    for (const BuiltInPreset& look : BuiltInPresets::all()) {
      if (QString::fromStdString(look.name) == name) model_.applyLook(look);
    }
    looks->setCurrentIndex(0);
  });
  auto* mine = new QLabel(tr("Your presets"));
  mine->setObjectName(QStringLiteral("heading"));
  body->addWidget(mine);
  userPresets_ = new QListWidget;
  userPresets_->setMaximumHeight(110);
  userPresets_->setToolTip(tr("Click a preset to apply it"));
  body->addWidget(userPresets_);
  connect(userPresets_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    const qint64 id = item->data(Qt::UserRole).toLongLong();
    for (const UserPreset& preset : model_.userPresets()) {
      if (preset.id == id) model_.applyPreset(preset);
    }
  });
  auto* row = new QHBoxLayout;
  auto* save = smallButton(tr("Save Preset…"));
  auto* remove = smallButton(tr("Delete"));
  row->addWidget(save);
  row->addWidget(remove);
  row->addStretch();
  body->addLayout(row);
  connect(save, &QPushButton::clicked, this, [this] { model_.setSheet(app::VeskSheet::savePreset); });
  connect(remove, &QPushButton::clicked, this, [this] {
    if (auto* item = userPresets_->currentItem()) model_.deletePreset(item->data(Qt::UserRole).toLongLong());
  });
}

void DevelopPanels::buildCurves(QVBoxLayout* body) {
  curveChannel_ = new QComboBox;
  curveChannel_->addItems({tr("RGB"), tr("Red"), tr("Green"), tr("Blue")});
  body->addWidget(curveChannel_);
  connect(curveChannel_, &QComboBox::activated, &model_, &VeskModel::setCurveChannel);
  connect(&model_, &VeskModel::curveChannelChanged, curveChannel_, [this] {
    const QSignalBlocker b(curveChannel_);
    curveChannel_->setCurrentIndex(std::clamp(model_.curveChannel(), 0, 3));
  });
  body->addWidget(new CurveEditor(model_));
}

void DevelopPanels::buildMixer(QVBoxLayout* body) {
  auto* mode = new QComboBox;
  mode->addItems({tr("Hue"), tr("Saturation"), tr("Luminance")});
  body->addWidget(mode);
  for (int band = 0; band < 8; ++band) {
    auto* row = new SliderRow(tr(bandTitles[band]), -100, 100, 0, 0);
    row->setObjectName(QStringLiteral("mixer ") + QString::fromLatin1(bandTitles[band]));
    body->addWidget(row);
    mixerRows_.push_back(row);
    connect(row, &SliderRow::moved, this, [this, band](double v) {
      const int m = mixerMode_;
      model_.change([&](EditSettings& s) {
        if (std::size_t(band) >= s.hsl.size()) s.hsl.resize(8);
        HSLBand& b = s.hsl[std::size_t(band)];
        (m == 0 ? b.hue : m == 1 ? b.saturation : b.luminance) = v;
      });
    });
    connect(row, &SliderRow::committed, this,
            [this, band] { model_.commit("Colour Mixer: " + std::string(bandTitles[band])); });
  }
  connect(mode, &QComboBox::activated, this, [this](int index) {
    mixerMode_ = index;
    refresh();
  });
}

void DevelopPanels::buildGrading(QVBoxLayout* body) {
  auto* wheelsRow = new QHBoxLayout;
  const std::pair<const char*, GradeWheel EditSettings::*> parts[] = {
      {"Shadows", &EditSettings::gradeShadows},
      {"Midtones", &EditSettings::gradeMidtones},
      {"Highlights", &EditSettings::gradeHighlights}};
  for (const auto& [name, field] : parts) {
    auto* column = new QVBoxLayout;
    auto* title = new QLabel(tr(name));
    title->setAlignment(Qt::AlignCenter);
    column->addWidget(title);
    auto* wheel = new ColorWheel;
    wheel->setObjectName(QStringLiteral("wheel ") + QString::fromLatin1(name));
    column->addWidget(wheel);
    wheelsRow->addLayout(column);
    wheels_.push_back({wheel, field});
    const auto f = field;
    connect(wheel, &ColorWheel::moved, this, [this, f](double hue, double saturation) {
      model_.change([&](EditSettings& s) {
        (s.*f).hue = hue;
        (s.*f).saturation = saturation;
      });
    });
    const std::string step = std::string("Colour Grading: ") + name;
    connect(wheel, &ColorWheel::committed, this, [this, step] { model_.commit(step); });
  }
  body->addLayout(wheelsRow);
  using S = EditSettings;
  addSetting(body, tr("Shadows Luminance"), -100, 100, 0,
             [](S& s) -> double& { return s.gradeShadows.luminance; });
  addSetting(body, tr("Midtones Luminance"), -100, 100, 0,
             [](S& s) -> double& { return s.gradeMidtones.luminance; });
  addSetting(body, tr("Highlights Luminance"), -100, 100, 0,
             [](S& s) -> double& { return s.gradeHighlights.luminance; });
  addSetting(body, tr("Blending"), 0, 100, 0, [](S& s) -> double& { return s.gradeBlending; });
  addSetting(body, tr("Balance"), -100, 100, 0, [](S& s) -> double& { return s.gradeBalance; });
}

void DevelopPanels::buildCrop(QVBoxLayout* body) {
  auto* row = new QHBoxLayout;
  cropTool_ = new QToolButton;
  cropTool_->setText(tr("Crop"));
  cropTool_->setCheckable(true);
  cropTool_->setToolTip(tr("Show the whole frame and drag the crop's corners and edges"));
  row->addWidget(cropTool_);
  aspect_ = new QComboBox;
  for (const std::string& name : CropAspect::names()) aspect_->addItem(QString::fromStdString(name));
  row->addWidget(aspect_, 1);
  body->addLayout(row);
  connect(cropTool_, &QToolButton::toggled, this,
          [this](bool on) { model_.setTool(on ? DevTool::crop : DevTool::none); });
  connect(aspect_, &QComboBox::activated, this,
          [this](int index) { model_.setCropAspect(aspect_->itemText(index).toStdString()); });

  auto* straighten = new SliderRow(tr("Straighten"), -45, 45, 0, 1);
  straighten->setObjectName(tr("Straighten"));
  body->addWidget(straighten);
  connect(straighten, &SliderRow::moved, &model_, &VeskModel::setStraighten);
  connect(straighten, &SliderRow::committed, this, [this] { model_.commit("Straighten"); });
  bindings_.push_back({straighten, [](const EditSettings& s) { return s.straighten; }});

  auto* turns = new QHBoxLayout;
  auto* left = smallButton(QStringLiteral("⟲"), tr("Rotate left"));
  auto* right = smallButton(QStringLiteral("⟳"), tr("Rotate right"));
  auto* flipH = smallButton(tr("Flip ↔"), tr("Flip horizontally"));
  auto* flipV = smallButton(tr("Flip ↕"), tr("Flip vertically"));
  auto* reset = smallButton(tr("Reset"), tr("Reset the crop"));
  for (QPushButton* b : {left, right, flipH, flipV, reset}) turns->addWidget(b);
  body->addLayout(turns);
  connect(left, &QPushButton::clicked, this, [this] { model_.rotate(false); });
  connect(right, &QPushButton::clicked, this, [this] { model_.rotate(true); });
  connect(flipH, &QPushButton::clicked, this, [this] { model_.flip(true); });
  connect(flipV, &QPushButton::clicked, this, [this] { model_.flip(false); });
  connect(reset, &QPushButton::clicked, &model_, &VeskModel::resetCrop);
}

void DevelopPanels::buildMasks(QVBoxLayout* body) {
  masks_ = new QListWidget;
  masks_->setMaximumHeight(120);
  body->addWidget(masks_);
  auto* row = new QHBoxLayout;
  auto* add = new QToolButton;
  add->setText(tr("Add Mask"));
  add->setPopupMode(QToolButton::InstantPopup);
  auto* menu = new QMenu(add);
  for (MaskKind kind : allMaskKinds()) {
    menu->addAction(text(title(kind)), this, [this, kind] {
      model_.addMask(kind);
      if (kind == MaskKind::brush) model_.setTool(DevTool::brush);
      if (kind == MaskKind::linear) model_.setTool(DevTool::linear);
      if (kind == MaskKind::radial) model_.setTool(DevTool::radial);
    });
  }
  add->setMenu(menu);
  row->addWidget(add);
  auto* overlay = new QCheckBox(tr("Overlay (O)"));
  overlay->setObjectName(QStringLiteral("overlay"));
  row->addWidget(overlay);
  row->addStretch();
  body->addLayout(row);
  connect(overlay, &QCheckBox::toggled, &model_, &VeskModel::setShowMaskOverlay);
  connect(&model_, &VeskModel::showMaskOverlayChanged, overlay, [this, overlay] {
    const QSignalBlocker b(overlay);
    overlay->setChecked(model_.showMaskOverlay());
  });
  connect(masks_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    const std::string id = item->data(Qt::UserRole).toString().toStdString();
    model_.selectMask(id);
    for (const PhotoMask& m : model_.settings().masks) {
      if (m.id != id) continue;
      model_.setTool(m.kind == MaskKind::brush    ? DevTool::brush
                     : m.kind == MaskKind::linear ? DevTool::linear
                     : m.kind == MaskKind::radial ? DevTool::radial
                                                  : DevTool::none);
    }
  });

  maskControls_ = new QWidget;
  auto* controls = new QVBoxLayout(maskControls_);
  controls->setContentsMargins(0, 0, 0, 0);
  auto* flags = new QHBoxLayout;
  maskInvert_ = new QCheckBox(tr("Invert"));
  auto* rename = smallButton(tr("Rename…"));
  auto* remove = smallButton(tr("Delete"));
  auto* refreshSmart = smallButton(tr("Recompute"), tr("Find the subject, sky or people again"));
  flags->addWidget(maskInvert_);
  flags->addStretch();
  flags->addWidget(rename);
  flags->addWidget(refreshSmart);
  flags->addWidget(remove);
  controls->addLayout(flags);
  connect(maskInvert_, &QCheckBox::clicked, this, [this](bool on) {
    if (const auto id = model_.selectedMask()) model_.setMaskInvert(*id, on);
  });
  connect(rename, &QPushButton::clicked, this, [this] {
    const PhotoMask* m = selectedMask();
    if (!m) return;
    const std::string id = m->id;
    bool ok = false;
    const QString name = QInputDialog::getText(this, tr("Rename Mask"), tr("Name:"), QLineEdit::Normal,
                                               QString::fromStdString(m->name), &ok);
    if (ok && !name.trimmed().isEmpty()) model_.renameMask(id, name.trimmed().toStdString());
  });
  connect(remove, &QPushButton::clicked, this, [this] {
    if (const auto id = model_.selectedMask()) model_.deleteMask(*id);
  });
  connect(refreshSmart, &QPushButton::clicked, this, [this] {
    if (const auto id = model_.selectedMask()) model_.refreshSmartMask(*id);
  });
  maskOpacity_ = new SliderRow(tr("Opacity"), 0, 100, 100, 0);
  maskOpacity_->setObjectName(QStringLiteral("mask Opacity"));
  controls->addWidget(maskOpacity_);
  connect(maskOpacity_, &SliderRow::moved, this, [this](double v) {
    if (const auto id = model_.selectedMask()) model_.setMaskOpacity(*id, v / 100);
  });
  connect(maskOpacity_, &SliderRow::committed, this, [this] { model_.commit("Mask Opacity"); });
  addMaskSetting(controls, tr("Exposure"), -4, 4, 2, &MaskAdjust::exposure);
  addMaskSetting(controls, tr("Contrast"), -100, 100, 0, &MaskAdjust::contrast);
  addMaskSetting(controls, tr("Highlights"), -100, 100, 0, &MaskAdjust::highlights);
  addMaskSetting(controls, tr("Shadows"), -100, 100, 0, &MaskAdjust::shadows);
  addMaskSetting(controls, tr("Temperature"), -100, 100, 0, &MaskAdjust::temperature);
  addMaskSetting(controls, tr("Tint"), -100, 100, 0, &MaskAdjust::tint);
  addMaskSetting(controls, tr("Saturation"), -100, 100, 0, &MaskAdjust::saturation);
  addMaskSetting(controls, tr("Sharpness"), -100, 100, 0, &MaskAdjust::sharpness);

  brushControls_ = new QWidget;
  auto* brush = new QVBoxLayout(brushControls_);
  brush->setContentsMargins(0, 6, 0, 0);
  auto* brushTitle = new QLabel(tr("Brush"));
  brushTitle->setObjectName(QStringLiteral("heading"));
  brush->addWidget(brushTitle);
  auto* size = new SliderRow(tr("Size"), 0.5, 30, 4, 1);
  auto* feather = new SliderRow(tr("Feather"), 0, 100, 50, 0);
  auto* flow = new SliderRow(tr("Flow"), 1, 100, 80, 0);
  auto* erase = new QCheckBox(tr("Erase"));
  for (QWidget* w : std::initializer_list<QWidget*>{size, feather, flow, erase}) brush->addWidget(w);
  // The brush's own settings are fractions; the sliders show per cent.
  connect(size, &SliderRow::moved, this, [this](double v) { model_.setBrushSize(v / 100); });
  connect(feather, &SliderRow::moved, this, [this](double v) { model_.setBrushFeather(v / 100); });
  connect(flow, &SliderRow::moved, this, [this](double v) { model_.setBrushFlow(v / 100); });
  connect(erase, &QCheckBox::toggled, &model_, &VeskModel::setBrushErase);
  auto showBrush = [this, size, feather, flow, erase] {
    size->setValue(model_.brushSize() * 100);
    feather->setValue(model_.brushFeather() * 100);
    flow->setValue(model_.brushFlow() * 100);
    const QSignalBlocker b(erase);
    erase->setChecked(model_.brushErase());
  };
  connect(&model_, &VeskModel::brushSizeChanged, this, showBrush);
  connect(&model_, &VeskModel::brushFeatherChanged, this, showBrush);
  connect(&model_, &VeskModel::brushFlowChanged, this, showBrush);
  connect(&model_, &VeskModel::brushEraseChanged, this, showBrush);
  showBrush();
  controls->addWidget(brushControls_);
  body->addWidget(maskControls_);
}

const PhotoMask* DevelopPanels::selectedMask() const {
  const auto id = model_.selectedMask();
  if (!id) return nullptr;
  for (const PhotoMask& m : model_.settings().masks) {
    if (m.id == *id) return &m;
  }
  return nullptr;
}

void DevelopPanels::refresh() {
  const EditSettings& s = model_.settings();
  for (const Binding& b : bindings_) b.row->setValue(b.get(s));
  for (std::size_t band = 0; band < mixerRows_.size(); ++band) {
    const HSLBand b = band < s.hsl.size() ? s.hsl[band] : HSLBand();
    mixerRows_[band]->setValue(mixerMode_ == 0 ? b.hue : mixerMode_ == 1 ? b.saturation : b.luminance);
  }
  for (const Wheel& w : wheels_) w.wheel->setValue((s.*w.field).hue, (s.*w.field).saturation);
  {
    const QSignalBlocker a(blackAndWhite_), b(lens_), c(aspect_);
    blackAndWhite_->setChecked(s.blackAndWhite);
    lens_->setChecked(s.lensCorrection);
    aspect_->setCurrentText(QString::fromStdString(s.cropAspect));
  }
  lens_->setEnabled(model_.lensAvailable());
  lensNote_->setText(
      model_.lensAvailable()
          ? tr("Distortion, colour fringes and vignetting of this camera and lens are corrected.")
          : tr("No lens profile is known for this camera and lens."));
  refreshMasks();
}

void DevelopPanels::refreshMasks() {
  const auto& masks = model_.settings().masks;
  const auto selected = model_.selectedMask();
  {
    const QSignalBlocker block(masks_);
    masks_->clear();
    for (const PhotoMask& m : masks) {
      auto* item = new QListWidgetItem(QStringLiteral("%1   %2").arg(QString::fromStdString(m.name),
                                                                     m.invert ? tr("(inverted)") : QString()),
                                       masks_);
      item->setData(Qt::UserRole, QString::fromStdString(m.id));
      item->setToolTip(text(title(m.kind)));
      if (selected == m.id) masks_->setCurrentItem(item);
    }
    if (masks.empty()) {
      auto* none = new QListWidgetItem(tr("No masks. Add one to adjust part of the photo."), masks_);
      none->setFlags(Qt::NoItemFlags);
    }
  }
  const PhotoMask* m = selectedMask();
  maskControls_->setEnabled(m != nullptr);
  brushControls_->setVisible(!m || m->kind == MaskKind::brush);
  if (!m) return;
  {
    const QSignalBlocker b(maskInvert_);
    maskInvert_->setChecked(m->invert);
  }
  maskOpacity_->setValue(m->opacity * 100);
  for (const auto& [row, field] : maskRows_) row->setValue(m->adjust.*field);
}

void DevelopPanels::refreshHistory() {
  const QSignalBlocker block(history_);
  history_->clear();
  const auto& steps = model_.history();
  // Newest first, as a photographer reads a history.
  for (auto it = steps.rbegin(); it != steps.rend(); ++it) {
    auto* item = new QListWidgetItem(QString::fromStdString(it->name), history_);
    item->setData(Qt::UserRole, it->seq);
    if (it->seq > model_.historyPos()) item->setForeground(theme::dimText);
    if (it->seq == model_.historyPos()) history_->setCurrentItem(item);
  }
}

void DevelopPanels::refreshSnapshots() {
  snapshots_->clear();
  for (const Snapshot& s : model_.snapshots()) {
    auto* item = new QListWidgetItem(QString::fromStdString(s.name), snapshots_);
    item->setData(Qt::UserRole, qlonglong(s.id));
  }
}

void DevelopPanels::refreshPresets() {
  userPresets_->clear();
  for (const UserPreset& p : model_.userPresets()) {
    auto* item = new QListWidgetItem(QString::fromStdString(p.name), userPresets_);
    item->setData(Qt::UserRole, qlonglong(p.id));
  }
  if (model_.userPresets().empty()) {
    auto* none = new QListWidgetItem(tr("None yet"), userPresets_);
    none->setFlags(Qt::NoItemFlags);
  }
}

}  // namespace lumivale::ui
