#include "app/ui/library_panels.h"

#include <QComboBox>
#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMimeData>
#include <QSlider>
#include <QTableWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/model/vesk_model.h"
#include "app/ui/photo_grid.h"
#include "app/ui/theme.h"

namespace lumivale::ui {

namespace {

QString qs(const std::string& s) { return QString::fromStdString(s); }

QString lastComponent(const std::string& path) {
  QString p = qs(path);
  while (p.size() > 1 && p.endsWith(QLatin1Char('/'))) p.chop(1);
  const QString name = p.section(QLatin1Char('/'), -1);
  return name.isEmpty() ? p : name;
}

/// Photos in `root` and every folder below it.
int photosBelow(const app::VeskModel::FolderCounts& counts, const std::string& root) {
  int total = 0;
  const std::string prefix = root.ends_with('/') ? root : root + "/";
  for (const auto& [folder, count] : counts) {
    if (folder == root || folder.starts_with(prefix)) total += count;
  }
  return total;
}

QLabel* heading(const QString& text) {
  auto* label = new QLabel(text);
  label->setObjectName(QStringLiteral("heading"));
  return label;
}

}  // namespace

// ---- catalog panel ---------------------------------------------------------------------------

CatalogPanel::CatalogPanel(app::VeskModel& model, QWidget* parent) : QTreeWidget(parent), model_(model) {
  setHeaderHidden(true);
  setColumnCount(2);
  header()->setStretchLastSection(false);
  header()->setSectionResizeMode(0, QHeaderView::Stretch);
  header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
  setRootIsDecorated(false);
  setIndentation(12);
  setTextElideMode(Qt::ElideMiddle);
  setFrameShape(QFrame::NoFrame);
  setAcceptDrops(true);
  setDropIndicatorShown(true);
  setUniformRowHeights(true);
  QPalette pal = palette();
  pal.setColor(QPalette::Base, theme::panel);
  setPalette(pal);
  connect(this, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item) { activate(item); });
  connect(&model, &app::VeskModel::collectionsChanged, this, &CatalogPanel::refresh);
  connect(&model, &app::VeskModel::foldersChanged, this, &CatalogPanel::refresh);
  connect(&model, &app::VeskModel::folderCountsChanged, this, &CatalogPanel::refresh);
  connect(&model, &app::VeskModel::keywordCountsChanged, this, &CatalogPanel::refresh);
  connect(&model, &app::VeskModel::catalogTitleChanged, this, &CatalogPanel::refresh);
  refresh();
}

void CatalogPanel::refresh() {
  refreshing_ = true;
  clear();
  const QString shown = model_.catalogTitle();
  const LibraryQuery& query = model_.query();
  auto section = [this](const QString& title) {
    auto* item = new QTreeWidgetItem(this, {title});
    item->setData(0, kindRole, int(Kind::heading));
    item->setFlags(Qt::ItemIsEnabled);
    QFont f = item->font(0);
    f.setBold(true);
    f.setPointSizeF(f.pointSizeF() * 0.92);
    item->setFont(0, f);
    item->setForeground(0, theme::dimText);
    item->setExpanded(true);
    return item;
  };
  auto entry = [&](QTreeWidgetItem* parent, const QString& title, Kind kind, const QVariant& value, int count,
                   bool isShown) {
    auto* item = new QTreeWidgetItem(parent, {title, count >= 0 ? QString::number(count) : QString()});
    item->setData(0, kindRole, int(kind));
    item->setData(0, valueRole, value);
    item->setToolTip(0, title);
    item->setForeground(1, theme::dimText);
    item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    if (isShown) setCurrentItem(item);
    return item;
  };

  int total = 0;
  for (const auto& [folder, count] : model_.folderCounts()) total += count;
  const bool scoped = query.folder || query.collection || query.editedOnly;
  auto* catalog = section(tr("Catalog"));
  entry(catalog, QString::fromUtf8(app::VeskModel::allPhotographsTitle), Kind::all, {}, total,
        !scoped && !shown.startsWith(QLatin1String("Keyword:")));
  entry(catalog, tr("Edited Photos"), Kind::edited, {}, -1, query.editedOnly);

  auto* folders = section(tr("Folders"));
  for (const std::string& folder : model_.folders()) {
    auto* item = entry(folders, lastComponent(folder), Kind::folder, qs(folder),
                       photosBelow(model_.folderCounts(), folder), query.folder == folder);
    item->setToolTip(0, qs(folder));
  }
  if (model_.folders().empty()) {
    auto* none = new QTreeWidgetItem(folders, {tr("No folders yet")});
    none->setFlags(Qt::NoItemFlags);
  }

  auto* collections = section(tr("Collections"));
  for (const Collection& c : model_.collections()) {
    entry(collections, qs(c.name), Kind::collection, qlonglong(c.id), c.count, query.collection == c.id);
  }
  auto* add = new QTreeWidgetItem(collections, {tr("New Collection…")});
  add->setData(0, kindRole, int(Kind::heading));
  add->setData(0, valueRole, QStringLiteral("new"));
  add->setForeground(0, theme::accent);

  auto* keywords = section(tr("Keywords"));
  for (const auto& [word, count] : model_.keywordCounts()) {
    entry(keywords, qs(word), Kind::keyword, qs(word), count,
          shown == QStringLiteral("Keyword: ") + qs(word));
  }
  refreshing_ = false;
}

void CatalogPanel::activate(QTreeWidgetItem* item) {
  if (!item || refreshing_) return;
  const auto kind = Kind(item->data(0, kindRole).toInt());
  const QVariant value = item->data(0, valueRole);
  switch (kind) {
    case Kind::heading:
      if (value.toString() == QLatin1String("new")) emit newCollectionRequested();
      return;
    case Kind::all:
      model_.showCatalog(QString::fromUtf8(app::VeskModel::allPhotographsTitle));
      return;
    case Kind::edited:
      model_.showCatalog(item->text(0), [](LibraryQuery& q) { q.editedOnly = true; });
      return;
    case Kind::folder: {
      const std::string path = value.toString().toStdString();
      model_.showCatalog(QStringLiteral("Folder: ") + item->text(0),
                         [path](LibraryQuery& q) { q.folder = path; });
      return;
    }
    case Kind::collection: {
      const std::int64_t id = value.toLongLong();
      model_.showCatalog(item->text(0), [id](LibraryQuery& q) { q.collection = id; });
      return;
    }
    case Kind::keyword: {
      const QString word = value.toString();
      // The search language finds a keyword; quotes keep a word with spaces whole.
      const QString term = word.contains(QLatin1Char(' ')) ? QStringLiteral("keyword:\"%1\"").arg(word)
                                                           : QStringLiteral("keyword:%1").arg(word);
      model_.showCatalog(QStringLiteral("Keyword: ") + word,
                         [term](LibraryQuery& q) { q.text = term.toStdString(); });
      return;
    }
  }
}

QTreeWidgetItem* CatalogPanel::collectionAt(const QPoint& pos) const {
  QTreeWidgetItem* item = itemAt(pos);
  if (item && Kind(item->data(0, kindRole).toInt()) == Kind::collection) return item;
  return nullptr;
}

void CatalogPanel::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasFormat(QString::fromLatin1(photoIdsMime))) event->acceptProposedAction();
}

void CatalogPanel::dragMoveEvent(QDragMoveEvent* event) {
  QTreeWidgetItem* item = collectionAt(event->position().toPoint());
  if (item && event->mimeData()->hasFormat(QString::fromLatin1(photoIdsMime))) {
    setCurrentItem(item);
    event->acceptProposedAction();
  } else {
    event->ignore();
  }
}

void CatalogPanel::dropEvent(QDropEvent* event) {
  QTreeWidgetItem* item = collectionAt(event->position().toPoint());
  if (!item) return;
  const std::int64_t id = item->data(0, valueRole).toLongLong();
  const auto photos = decodePhotoIds(event->mimeData()->data(QString::fromLatin1(photoIdsMime)));
  Collection target;
  for (const Collection& c : model_.collections()) {
    if (c.id == id) target = c;
  }
  if (!target.id) return;
  model_.addToCollection(target, photos);
  event->acceptProposedAction();
}

void CatalogPanel::contextMenuEvent(QContextMenuEvent* event) {
  QMenu menu(this);
  menu.addAction(tr("New Collection…"), this, &CatalogPanel::newCollectionRequested);
  if (QTreeWidgetItem* item = collectionAt(event->pos())) {
    const std::int64_t id = item->data(0, valueRole).toLongLong();
    const QString name = item->text(0);
    menu.addAction(tr("Rename “%1”…").arg(name), this, [this, id, name] { renameCollection(id, name); });
    menu.addAction(tr("Delete “%1”").arg(name), this, [this, id] {
      for (const Collection& c : model_.collections()) {
        if (c.id == id) model_.deleteCollection(c);
      }
    });
  }
  menu.exec(event->globalPos());
}

void CatalogPanel::renameCollection(std::int64_t id, const QString& oldName) {
  bool ok = false;
  const QString name =
      QInputDialog::getText(this, tr("Rename Collection"), tr("Name:"), QLineEdit::Normal, oldName, &ok)
          .trimmed();
  if (!ok || name.isEmpty() || name == oldName) return;
  for (const Collection& c : model_.collections()) {
    if (c.id == id) {
      model_.renameCollection(c, name);
      return;
    }
  }
}

// ---- filter bar ------------------------------------------------------------------------------

FilterBar::FilterBar(app::VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(10, 6, 10, 4);
  outer->setSpacing(3);
  auto* row = new QHBoxLayout;
  row->setSpacing(6);
  outer->addLayout(row);

  rating_ = new QComboBox;
  rating_->addItem(tr("Any rating"));
  for (int stars = 1; stars <= 5; ++stars) {
    rating_->addItem(QString(stars, QChar(0x2605)) + (stars < 5 ? tr(" and up") : QString()));
  }
  rating_->setToolTip(tr("Minimum rating"));
  row->addWidget(rating_);

  flag_ = new QComboBox;
  for (FlagFilter f : allFlagFilters())
    flag_->addItem(QString::fromUtf8(title(f).data(), int(title(f).size())));
  flag_->setToolTip(tr("Flag filter"));
  row->addWidget(flag_);

  for (ColorLabel label : allColorLabels()) {
    auto* button = new QToolButton;
    const QString key = QString::fromUtf8(lumivale::key(label).data(), int(lumivale::key(label).size()));
    button->setCheckable(true);
    button->setProperty("labelKey", key);
    button->setToolTip(tr("Show %1").arg(QString::fromUtf8(title(label).data(), int(title(label).size()))));
    button->setAccessibleName(QString::fromUtf8(title(label).data(), int(title(label).size())));
    button->setFixedSize(22, 22);
    const QColor c = labelColor(key);
    button->setStyleSheet(QStringLiteral("QToolButton { background: %1; border: 2px solid #2e2e31;"
                                         " border-radius: 11px; }"
                                         "QToolButton:checked { border: 2px solid #ffffff; }")
                              .arg(c.name()));
    connect(button, &QToolButton::toggled, this, [this, key](bool on) {
      changeQuery([&](LibraryQuery& q) {
        if (on) {
          q.labels.insert(key.toStdString());
        } else {
          q.labels.erase(key.toStdString());
        }
      });
    });
    labels_.push_back(button);
    row->addWidget(button);
  }

  search_ = new QLineEdit;
  search_->setPlaceholderText(tr("Search"));
  search_->setClearButtonEnabled(true);
  search_->setToolTip(QString::fromUtf8(searchHelp));
  search_->setMinimumWidth(180);
  row->addWidget(search_, 1);
  searchDelay_ = new QTimer(this);
  searchDelay_->setSingleShot(true);
  searchDelay_->setInterval(250);
  connect(search_, &QLineEdit::textEdited, searchDelay_, qOverload<>(&QTimer::start));
  connect(search_, &QLineEdit::returnPressed, searchDelay_, [this] {
    searchDelay_->stop();
    changeQuery([this](LibraryQuery& q) { q.text = search_->text().toStdString(); });
  });
  connect(searchDelay_, &QTimer::timeout, this,
          [this] { changeQuery([this](LibraryQuery& q) { q.text = search_->text().toStdString(); }); });

  auto* sortLabel = new QLabel(tr("Sort"));
  sortLabel->setObjectName(QStringLiteral("dim"));
  row->addWidget(sortLabel);
  sort_ = new QComboBox;
  for (SortOrder o : allSortOrders())
    sort_->addItem(QString::fromUtf8(title(o).data(), int(title(o).size())));
  row->addWidget(sort_);
  direction_ = new QToolButton;
  direction_->setAutoRaise(true);
  direction_->setFixedWidth(26);
  row->addWidget(direction_);

  auto* sizeIcon = new QLabel(QStringLiteral("▦"));
  sizeIcon->setObjectName(QStringLiteral("dim"));
  sizeIcon->setToolTip(tr("Thumbnail size (+ and −)"));
  row->addSpacing(8);
  row->addWidget(sizeIcon);
  size_ = new QSlider(Qt::Horizontal);
  size_->setRange(80, 480);
  size_->setFixedWidth(110);
  size_->setToolTip(sizeIcon->toolTip());
  row->addWidget(size_);

  auto* help = new QLabel(QString::fromUtf8(searchHelp));
  help->setObjectName(QStringLiteral("dim"));
  QFont small = help->font();
  small.setPointSizeF(small.pointSizeF() * 0.88);
  help->setFont(small);
  outer->addWidget(help);

  connect(rating_, &QComboBox::activated, this,
          [this](int index) { changeQuery([index](LibraryQuery& q) { q.minRating = index; }); });
  connect(flag_, &QComboBox::activated, this, [this](int index) {
    changeQuery([index](LibraryQuery& q) { q.flag = allFlagFilters()[std::size_t(index)]; });
  });
  connect(sort_, &QComboBox::activated, this, [this](int index) {
    changeQuery([index](LibraryQuery& q) { q.sort = allSortOrders()[std::size_t(index)]; });
  });
  connect(direction_, &QToolButton::clicked, this,
          [this] { changeQuery([](LibraryQuery& q) { q.ascending = !q.ascending; }); });
  connect(size_, &QSlider::valueChanged, this, [this](int v) {
    if (int(model_.gridSize()) != v) model_.setGridSize(v);
  });
  connect(&model, &app::VeskModel::queryChanged, this, &FilterBar::refresh);
  connect(&model, &app::VeskModel::gridSizeChanged, this, &FilterBar::refresh);
  refresh();
}

void FilterBar::changeQuery(const std::function<void(LibraryQuery&)>& body) {
  LibraryQuery q = model_.query();
  body(q);
  model_.setQuery(q);
}

void FilterBar::refresh() {
  const LibraryQuery& q = model_.query();
  const QSignalBlocker b1(rating_), b2(flag_), b3(sort_), b4(size_);
  rating_->setCurrentIndex(std::clamp(q.minRating, 0, 5));
  const auto& flags = allFlagFilters();
  flag_->setCurrentIndex(int(std::find(flags.begin(), flags.end(), q.flag) - flags.begin()));
  const auto& orders = allSortOrders();
  sort_->setCurrentIndex(int(std::find(orders.begin(), orders.end(), q.sort) - orders.begin()));
  direction_->setText(q.ascending ? QStringLiteral("↑") : QStringLiteral("↓"));
  direction_->setToolTip(q.ascending ? tr("Ascending: oldest or smallest first")
                                     : tr("Descending: newest or largest first"));
  for (QToolButton* button : labels_) {
    const QSignalBlocker block(button);
    button->setChecked(q.labels.count(button->property("labelKey").toString().toStdString()) > 0);
  }
  if (!search_->hasFocus() && search_->text().toStdString() != q.text)
    search_->setText(QString::fromStdString(q.text));
  size_->setValue(int(model_.gridSize()));
}

// ---- info panel ------------------------------------------------------------------------------

InfoPanel::InfoPanel(app::VeskModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(10, 10, 10, 10);
  layout->setSpacing(6);
  title_ = new QLabel;
  title_->setObjectName(QStringLiteral("catalogTitle"));
  title_->setWordWrap(true);
  title_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  layout->addWidget(title_);
  summary_ = new QLabel;
  summary_->setObjectName(QStringLiteral("dim"));
  summary_->setWordWrap(true);
  layout->addWidget(summary_);

  layout->addWidget(heading(tr("Details")));
  details_ = new QTableWidget(0, 2);
  details_->horizontalHeader()->hide();
  details_->verticalHeader()->hide();
  details_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  details_->horizontalHeader()->setStretchLastSection(true);
  details_->setShowGrid(false);
  details_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  details_->setSelectionMode(QAbstractItemView::NoSelection);
  details_->setFocusPolicy(Qt::NoFocus);
  details_->setWordWrap(true);
  details_->setFrameShape(QFrame::NoFrame);
  details_->verticalHeader()->setDefaultSectionSize(20);
  layout->addWidget(details_, 3);

  layout->addWidget(heading(tr("Keywords")));
  keywords_ = new QListWidget;
  keywords_->setFrameShape(QFrame::NoFrame);
  keywords_->setToolTip(tr("Double-click a keyword to remove it from the selected photos"));
  layout->addWidget(keywords_, 1);
  addKeyword_ = new QLineEdit;
  addKeyword_->setPlaceholderText(tr("Add keywords, separated by commas"));
  layout->addWidget(addKeyword_);
  connect(addKeyword_, &QLineEdit::returnPressed, this, [this] {
    model_.addKeywords(addKeyword_->text());
    addKeyword_->clear();
  });
  connect(keywords_, &QListWidget::itemDoubleClicked, this,
          [this](QListWidgetItem* item) { model_.removeKeyword(item->text().toStdString()); });

  layout->addWidget(heading(tr("Collections")));
  collections_ = new QListWidget;
  collections_->setFrameShape(QFrame::NoFrame);
  layout->addWidget(collections_, 1);
  connect(collections_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
    if (!shown_) return;
    const std::int64_t id = item->data(Qt::UserRole).toLongLong();
    for (const Collection& c : model_.collections()) {
      if (c.id == id) {
        // Deferred: toggling refreshes the list this item belongs to.
        QTimer::singleShot(0, this, [this, c] { model_.toggleCollection(c, shown_); });
      }
    }
  });

  connect(&model, &app::VeskModel::currentIDChanged, this, &InfoPanel::refresh);
  connect(&model, &app::VeskModel::recordsUpdated, this, &InfoPanel::refresh);
  connect(&model, &app::VeskModel::photosReset, this, &InfoPanel::refresh);
  connect(&model, &app::VeskModel::collectionsChanged, this, &InfoPanel::refreshCollections);
  connect(&model, &app::VeskModel::currentCollectionsChanged, this, &InfoPanel::refreshCollections);
  connect(&model, &app::VeskModel::currentKeywordsChanged, this, &InfoPanel::refreshKeywords);
  connect(&model, &app::VeskModel::currentDetailsChanged, this, &InfoPanel::showDetails);
  refresh();
}

void InfoPanel::refresh() {
  const auto record = model_.current();
  if (!record) {
    shown_ = 0;
    title_->setText(tr("No photo"));
    summary_->clear();
    details_->clearSpans();
    details_->setRowCount(0);
    keywords_->clear();
    collections_->clear();
    addKeyword_->setEnabled(false);
    return;
  }
  addKeyword_->setEnabled(true);
  // Long names without spaces may break after dashes, dots and underscores.
  QString name = QString::fromStdString(record->name);
  for (const QChar c : {QLatin1Char('-'), QLatin1Char('_'), QLatin1Char('.')}) {
    name.replace(c, QString(c) + QChar(0x200B));
  }
  title_->setText(name);
  title_->setToolTip(QString::fromStdString(record->path));
  summary_->setText(QString::fromStdString(record->summary()));
  shown_ = record->id;
  showDetails();
  refreshKeywords();
  refreshCollections();
}

void InfoPanel::showDetails() {
  details_->clearSpans();
  details_->setRowCount(0);
  // Nothing yet while the file's header is read in the background.
  if (!shown_ || !model_.currentDetails()) return;
  const std::vector<DetailRow>& rows = *model_.currentDetails();
  details_->setRowCount(int(rows.size()));
  for (int i = 0; i < int(rows.size()); ++i) {
    auto* label = new QTableWidgetItem(QString::fromStdString(rows[std::size_t(i)].label));
    label->setForeground(theme::dimText);
    auto* value = new QTableWidgetItem(QString::fromStdString(rows[std::size_t(i)].value));
    value->setToolTip(value->text());
    details_->setItem(i, 0, label);
    details_->setItem(i, 1, value);
  }
  if (rows.empty()) {
    details_->setRowCount(1);
    auto* item = new QTableWidgetItem(tr("The file could not be read"));
    item->setForeground(theme::dimText);
    details_->setItem(0, 0, item);
    details_->setSpan(0, 0, 1, 2);
  }
}

void InfoPanel::refreshKeywords() {
  keywords_->clear();
  if (!shown_) return;
  for (const std::string& word : model_.currentKeywords()) {
    keywords_->addItem(QString::fromStdString(word));
  }
}

void InfoPanel::refreshCollections() {
  const QSignalBlocker block(collections_);
  collections_->clear();
  if (!shown_) return;
  const app::VeskModel::IDSet& containing = model_.currentCollections();
  for (const Collection& c : model_.collections()) {
    auto* item = new QListWidgetItem(QString::fromStdString(c.name), collections_);
    item->setData(Qt::UserRole, qlonglong(c.id));
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
    item->setCheckState(containing.count(c.id) ? Qt::Checked : Qt::Unchecked);
  }
}

}  // namespace lumivale::ui
