#include "app/ui/main_window.h"

#include <QAction>
#include <QCloseEvent>
#include <QDialog>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QStatusBar>
#include <algorithm>

#include "app/model/vesk_model.h"
#include "app/ui/develop_view.h"
#include "app/ui/help.h"
#include "app/ui/library_view.h"
#include "app/ui/sheets.h"

namespace lumivale::ui {

using app::Module;
using app::VeskModel;
using app::VeskSheet;

std::optional<QString> askForImportFolder(QWidget* parent) {
  QFileDialog dialog(parent, QObject::tr("Import Folder"));
  dialog.setFileMode(QFileDialog::Directory);
  dialog.setOption(QFileDialog::ShowDirsOnly);
  dialog.setOption(QFileDialog::DontUseNativeDialog);
  dialog.setLabelText(QFileDialog::Accept, QString::fromUtf8(VeskModel::importChooserButton));
  // The chooser's own layout is a grid; the message goes above it.
  if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
    auto* message = new QLabel(QString::fromUtf8(VeskModel::importChooserMessage));
    message->setWordWrap(true);
    grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
  }
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
  return dialog.selectedFiles().first();
}

MainWindow::MainWindow(VeskModel& model, QWidget* parent) : QMainWindow(parent), model_(model) {
  setWindowTitle(QStringLiteral("KUVO Lumivale"));
  setObjectName(QStringLiteral("main"));
  setMinimumSize(minimumWidth, minimumHeight);
  resize(defaultWidth, defaultHeight);

  confirm = [this](const QString& message, const QString& informative, const QString& yes,
                   const QString& no) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("KUVO Lumivale"), message, QMessageBox::NoButton,
                    this);
    box.setInformativeText(informative);
    QPushButton* remove = box.addButton(yes, QMessageBox::AcceptRole);
    box.addButton(no, QMessageBox::RejectRole);
    box.setDefaultButton(remove);
    box.exec();
    return box.clickedButton() == remove;
  };
  chooseImportFolder = [this] { return askForImportFolder(this); };

  stack_ = new QStackedWidget;
  library_ = new LibraryView(model);
  develop_ = new DevelopView(model);
  stack_->addWidget(library_);
  stack_->addWidget(develop_);
  setCentralWidget(stack_);
  connect(library_, &LibraryView::newCollectionRequested, this,
          [this] { model_.setSheet(VeskSheet::newCollection); });

  status_ = new QLabel;
  status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  importing_ = new QLabel;
  importBar_ = new QProgressBar;
  importBar_->setRange(0, 0);
  importBar_->setMaximumWidth(160);
  importBar_->setMaximumHeight(12);
  importBar_->setTextVisible(false);
  statusBar()->addWidget(status_, 1);
  statusBar()->addPermanentWidget(importing_);
  statusBar()->addPermanentWidget(importBar_);
  statusBar()->setSizeGripEnabled(false);

  buildMenus();
  connect(&model, &VeskModel::moduleChanged, this, &MainWindow::showModule);
  connect(&model, &VeskModel::sheetChanged, this, &MainWindow::showSheet);
  connect(&model, &VeskModel::statusChanged, this, &MainWindow::refreshStatus);
  connect(&model, &VeskModel::importingChanged, this, &MainWindow::refreshStatus);
  connect(&model, &VeskModel::undoStateChanged, this, &MainWindow::refreshCommands);
  connect(&model, &VeskModel::clipboardChanged, this, &MainWindow::refreshCommands);
  connect(&model, &VeskModel::currentIDChanged, this, &MainWindow::refreshCommands);
  connect(&model, &VeskModel::moduleChanged, this, &MainWindow::refreshCommands);
  showModule();
  refreshStatus();
  refreshCommands();
  restoreWindowGeometry();
}

QAction* MainWindow::command(const QString& name) const { return findChild<QAction*>(name); }

QAction* MainWindow::addCommand(QMenu* menu, const QString& name, const QString& text,
                                const QKeySequence& key, std::function<void()> run) {
  auto* action = new QAction(text, this);
  action->setObjectName(name);
  if (!key.isEmpty()) action->setShortcut(key);
  action->setShortcutContext(Qt::WindowShortcut);
  connect(action, &QAction::triggered, this, [run = std::move(run)] { run(); });
  menu->addAction(action);
  addAction(action);  // shortcuts work with the menu bar hidden (full screen)
  return action;
}

void MainWindow::buildMenus() {
  VeskModel& m = model_;
  QMenu* file = menuBar()->addMenu(tr("&File"));
  addCommand(file, QStringLiteral("importFolder"), tr("Import Folder…"), QKeySequence(tr("Ctrl+Shift+I")),
             [this] {
               if (auto folder = chooseImportFolder()) importFolder(*folder);
             });
  addCommand(file, QStringLiteral("export"), tr("Export…"), QKeySequence(tr("Ctrl+Shift+E")), [&m] {
    if (!m.selectedIDs().empty()) m.setSheet(VeskSheet::exportPhotos);
  });
  file->addSeparator();
  addCommand(file, QStringLiteral("quit"), tr("Quit"), QKeySequence::Quit, [this] { close(); });

  QMenu* edit = menuBar()->addMenu(tr("&Edit"));
  addCommand(edit, QStringLiteral("undo"), tr("Undo"), QKeySequence::Undo, [&m] { m.undo(); });
  addCommand(edit, QStringLiteral("redo"), tr("Redo"), QKeySequence(tr("Ctrl+Shift+Z")), [&m] { m.redo(); });
  edit->addSeparator();
  addCommand(edit, QStringLiteral("copySettings"), tr("Copy Settings…"), QKeySequence(tr("Ctrl+Shift+C")),
             [&m] {
               if (m.current()) m.setSheet(VeskSheet::copySettings);
             });
  addCommand(edit, QStringLiteral("pasteSettings"), tr("Paste Settings"), QKeySequence(tr("Ctrl+Shift+V")),
             [&m] { m.pasteSettings(); });
  addCommand(edit, QStringLiteral("syncSettings"), tr("Sync Settings"), QKeySequence(tr("Ctrl+Alt+S")),
             [&m] { m.syncSettings(); });
  edit->addSeparator();
  addCommand(edit, QStringLiteral("selectAll"), tr("Select All"), QKeySequence::SelectAll,
             [&m] { m.selectAll(); });
  QAction* remove = addCommand(edit, QStringLiteral("removeFromLibrary"), tr("Remove from Library…"),
                               QKeySequence::Delete, [this] { removeFromLibrary(); });
  remove->setShortcuts({QKeySequence::Delete, QKeySequence(Qt::Key_Backspace)});

  QMenu* photo = menuBar()->addMenu(tr("&Photo"));
  QMenu* rating = photo->addMenu(tr("Rating"));
  for (int stars = 0; stars <= 5; ++stars) {
    const QString text = stars == 0 ? tr("No Rating") : QString(stars, QChar(0x2605));
    addCommand(rating, QStringLiteral("rate%1").arg(stars), text, QKeySequence(Qt::Key_0 + stars),
               [&m, stars] { m.setRating(stars); });
  }
  QMenu* flag = photo->addMenu(tr("Flag"));
  addCommand(flag, QStringLiteral("pick"), tr("Pick"), QKeySequence(Qt::Key_P), [&m] { m.setFlag(1); });
  addCommand(flag, QStringLiteral("reject"), tr("Reject"), QKeySequence(Qt::Key_X), [&m] { m.setFlag(-1); });
  addCommand(flag, QStringLiteral("unflag"), tr("Unflag"), QKeySequence(Qt::Key_U), [&m] { m.setFlag(0); });
  QMenu* label = photo->addMenu(tr("Colour Label"));
  for (ColorLabel l : allColorLabels()) {
    const std::string labelKey(key(l));
    const std::string_view shortcutText = shortcut(l);
    addCommand(label, QStringLiteral("label-%1").arg(QString::fromStdString(labelKey)),
               QString::fromUtf8(title(l).data(), int(title(l).size())),
               QKeySequence(QString::fromUtf8(shortcutText.data(), int(shortcutText.size()))),
               [&m, labelKey] { m.setLabel(labelKey); });
  }
  photo->addSeparator();
  addCommand(photo, QStringLiteral("previous"), tr("Previous Photo"), QKeySequence(Qt::Key_Left),
             [&m] { m.stepCurrent(-1); });
  addCommand(photo, QStringLiteral("next"), tr("Next Photo"), QKeySequence(Qt::Key_Right),
             [&m] { m.stepCurrent(1); });
  photo->addSeparator();
  addCommand(photo, QStringLiteral("keywords"), tr("Keywords…"), QKeySequence(tr("Ctrl+K")), [&m] {
    if (!m.selectedIDs().empty()) m.setSheet(VeskSheet::keywords);
  });
  addCommand(photo, QStringLiteral("newCollection"), tr("New Collection…"), QKeySequence(tr("Ctrl+N")),
             [&m] { m.setSheet(VeskSheet::newCollection); });
  addCommand(photo, QStringLiteral("savePreset"), tr("Save Preset…"), QKeySequence(tr("Ctrl+Shift+N")), [&m] {
    if (m.current()) m.setSheet(VeskSheet::savePreset);
  });
  addCommand(photo, QStringLiteral("resetAll"), tr("Reset All Settings"), QKeySequence(tr("Ctrl+Shift+R")),
             [&m] { m.resetAll(); });

  QMenu* view = menuBar()->addMenu(tr("&View"));
  addCommand(view, QStringLiteral("library"), tr("Library"), QKeySequence(Qt::Key_G),
             [&m] { m.setModule(Module::library); });
  addCommand(view, QStringLiteral("develop"), tr("Develop"), QKeySequence(Qt::Key_D),
             [&m] { m.enterDevelop(); });
  view->addSeparator();
  QAction* closeUp = addCommand(view, QStringLiteral("closeUp"), tr("Close-up (1:1)"),
                                QKeySequence(Qt::Key_Z), [&m] { m.setCloseUp(!m.closeUp()); });
  closeUp->setCheckable(true);
  addCommand(view, QStringLiteral("compare"), tr("Before and After"), QKeySequence(Qt::Key_Backslash), [&m] {
    using app::CompareMode;
    const CompareMode next = m.compare() == CompareMode::off          ? CompareMode::sideBySide
                             : m.compare() == CompareMode::sideBySide ? CompareMode::split
                                                                      : CompareMode::off;
    m.setCompare(next);
  });
  QAction* clipping = addCommand(view, QStringLiteral("clipping"), tr("Show Clipping"),
                                 QKeySequence(Qt::Key_J), [&m] { m.setShowClipping(!m.showClipping()); });
  clipping->setCheckable(true);
  QAction* overlay =
      addCommand(view, QStringLiteral("maskOverlay"), tr("Show Mask Overlay"), QKeySequence(Qt::Key_O),
                 [&m] { m.setShowMaskOverlay(!m.showMaskOverlay()); });
  overlay->setCheckable(true);
  view->addSeparator();
  QAction* bigger =
      addCommand(view, QStringLiteral("gridBigger"), tr("Larger Thumbnails"), QKeySequence(Qt::Key_Plus),
                 [&m] { m.setGridSize(std::min(480.0, m.gridSize() + 20)); });
  bigger->setShortcuts({QKeySequence(Qt::Key_Plus), QKeySequence(Qt::Key_Equal)});
  addCommand(view, QStringLiteral("gridSmaller"), tr("Smaller Thumbnails"), QKeySequence(Qt::Key_Minus),
             [&m] { m.setGridSize(std::max(80.0, m.gridSize() - 20)); });
  view->addSeparator();
  addCommand(view, QStringLiteral("fullScreen"), tr("Full Screen"), QKeySequence(Qt::Key_F11), [this] {
    if (isFullScreen()) {
      showNormal();
    } else {
      showFullScreen();
    }
  });
  connect(&model_, &VeskModel::closeUpChanged, closeUp, [closeUp, &m] { closeUp->setChecked(m.closeUp()); });
  connect(&model_, &VeskModel::showClippingChanged, clipping,
          [clipping, &m] { clipping->setChecked(m.showClipping()); });
  connect(&model_, &VeskModel::showMaskOverlayChanged, overlay,
          [overlay, &m] { overlay->setChecked(m.showMaskOverlay()); });

  QMenu* help = menuBar()->addMenu(tr("&Help"));
  addCommand(help, QStringLiteral("help"), tr("KUVO Lumivale Help"), QKeySequence::HelpContents,
             [this] { showHelp(this); });
  addCommand(help, QStringLiteral("about"), tr("About KUVO Lumivale"), {},
             [this] { showAbout(this, model_); });
}

void MainWindow::refreshCommands() {
  const bool develop = model_.module() == Module::develop;
  command(QStringLiteral("undo"))->setEnabled(model_.canUndo());
  command(QStringLiteral("redo"))->setEnabled(model_.canRedo());
  command(QStringLiteral("pasteSettings"))->setEnabled(model_.clipboard().has_value());
  command(QStringLiteral("closeUp"))->setEnabled(develop);
  command(QStringLiteral("compare"))->setEnabled(develop);
  command(QStringLiteral("clipping"))->setEnabled(develop);
  command(QStringLiteral("maskOverlay"))->setEnabled(develop);
  command(QStringLiteral("gridBigger"))->setEnabled(!develop);
  command(QStringLiteral("gridSmaller"))->setEnabled(!develop);
}

void MainWindow::showModule() {
  if (model_.module() == Module::develop) {
    stack_->setCurrentWidget(develop_);
  } else {
    stack_->setCurrentWidget(library_);
  }
}

void MainWindow::refreshStatus() {
  status_->setText(model_.status());
  const bool busy = model_.importing().has_value();
  importing_->setText(busy ? *model_.importing() : QString());
  importing_->setVisible(busy);
  importBar_->setVisible(busy);
}

void MainWindow::importFolder(const QString& folder) {
  model_.importFolder(folder.toStdString(),
                      [this](const ImportResult&) { model_.setSheet(VeskSheet::importDone); });
}

void MainWindow::removeFromLibrary() {
  const auto question = model_.removalQuestion();
  if (!question) return;
  if (confirm(question->message, question->informative, question->confirm, question->cancel)) {
    model_.removeFromLibrary();
  }
}

void MainWindow::showSheet() {
  const auto wanted = model_.sheet();
  if (sheetDialog_) {
    if (wanted && sheetDialog_->property("sheet").toInt() == int(*wanted)) return;
    QDialog* old = sheetDialog_;
    sheetDialog_ = nullptr;
    old->close();
  }
  if (!wanted) return;
  QDialog* dialog = makeSheet(*wanted, model_, this);
  if (!dialog) {
    model_.setSheet(std::nullopt);
    return;
  }
  dialog->setProperty("sheet", int(*wanted));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setWindowModality(Qt::WindowModal);
  sheetDialog_ = dialog;
  connect(dialog, &QDialog::finished, this, [this, dialog] {
    if (sheetDialog_ != dialog) return;
    sheetDialog_ = nullptr;
    model_.setSheet(std::nullopt);
  });
  dialog->open();
}

void MainWindow::restoreWindowGeometry() {
  if (auto stored = UserDefaults::standard().data(geometryKey)) {
    restoreGeometry(QByteArray::fromBase64(QByteArray::fromStdString(*stored)));
  }
  if (width() < minimumWidth || height() < minimumHeight) resize(defaultWidth, defaultHeight);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  try {
    UserDefaults::standard().set(geometryKey, saveGeometry().toBase64().toStdString());
  } catch (const std::exception&) {
    // A store that cannot be written costs only the remembered size.
  }
  QMainWindow::closeEvent(event);
}

}  // namespace lumivale::ui
