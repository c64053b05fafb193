#pragma once
// A scripted walk through the window that saves a PNG of each stop, for the
// screenshot script: the Library grid, Develop with an edit and a mask
// overlay, the export sheet, and (tour "grid") a large grid with the time
// from start to its first drawing. Stops are chosen with
// LUMIVALE_SCREENSHOT_TOUR, a comma-separated list (default
// "library,develop,export").

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

namespace lumivale::app {
class VeskModel;
}

namespace lumivale::ui {

class MainWindow;

class ScreenshotTour : public QObject {
  Q_OBJECT
 public:
  ScreenshotTour(MainWindow& window, app::VeskModel& model, QString folder, QElapsedTimer sinceStart);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void next();
  /// Runs `then` once `ready` holds, or after `timeoutMS` whatever it says.
  void waitFor(std::function<bool()> ready, int timeoutMS, std::function<void()> then);
  /// The visible grid cells have their thumbnails.
  bool thumbnailsShown() const;
  void save(const QString& name);
  void library();
  void develop();
  void exportSheet();
  void grid();

  MainWindow& window_;
  app::VeskModel& model_;
  QString folder_;
  QElapsedTimer sinceStart_;
  QStringList stops_;
  qint64 firstGridPaintMS_ = -1;
};

}  // namespace lumivale::ui
