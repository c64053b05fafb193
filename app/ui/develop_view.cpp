#include "app/ui/develop_view.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QSplitter>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/model/vesk_model.h"
#include "app/ui/develop_canvas.h"
#include "app/ui/develop_panels.h"
#include "app/ui/photo_grid.h"

namespace lumivale::ui {

using app::CompareMode;
using app::VeskModel;

DevelopView::DevelopView(VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  auto* splitter = new QSplitter(Qt::Horizontal);
  splitter->setChildrenCollapsible(false);
  splitter->setHandleWidth(1);
  layout->addWidget(splitter);

  auto* left = new QWidget;
  auto* leftLayout = new QVBoxLayout(left);
  leftLayout->setContentsMargins(0, 0, 0, 0);
  leftLayout->setSpacing(0);

  auto* bar = new QHBoxLayout;
  bar->setContentsMargins(10, 6, 10, 6);
  name_ = new QLabel;
  name_->setObjectName(QStringLiteral("catalogTitle"));
  bar->addWidget(name_, 1);
  auto* compareLabel = new QLabel(tr("Before / After"));
  compareLabel->setObjectName(QStringLiteral("dim"));
  bar->addWidget(compareLabel);
  compare_ = new QComboBox;
  compare_->addItems({tr("Off"), tr("Side by Side"), tr("Split")});
  compare_->setToolTip(tr("Before and after (\\)"));
  bar->addWidget(compare_);
  closeUp_ = new QToolButton;
  closeUp_->setText(tr("1:1"));
  closeUp_->setCheckable(true);
  closeUp_->setToolTip(tr("Close-up (Z)"));
  bar->addWidget(closeUp_);
  frameTime_ = new QLabel;
  frameTime_->setObjectName(QStringLiteral("dim"));
  frameTime_->setMinimumWidth(90);
  frameTime_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  frameTime_->setToolTip(tr("Time the last preview took to render"));
  bar->addWidget(frameTime_);
  leftLayout->addLayout(bar);

  canvas_ = new DevelopCanvas(model);
  leftLayout->addWidget(canvas_, 1);
  filmstrip_ = new PhotoGridView(model, true);
  filmstrip_->setFixedHeight(92);
  leftLayout->addWidget(filmstrip_);
  splitter->addWidget(left);

  panels_ = new DevelopPanels(model);
  auto* scroll = new QScrollArea;
  scroll->setWidget(panels_);
  scroll->setWidgetResizable(true);
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setMinimumWidth(320);
  splitter->addWidget(scroll);
  splitter->setStretchFactor(0, 1);
  splitter->setStretchFactor(1, 0);
  splitter->setSizes({1200, 340});

  connect(compare_, &QComboBox::activated, this, [this](int index) {
    model_.setCompare(index == 1   ? CompareMode::sideBySide
                      : index == 2 ? CompareMode::split
                                   : CompareMode::off);
  });
  connect(closeUp_, &QToolButton::clicked, &model, &VeskModel::setCloseUp);
  for (auto signal : {&VeskModel::compareChanged, &VeskModel::closeUpChanged, &VeskModel::lastFrameMSChanged,
                      &VeskModel::currentIDChanged, &VeskModel::loadingOriginalChanged}) {
    connect(&model, signal, this, &DevelopView::refreshBar);
  }
  connect(&model, &VeskModel::recordsUpdated, this, &DevelopView::refreshBar);
  refreshBar();
}

void DevelopView::refreshBar() {
  const auto record = model_.current();
  name_->setText(record ? QString::fromStdString(record->name) : QString());
  name_->setToolTip(record ? QString::fromStdString(record->path) : QString());
  const QSignalBlocker a(compare_), b(closeUp_);
  compare_->setCurrentIndex(model_.compare() == CompareMode::sideBySide ? 1
                            : model_.compare() == CompareMode::split    ? 2
                                                                        : 0);
  closeUp_->setChecked(model_.closeUp());
  if (model_.loadingOriginal()) {
    frameTime_->setText(tr("Loading original…"));
  } else if (model_.lastFrameMS() > 0) {
    frameTime_->setText(tr("%1 ms").arg(model_.lastFrameMS(), 0, 'f', 0));
  } else {
    frameTime_->clear();
  }
}

}  // namespace lumivale::ui
