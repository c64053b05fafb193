#include "app/ui/library_view.h"

#include <QLabel>
#include <QSplitter>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/model/vesk_model.h"
#include "app/ui/library_panels.h"
#include "app/ui/photo_grid.h"

namespace lumivale::ui {

LibraryView::LibraryView(app::VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  splitter_ = new QSplitter(Qt::Horizontal);
  splitter_->setChildrenCollapsible(false);
  splitter_->setHandleWidth(1);
  layout->addWidget(splitter_);

  catalog_ = new CatalogPanel(model);
  catalog_->setMinimumWidth(200);
  splitter_->addWidget(catalog_);
  connect(catalog_, &CatalogPanel::newCollectionRequested, this, &LibraryView::newCollectionRequested);

  auto* centre = new QWidget;
  auto* centreLayout = new QVBoxLayout(centre);
  centreLayout->setContentsMargins(0, 0, 0, 0);
  centreLayout->setSpacing(0);
  filters_ = new FilterBar(model);
  centreLayout->addWidget(filters_);
  title_ = new QLabel;
  title_->setObjectName(QStringLiteral("catalogTitle"));
  title_->setContentsMargins(8, 4, 8, 4);
  centreLayout->addWidget(title_);
  stack_ = new QStackedWidget;
  grid_ = new PhotoGridView(model, false);
  empty_ = new QLabel;
  empty_->setObjectName(QStringLiteral("emptyState"));
  empty_->setAlignment(Qt::AlignCenter);
  empty_->setWordWrap(true);
  empty_->setAutoFillBackground(true);
  stack_->addWidget(grid_);
  stack_->addWidget(empty_);
  centreLayout->addWidget(stack_, 1);
  splitter_->addWidget(centre);

  info_ = new InfoPanel(model);
  info_->setMinimumWidth(250);
  splitter_->addWidget(info_);
  splitter_->setStretchFactor(0, 0);
  splitter_->setStretchFactor(1, 1);
  splitter_->setStretchFactor(2, 0);
  splitter_->setSizes({240, 1000, 300});

  connect(&model, &app::VeskModel::catalogTitleChanged, this, &LibraryView::refreshEmptyState);
  connect(&model, &app::VeskModel::photosReset, this, &LibraryView::refreshEmptyState);
  connect(&model, &app::VeskModel::photosChanged, this, &LibraryView::refreshEmptyState);
  connect(grid_, &PhotoGridView::photoActivated, this, [this](std::int64_t id) {
    model_.select(id);
    model_.enterDevelop();
  });
  refreshEmptyState();
}

void LibraryView::refreshEmptyState() {
  const int count = int(model_.photos().size());
  title_->setText(QStringLiteral("%1   <span style='color:#96969c; font-weight:400'>%2</span>")
                      .arg(model_.catalogTitle().toHtmlEscaped(),
                           count == 1 ? tr("1 photo") : tr("%L1 photos").arg(count)));
  if (count > 0) {
    stack_->setCurrentWidget(grid_);
    return;
  }
  int total = 0;
  for (const auto& [folder, n] : model_.folderCounts()) total += n;
  if (total == 0) {
    empty_->setText(
        tr("<p style='font-size:20px; color:#dedee0'>Your library is empty</p>"
           "<p>Choose <b>File ▸ Import Folder…</b> (Ctrl+Shift+I) to add a folder of photos.<br>"
           "They stay where they are; KUVO Lumivale never changes the originals.</p>"));
  } else {
    empty_->setText(
        tr("<p style='font-size:20px; color:#dedee0'>No photos match</p>"
           "<p>Loosen the rating, flag or label filters, clear the search,<br>"
           "or choose “All Photographs” in the catalog.</p>"));
  }
  stack_->setCurrentWidget(empty_);
}

}  // namespace lumivale::ui
