#include "app/ui/sheets.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>
#include <algorithm>

namespace lumivale::ui {

using app::VeskModel;
using app::VeskSheet;

namespace {

QString text(std::string_view s) { return QString::fromUtf8(s.data(), int(s.size())); }

template <class E>
void fillCombo(QComboBox* combo) {
  for (E value : allCases<E>()) combo->addItem(text(title(value)));
}

template <class E>
E chosen(const QComboBox* combo) {
  const auto cases = allCases<E>();
  const int i = std::clamp(combo->currentIndex(), 0, int(cases.size()) - 1);
  return cases[std::size_t(i)];
}

template <class E>
void choose(QComboBox* combo, E value) {
  const auto cases = allCases<E>();
  combo->setCurrentIndex(int(std::find(cases.begin(), cases.end(), value) - cases.begin()));
}

QDialogButtonBox* okCancel(QDialog* dialog, const QString& okText) {
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  buttons->button(QDialogButtonBox::Ok)->setText(okText);
  for (QAbstractButton* b : buttons->buttons()) b->setIcon({});
  QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
  QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
  return buttons;
}

QDialog* newCollectionSheet(VeskModel& model, QWidget* parent) {
  auto* dialog = new QDialog(parent);
  dialog->setWindowTitle(QObject::tr("New Collection"));
  auto* layout = new QVBoxLayout(dialog);
  auto* form = new QFormLayout;
  auto* name = new QLineEdit;
  name->setObjectName(QStringLiteral("name"));
  name->setPlaceholderText(QObject::tr("Collection name"));
  form->addRow(QObject::tr("Name:"), name);
  layout->addLayout(form);
  const auto count = model.selectedIDs().size();
  auto* add = new QCheckBox(count == 1 ? QObject::tr("Add the selected photo")
                                       : QObject::tr("Add the %1 selected photos").arg(count));
  add->setObjectName(QStringLiteral("addSelection"));
  add->setChecked(count > 0);
  add->setEnabled(count > 0);
  layout->addWidget(add);
  auto* buttons = okCancel(dialog, QObject::tr("Create"));
  buttons->button(QDialogButtonBox::Ok)->setEnabled(false);
  QObject::connect(name, &QLineEdit::textChanged, buttons, [buttons](const QString& t) {
    buttons->button(QDialogButtonBox::Ok)->setEnabled(!t.trimmed().isEmpty());
  });
  layout->addWidget(buttons);
  QObject::connect(dialog, &QDialog::accepted, dialog, [&model, name, add] {
    const QString trimmed = name->text().trimmed();
    if (!trimmed.isEmpty()) model.createCollection(trimmed.toStdString(), add->isChecked());
  });
  dialog->resize(380, dialog->sizeHint().height());
  return dialog;
}

QDialog* keywordsSheet(VeskModel& model, QWidget* parent) {
  auto* dialog = new QDialog(parent);
  dialog->setWindowTitle(QObject::tr("Keywords"));
  auto* layout = new QVBoxLayout(dialog);
  const auto count = model.selectedIDs().size();
  layout->addWidget(new QLabel(count == 1
                                   ? QObject::tr("Add keywords to the selected photo.")
                                   : QObject::tr("Add keywords to the %1 selected photos.").arg(count)));
  auto* words = new QLineEdit;
  words->setObjectName(QStringLiteral("keywords"));
  words->setPlaceholderText(QObject::tr("sky, beach; family"));
  layout->addWidget(words);
  auto* hint = new QLabel(QObject::tr("Separate keywords with commas or semicolons."));
  hint->setObjectName(QStringLiteral("dim"));
  layout->addWidget(hint);
  if (!model.keywordList().empty()) {
    auto* known = new QListWidget;
    known->setObjectName(QStringLiteral("known"));
    for (const std::string& w : model.keywordList()) known->addItem(QString::fromStdString(w));
    known->setToolTip(QObject::tr("Click a keyword to add it to the field"));
    known->setMaximumHeight(160);
    QObject::connect(known, &QListWidget::itemClicked, words, [words](QListWidgetItem* item) {
      QString t = words->text().trimmed();
      if (!t.isEmpty() && !t.endsWith(QLatin1Char(','))) t += QStringLiteral(", ");
      words->setText(t + item->text());
    });
    layout->addWidget(known);
  }
  layout->addWidget(okCancel(dialog, QObject::tr("Add")));
  QObject::connect(dialog, &QDialog::accepted, dialog, [&model, words] { model.addKeywords(words->text()); });
  dialog->resize(420, dialog->sizeHint().height());
  return dialog;
}

QDialog* importDoneSheet(VeskModel& model, QWidget* parent) {
  const auto result = model.lastImport();
  if (!result) return nullptr;
  auto* dialog = new QDialog(parent);
  dialog->setWindowTitle(QObject::tr("Import Finished"));
  auto* layout = new QVBoxLayout(dialog);
  auto* headline = new QLabel(result->added == 1
                                  ? QObject::tr("1 photo was added to the library.")
                                  : QObject::tr("%L1 photos were added to the library.").arg(result->added));
  QFont f = headline->font();
  f.setPointSizeF(f.pointSizeF() * 1.2);
  f.setBold(true);
  headline->setFont(f);
  layout->addWidget(headline);
  auto* form = new QFormLayout;
  form->addRow(QObject::tr("Added:"), new QLabel(QString::number(result->added)));
  form->addRow(QObject::tr("Already in the library:"), new QLabel(QString::number(result->skipped)));
  form->addRow(QObject::tr("Could not be read:"), new QLabel(QString::number(result->failed)));
  form->addRow(QObject::tr("Time:"),
               new QLabel(QString::fromStdString(formatFixed(result->seconds, 1)) + " s"));
  layout->addLayout(form);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
  QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
  layout->addWidget(buttons);
  return dialog;
}

}  // namespace

// ---- groups ------------------------------------------------------------------------------------

GroupChooser::GroupChooser(const std::set<SettingsGroup>& chosen, QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  auto* grid = new QGridLayout;
  int i = 0;
  for (SettingsGroup group : allSettingsGroups()) {
    auto* box = new QCheckBox(text(title(group)));
    box->setObjectName(text(rawValue(group)));
    box->setChecked(chosen.count(group) > 0);
    boxes_[group] = box;
    grid->addWidget(box, i % 6, i / 6);
    ++i;
  }
  layout->addLayout(grid);
  auto* row = new QHBoxLayout;
  auto* all = new QPushButton(tr("All"));
  auto* none = new QPushButton(tr("None"));
  auto* look = new QPushButton(tr("All but Local"));
  look->setToolTip(tr("Everything except crop, geometry and masks"));
  row->addWidget(all);
  row->addWidget(none);
  row->addWidget(look);
  row->addStretch();
  layout->addLayout(row);
  connect(all, &QPushButton::clicked, this, [this] {
    setGroups({allSettingsGroups().begin(), allSettingsGroups().end()});
  });
  connect(none, &QPushButton::clicked, this, [this] { setGroups({}); });
  connect(look, &QPushButton::clicked, this, [this] { setGroups(allButLocal()); });
}

std::set<SettingsGroup> GroupChooser::groups() const {
  std::set<SettingsGroup> out;
  for (const auto& [group, box] : boxes_) {
    if (box->isChecked()) out.insert(group);
  }
  return out;
}

void GroupChooser::setGroups(const std::set<SettingsGroup>& groups) {
  for (const auto& [group, box] : boxes_) box->setChecked(groups.count(group) > 0);
}

CopySettingsSheet::CopySettingsSheet(VeskModel& model, QWidget* parent) : QDialog(parent) {
  setWindowTitle(tr("Copy Settings"));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(
      new QLabel(tr("Copy these settings of the current photo. Paste Settings and Sync Settings "
                    "carry the same groups.")));
  chooser_ = new GroupChooser(model.copyGroups().empty() ? allButLocal() : model.copyGroups());
  layout->addWidget(chooser_);
  layout->addWidget(okCancel(this, tr("Copy")));
  connect(this, &QDialog::accepted, this, [this, &model] {
    model.setCopyGroups(chooser_->groups());
    model.copySettings();
  });
}

SavePresetSheet::SavePresetSheet(VeskModel& model, QWidget* parent) : QDialog(parent) {
  setWindowTitle(tr("Save Preset"));
  auto* layout = new QVBoxLayout(this);
  auto* form = new QFormLayout;
  name_ = new QLineEdit;
  name_->setPlaceholderText(tr("Preset name"));
  form->addRow(tr("Name:"), name_);
  layout->addLayout(form);
  layout->addWidget(new QLabel(tr("Settings the preset carries:")));
  chooser_ = new GroupChooser(allButLocal());
  layout->addWidget(chooser_);
  auto* buttons = okCancel(this, tr("Save"));
  buttons->button(QDialogButtonBox::Ok)->setEnabled(false);
  connect(name_, &QLineEdit::textChanged, buttons, [buttons](const QString& t) {
    buttons->button(QDialogButtonBox::Ok)->setEnabled(!t.trimmed().isEmpty());
  });
  layout->addWidget(buttons);
  connect(this, &QDialog::accepted, this, [this, &model] {
    const QString name = name_->text().trimmed();
    if (!name.isEmpty()) model.savePreset(name.toStdString(), chooser_->groups());
  });
}

// ---- export --------------------------------------------------------------------------------------

ExportSheet::ExportSheet(VeskModel& model, QWidget* parent) : QDialog(parent), model_(model) {
  ids_ = model.selectedIDs();
  setWindowTitle(ids_.size() == 1 ? tr("Export 1 Photo") : tr("Export %1 Photos").arg(ids_.size()));
  auto* layout = new QVBoxLayout(this);
  auto* heading = new QLabel(windowTitle());
  heading->setObjectName(QStringLiteral("catalogTitle"));
  layout->addWidget(heading);
  auto* columns = new QHBoxLayout;
  layout->addLayout(columns);

  auto* fileBox = new QGroupBox(tr("File"));
  auto* fileForm = new QFormLayout(fileBox);
  format_ = new QComboBox;
  fillCombo<ExportFormat>(format_);
  fileForm->addRow(tr("Format:"), format_);
  auto* qualityRow = new QHBoxLayout;
  quality_ = new QSlider(Qt::Horizontal);
  quality_->setRange(0, 100);
  qualityValue_ = new QLabel;
  qualityValue_->setMinimumWidth(36);
  qualityRow->addWidget(quality_);
  qualityRow->addWidget(qualityValue_);
  fileForm->addRow(tr("Quality:"), qualityRow);
  tiff16_ = new QCheckBox(tr("16 bits per channel"));
  fileForm->addRow(QString(), tiff16_);
  colorSpace_ = new QComboBox;
  fillCombo<ExportColorSpace>(colorSpace_);
  fileForm->addRow(tr("Colour space:"), colorSpace_);

  auto* sizeBox = new QGroupBox(tr("Size"));
  auto* sizeForm = new QFormLayout(sizeBox);
  sizeMode_ = new QComboBox;
  fillCombo<SizeMode>(sizeMode_);
  sizeForm->addRow(tr("Resize to:"), sizeMode_);
  sizeValue_ = new QSpinBox;
  sizeValue_->setRange(1, 100000);
  sizeForm->addRow(tr("Value:"), sizeValue_);
  dontEnlarge_ = new QCheckBox(tr("Don't enlarge"));
  sizeForm->addRow(QString(), dontEnlarge_);
  sharpening_ = new QComboBox;
  fillCombo<OutputSharpening>(sharpening_);
  sizeForm->addRow(tr("Output sharpening:"), sharpening_);
  sharpenLevel_ = new QComboBox;
  fillCombo<SharpenLevel>(sharpenLevel_);
  sizeForm->addRow(tr("Amount:"), sharpenLevel_);

  auto* left = new QVBoxLayout;
  left->addWidget(fileBox);
  left->addWidget(sizeBox);
  left->addStretch();
  columns->addLayout(left, 1);

  auto* markBox = new QGroupBox(tr("Watermark"));
  auto* markForm = new QFormLayout(markBox);
  watermarkOn_ = new QCheckBox(tr("Add a text watermark"));
  markForm->addRow(QString(), watermarkOn_);
  watermarkText_ = new QLineEdit;
  markForm->addRow(tr("Text:"), watermarkText_);
  watermarkSize_ = new QDoubleSpinBox;
  watermarkSize_->setRange(0.5, 50);
  watermarkSize_->setSingleStep(0.5);
  watermarkSize_->setSuffix(tr(" % of the short side"));
  markForm->addRow(tr("Size:"), watermarkSize_);
  watermarkOpacity_ = new QSlider(Qt::Horizontal);
  watermarkOpacity_->setRange(0, 100);
  markForm->addRow(tr("Opacity:"), watermarkOpacity_);
  watermarkPosition_ = new QComboBox;
  fillCombo<WatermarkPosition>(watermarkPosition_);
  markForm->addRow(tr("Position:"), watermarkPosition_);
  watermarkDark_ = new QCheckBox(tr("Dark text"));
  markForm->addRow(QString(), watermarkDark_);

  auto* metaBox = new QGroupBox(tr("Metadata and Names"));
  auto* metaForm = new QFormLayout(metaBox);
  metadata_ = new QComboBox;
  fillCombo<MetadataPolicy>(metadata_);
  metaForm->addRow(tr("Metadata:"), metadata_);
  copyright_ = new QLineEdit;
  copyright_->setPlaceholderText(tr("© 2024 Your Name"));
  metaForm->addRow(tr("Copyright:"), copyright_);
  naming_ = new QComboBox;
  fillCombo<NamingMode>(naming_);
  metaForm->addRow(tr("File names:"), naming_);
  suffix_ = new QLineEdit;
  metaForm->addRow(tr("Suffix:"), suffix_);
  customName_ = new QLineEdit;
  metaForm->addRow(tr("Custom name:"), customName_);

  auto* right = new QVBoxLayout;
  right->addWidget(markBox);
  right->addWidget(metaBox);
  right->addStretch();
  columns->addLayout(right, 1);

  auto* folderRow = new QHBoxLayout;
  folderRow->addWidget(new QLabel(tr("Export to:")));
  folder_ = new QLineEdit;
  folder_->setPlaceholderText(tr("Choose a folder…"));
  folderRow->addWidget(folder_, 1);
  auto* choose = new QPushButton(tr("Choose…"));
  folderRow->addWidget(choose);
  layout->addLayout(folderRow);

  progress_ = new QProgressBar;
  progress_->setVisible(false);
  layout->addWidget(progress_);
  results_ = new QListWidget;
  results_->setVisible(false);
  results_->setMaximumHeight(140);
  layout->addWidget(results_);

  auto* buttons = new QDialogButtonBox;
  closeButton_ = buttons->addButton(QDialogButtonBox::Cancel);
  exportButton_ = buttons->addButton(tr("Export"), QDialogButtonBox::AcceptRole);
  exportButton_->setDefault(true);
  closeButton_->setIcon({});
  layout->addWidget(buttons);

  connect(choose, &QPushButton::clicked, this, [this] {
    const QString dir = QFileDialog::getExistingDirectory(this, tr("Export to Folder"), folder_->text());
    if (!dir.isEmpty()) folder_->setText(dir);
  });
  connect(exportButton_, &QPushButton::clicked, this, &ExportSheet::startExport);
  connect(closeButton_, &QPushButton::clicked, this, &QDialog::reject);
  for (QComboBox* combo : {format_, sizeMode_, sharpening_, naming_}) {
    connect(combo, &QComboBox::currentIndexChanged, this, &ExportSheet::refreshEnabled);
  }
  connect(watermarkOn_, &QCheckBox::toggled, this, &ExportSheet::refreshEnabled);
  connect(quality_, &QSlider::valueChanged, this,
          [this](int v) { qualityValue_->setText(QString::number(v)); });
  connect(&model, &VeskModel::exportProgressChanged, this, &ExportSheet::showProgress);

  showOptions(model.exportOptions());
  resize(820, sizeHint().height());
}

void ExportSheet::showOptions(const ExportOptions& o) {
  choose(format_, o.format);
  quality_->setValue(int(std::lround(std::clamp(o.quality, 0.0, 1.0) * 100)));
  qualityValue_->setText(QString::number(quality_->value()));
  tiff16_->setChecked(o.tiff16Bit);
  choose(sizeMode_, o.sizeMode);
  sizeValue_->setValue(int(std::clamp(o.sizeValue, 1.0, 100000.0)));
  dontEnlarge_->setChecked(o.dontEnlarge);
  choose(colorSpace_, o.colorSpace);
  choose(sharpening_, o.sharpening);
  choose(sharpenLevel_, o.sharpenLevel);
  watermarkOn_->setChecked(o.watermarkOn);
  watermarkText_->setText(QString::fromStdString(o.watermarkText));
  watermarkSize_->setValue(o.watermarkSize);
  watermarkOpacity_->setValue(int(std::lround(std::clamp(o.watermarkOpacity, 0.0, 1.0) * 100)));
  choose(watermarkPosition_, o.watermarkPosition);
  watermarkDark_->setChecked(o.watermarkDark);
  choose(metadata_, o.metadata);
  copyright_->setText(QString::fromStdString(o.copyright));
  choose(naming_, o.naming);
  suffix_->setText(QString::fromStdString(o.suffix));
  customName_->setText(QString::fromStdString(o.customName));
  folder_->setText(QString::fromStdString(o.folderPath));
  refreshEnabled();
}

ExportOptions ExportSheet::options() const {
  ExportOptions o = model_.exportOptions();
  o.format = chosen<ExportFormat>(format_);
  o.quality = quality_->value() / 100.0;
  o.tiff16Bit = tiff16_->isChecked();
  o.sizeMode = chosen<SizeMode>(sizeMode_);
  o.sizeValue = sizeValue_->value();
  o.dontEnlarge = dontEnlarge_->isChecked();
  o.colorSpace = chosen<ExportColorSpace>(colorSpace_);
  o.sharpening = chosen<OutputSharpening>(sharpening_);
  o.sharpenLevel = chosen<SharpenLevel>(sharpenLevel_);
  o.watermarkOn = watermarkOn_->isChecked();
  o.watermarkText = watermarkText_->text().toStdString();
  o.watermarkSize = watermarkSize_->value();
  o.watermarkOpacity = watermarkOpacity_->value() / 100.0;
  o.watermarkPosition = chosen<WatermarkPosition>(watermarkPosition_);
  o.watermarkDark = watermarkDark_->isChecked();
  o.metadata = chosen<MetadataPolicy>(metadata_);
  o.copyright = copyright_->text().toStdString();
  o.naming = chosen<NamingMode>(naming_);
  o.suffix = suffix_->text().toStdString();
  o.customName = customName_->text().toStdString();
  o.folderPath = folder_->text().trimmed().toStdString();
  return o;
}

void ExportSheet::refreshEnabled() {
  const ExportFormat f = chosen<ExportFormat>(format_);
  quality_->setEnabled(lossy(f));
  tiff16_->setEnabled(f == ExportFormat::tiff);
  const bool resized = chosen<SizeMode>(sizeMode_) != SizeMode::original;
  sizeValue_->setEnabled(resized);
  sizeValue_->setSuffix(chosen<SizeMode>(sizeMode_) == SizeMode::percent ? tr(" %") : tr(" px"));
  dontEnlarge_->setEnabled(resized);
  sharpenLevel_->setEnabled(chosen<OutputSharpening>(sharpening_) != OutputSharpening::none);
  const bool mark = watermarkOn_->isChecked();
  for (QWidget* w : std::initializer_list<QWidget*>{watermarkText_, watermarkSize_, watermarkOpacity_,
                                                    watermarkPosition_, watermarkDark_}) {
    w->setEnabled(mark);
  }
  suffix_->setEnabled(chosen<NamingMode>(naming_) == NamingMode::originalSuffix);
  customName_->setEnabled(chosen<NamingMode>(naming_) == NamingMode::custom);
  exportButton_->setEnabled(!ids_.empty());
}

void ExportSheet::startExport() {
  if (folder_->text().trimmed().isEmpty()) {
    const QString dir = QFileDialog::getExistingDirectory(this, tr("Export to Folder"));
    if (dir.isEmpty()) return;
    folder_->setText(dir);
  }
  const ExportOptions o = options();
  model_.setExportOptions(o);
  exportButton_->setEnabled(false);
  results_->clear();
  results_->setVisible(false);
  progress_->setRange(0, int(ids_.size()));
  progress_->setValue(0);
  progress_->setVisible(true);
  QPointer<ExportSheet> self(this);
  model_.exportPhotos(ids_, o.folderPath, [self](const app::ExportSummary& summary) {
    if (self) self->finish(summary);
  });
}

void ExportSheet::showProgress() {
  if (const auto& p = model_.exportProgress()) {
    progress_->setRange(0, std::max(1, p->second));
    progress_->setValue(p->first);
    progress_->setFormat(tr("%1 of %2").arg(p->first).arg(p->second));
  }
}

void ExportSheet::finish(const app::ExportSummary& summary) {
  progress_->setValue(progress_->maximum());
  progress_->setFormat(summary.written == 1 ? tr("1 file written")
                                            : tr("%1 files written").arg(summary.written));
  results_->setVisible(true);
  for (const auto& file : summary.files) results_->addItem(QString::fromStdString(file.string()));
  for (const std::string& error : summary.errors) {
    auto* item = new QListWidgetItem(QString::fromStdString(error), results_);
    item->setForeground(QColor(0xe0, 0x70, 0x68));
  }
  closeButton_->setText(tr("Done"));
  exportButton_->setEnabled(true);
}

QDialog* makeSheet(VeskSheet sheet, VeskModel& model, QWidget* parent) {
  switch (sheet) {
    case VeskSheet::exportPhotos:
      return model.selectedIDs().empty() ? nullptr : new ExportSheet(model, parent);
    case VeskSheet::copySettings:
      return model.current() ? new CopySettingsSheet(model, parent) : nullptr;
    case VeskSheet::savePreset:
      return model.current() ? new SavePresetSheet(model, parent) : nullptr;
    case VeskSheet::newCollection:
      return newCollectionSheet(model, parent);
    case VeskSheet::keywords:
      return model.selectedIDs().empty() ? nullptr : keywordsSheet(model, parent);
    case VeskSheet::importDone:
      return importDoneSheet(model, parent);
  }
  return nullptr;
}

}  // namespace lumivale::ui
