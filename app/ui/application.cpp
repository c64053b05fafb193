#include "app/ui/application.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPushButton>
#include <memory>

#include "app/model/vesk_model.h"
#include "app/ui/main_window.h"
#include "app/ui/screenshot_tour.h"
#include "app/ui/theme.h"
#include "engine/catalog/catalog_safety.h"
#include "engine/catalog/library_location.h"

namespace lumivale::ui {

namespace {

std::unique_ptr<QMessageBox> cannotOpenAlert(const std::filesystem::path& folder, const char* why) {
  auto alert = std::make_unique<QMessageBox>(QMessageBox::Critical, QStringLiteral("KUVO Lumivale"),
                                             QString::fromUtf8(cannotOpenLibrary));
  alert->setInformativeText(QString::fromStdString(folder.string()) + QLatin1Char('\n') +
                            QString::fromUtf8(why));
  return alert;
}

/// Opens the library; when that fails, says why. A damaged catalog with a
/// good backup may be restored from it, then opened. Nothing when the
/// program should quit.
std::optional<app::OpenedLibrary> openOrRecover(const std::filesystem::path& folder) {
  try {
    return app::openLibrary(folder);
  } catch (const CatalogDamaged& damage) {
    std::unique_ptr<QMessageBox> alert = cannotOpenAlert(folder, damage.what());
    QPushButton* restore = damage.lastGoodBackup()
                               ? alert->addButton(QObject::tr("Restore Last Backup"), QMessageBox::AcceptRole)
                               : nullptr;
    QPushButton* quit = alert->addButton(QObject::tr("Quit"), QMessageBox::RejectRole);
    alert->setDefaultButton(quit);
    alert->exec();
    if (!restore || alert->clickedButton() != restore) return std::nullopt;
    try {
      return app::restoreLastBackup(folder, damage);
    } catch (const std::exception& e) {
      cannotOpenAlert(folder, e.what())->exec();
      return std::nullopt;
    }
  } catch (const std::exception& e) {
    cannotOpenAlert(folder, e.what())->exec();
    return std::nullopt;
  }
}

}  // namespace

int runApplication(int& argc, char** argv, const app::StartupOptions& options) {
  QElapsedTimer sinceStart;
  sinceStart.start();
  QGuiApplication::setHighDpiScaleFactorRoundingPolicy(Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
  QApplication application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("KUVO Lumivale"));
  QApplication::setOrganizationName(QStringLiteral("KUVO"));
  QApplication::setApplicationVersion(QStringLiteral(LUMIVALE_VERSION));
  applyDarkTheme(application);

  const auto folder = resolveLibraryFolder(options.library);
  std::optional<app::OpenedLibrary> maybeOpened = openOrRecover(folder);
  if (!maybeOpened) return 1;
  app::OpenedLibrary opened = std::move(*maybeOpened);
  std::shared_ptr<PhotoLibrary> library(std::move(opened.library));
  int status = 0;
  {
    app::VeskModel model(library);
    MainWindow window(model);
    window.show();
    if (!model.photos().empty()) model.prefetchThumbnails();
    std::unique_ptr<ScreenshotTour> tour;
    const QString shots = qEnvironmentVariable("LUMIVALE_SCREENSHOTS");
    if (!shots.isEmpty()) tour = std::make_unique<ScreenshotTour>(window, model, shots, sinceStart);
    status = application.exec();
    // The day's backup finishes before the library it copies closes.
    if (opened.backup) opened.backup->wait();
    opened.backup.reset();
  }
  return status;
}

}  // namespace lumivale::ui
