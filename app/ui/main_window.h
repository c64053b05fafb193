#pragma once
// The one window: Library and Develop in a stack, the menus (every shortcut
// is also a menu command), the status line, and the sheets the model asks
// for through `VeskModel::sheet`.

#include <QMainWindow>
#include <functional>
#include <optional>

class QLabel;
class QProgressBar;
class QStackedWidget;

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

class DevelopView;
class LibraryView;

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  static constexpr int defaultWidth = 1560;
  static constexpr int defaultHeight = 960;
  static constexpr int minimumWidth = 1100;
  static constexpr int minimumHeight = 700;
  /// The per-user defaults key of the remembered window geometry.
  static constexpr const char* geometryKey = "kuvo.ph.windowGeometry";

  explicit MainWindow(app::VeskModel& model, QWidget* parent = nullptr);

  /// The command with this object name ("rate3", "pick", "develop" ...).
  QAction* command(const QString& name) const;
  LibraryView* libraryView() const { return library_; }
  DevelopView* developView() const { return develop_; }
  /// The sheet dialog now open, if any.
  QDialog* openSheet() const { return sheetDialog_; }

  /// Asks before photos leave the library; replaced by tests.
  std::function<bool(const QString& message, const QString& informative, const QString& confirm,
                     const QString& cancel)>
      confirm;
  /// Chooses a folder to import; replaced by tests.
  std::function<std::optional<QString>()> chooseImportFolder;

  /// Starts an import of `folder`; the import sheet opens when it ends.
  void importFolder(const QString& folder);

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void buildMenus();
  QAction* addCommand(QMenu* menu, const QString& name, const QString& text, const QKeySequence& key,
                      std::function<void()> run);
  void showModule();
  void showSheet();
  void refreshStatus();
  void refreshCommands();
  void removeFromLibrary();
  void restoreWindowGeometry();

  app::VeskModel& model_;
  QStackedWidget* stack_;
  LibraryView* library_;
  DevelopView* develop_;
  QLabel* status_;
  QLabel* importing_;
  QProgressBar* importBar_;
  QDialog* sheetDialog_ = nullptr;
};

/// The folder chooser of an import, with its message and button; nothing
/// when the user cancels.
std::optional<QString> askForImportFolder(QWidget* parent);

}  // namespace lumivale::ui
