#include "app/ui/application.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <memory>

#include "app/model/vesk_model.h"
#include "app/ui/main_window.h"
#include "app/ui/screenshot_tour.h"
#include "app/ui/theme.h"
#include "engine/catalog/library_location.h"

namespace lumivale::ui {

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
  app::OpenedLibrary opened;
  try {
    opened = app::openLibrary(folder);
  } catch (const std::exception& e) {
    QMessageBox alert(QMessageBox::Critical, QStringLiteral("KUVO Lumivale"),
                      QString::fromUtf8(cannotOpenLibrary));
    alert.setInformativeText(QString::fromStdString(folder.string()) + QLatin1Char('\n') +
                             QString::fromUtf8(e.what()));
    alert.exec();
    return 1;
  }
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
