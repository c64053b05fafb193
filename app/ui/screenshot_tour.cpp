#include "app/ui/screenshot_tour.h"

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QPainter>
#include <QTimer>
#include <cstdio>
#include <memory>

#include "app/model/vesk_model.h"
#include "app/ui/library_view.h"
#include "app/ui/main_window.h"
#include "app/ui/photo_grid.h"

namespace lumivale::ui {

ScreenshotTour::ScreenshotTour(MainWindow& window, app::VeskModel& model, QString folder,
                               QElapsedTimer sinceStart)
    : QObject(&window), window_(window), model_(model), folder_(std::move(folder)), sinceStart_(sinceStart) {
  const QString tour =
      qEnvironmentVariable("LUMIVALE_SCREENSHOT_TOUR", QStringLiteral("library,develop,export"));
  stops_ = tour.split(QLatin1Char(','), Qt::SkipEmptyParts);
  QDir().mkpath(folder_);
  window_.libraryView()->grid()->viewport()->installEventFilter(this);
  QTimer::singleShot(0, this, &ScreenshotTour::next);
}

bool ScreenshotTour::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Paint && firstGridPaintMS_ < 0 && !model_.photos().empty()) {
    firstGridPaintMS_ = sinceStart_.elapsed();
  }
  return QObject::eventFilter(watched, event);
}

void ScreenshotTour::next() {
  if (stops_.isEmpty()) {
    QApplication::quit();
    return;
  }
  const QString stop = stops_.takeFirst().trimmed();
  if (stop == QLatin1String("library")) {
    library();
  } else if (stop == QLatin1String("develop")) {
    develop();
  } else if (stop == QLatin1String("export")) {
    exportSheet();
  } else if (stop == QLatin1String("grid")) {
    grid();
  } else {
    std::fprintf(stderr, "screenshot tour: no stop named %s\n", qPrintable(stop));
    next();
  }
}

void ScreenshotTour::waitFor(std::function<bool()> ready, int timeoutMS, std::function<void()> then) {
  auto* timer = new QTimer(this);
  auto clock = std::make_shared<QElapsedTimer>();
  clock->start();
  connect(timer, &QTimer::timeout, this, [timer, clock, ready, timeoutMS, then] {
    if (!ready() && clock->elapsed() < timeoutMS) return;
    timer->stop();
    timer->deleteLater();
    then();
  });
  timer->start(100);
}

bool ScreenshotTour::thumbnailsShown() const {
  PhotoGridView* grid = window_.libraryView()->grid();
  const QRect area = grid->viewport()->rect();
  for (int y = 20; y < area.height(); y += int(model_.gridSize())) {
    for (int x = 20; x < area.width(); x += int(model_.gridSize())) {
      const QModelIndex index = grid->indexAt(QPoint(x, y));
      if (index.isValid() && index.data(Qt::DecorationRole).value<QImage>().isNull()) return false;
    }
  }
  return true;
}

void ScreenshotTour::save(const QString& name) {
  QImage shot = window_.grab().toImage();
  // A sheet is a window of its own; it is drawn where it sits over the window.
  if (QDialog* sheet = window_.openSheet(); sheet && sheet->isVisible()) {
    QPainter p(&shot);
    const QPoint at = sheet->mapToGlobal(QPoint()) - window_.mapToGlobal(QPoint());
    const QPoint centred((window_.width() - sheet->width()) / 2,
                         std::max(0, (window_.height() - sheet->height()) / 3));
    p.fillRect(QRect(QPoint(), window_.size()), QColor(0, 0, 0, 90));
    p.drawPixmap(QRect(window_.rect().contains(at) ? at : centred, sheet->size()), sheet->grab());
  }
  const QString path = QDir(folder_).filePath(name);
  if (!shot.save(path, "PNG")) std::fprintf(stderr, "screenshot tour: could not save %s\n", qPrintable(path));
  std::fprintf(stderr, "screenshot %s %dx%d\n", qPrintable(path), shot.width(), shot.height());
}

void ScreenshotTour::library() {
  model_.setModule(app::Module::library);
  // A few marks, so that the cells show what they can carry.
  const auto& photos = model_.photos();
  if (photos.size() >= 4) {
    model_.select(photos[0].id);
    model_.setRating(4);
    model_.setLabel("green");
    model_.select(photos[1].id);
    model_.setRating(5);
    model_.setFlag(1);
    model_.select(photos[2].id);
    model_.setFlag(-1);
    model_.setLabel("red");
    model_.select(photos[3].id);
    model_.setRating(2);
    model_.setLabel("blue");
    model_.select(photos[0].id);
    model_.select(photos[3].id, true);
  }
  waitFor([this] { return thumbnailsShown(); }, 30000,
          [this] {
            QTimer::singleShot(400, this, [this] {
              save(QStringLiteral("library.png"));
              next();
            });
          });
}

void ScreenshotTour::develop() {
  const auto& photos = model_.photos();
  if (photos.empty()) {
    next();
    return;
  }
  // A large camera JPEG shows the develop path best; otherwise the first photo.
  std::int64_t chosen = photos.front().id;
  for (const PhotoRecord& r : photos) {
    if (!r.isRaw && r.width * r.height > 12'000'000) chosen = r.id;
  }
  model_.select(chosen);
  model_.enterDevelop();
  waitFor([this] { return !model_.loadingOriginal() && model_.lastFrameMS() > 0; }, 60000,
          [this] {
            model_.edit("Light", [](EditSettings& s) {
              s.exposure = 0.35;
              s.contrast = 18;
              s.shadows = 30;
              s.highlights = -25;
              s.vibrance = 22;
            });
            if (const auto id = model_.addMask(MaskKind::radial)) {
              model_.editMask(*id, "Radial Gradient", [](PhotoMask& m) {
                m.cx = 0.5;
                m.cy = 0.45;
                m.rx = 0.28;
                m.ry = 0.32;
                m.adjust.exposure = 0.5;
              });
              model_.setTool(app::DevTool::radial);
            }
            model_.setShowMaskOverlay(true);
            const int started = model_.rendersStarted();
            waitFor(
                [this, started] { return model_.rendersStarted() > started && !model_.loadingOriginal(); },
                30000,
                [this] {
                  QTimer::singleShot(2500, this, [this] {
                    save(QStringLiteral("develop.png"));
                    next();
                  });
                });
          });
}

void ScreenshotTour::exportSheet() {
  if (model_.selectedIDs().empty() && !model_.photos().empty()) model_.select(model_.photos().front().id);
  model_.setSheet(app::VeskSheet::exportPhotos);
  QTimer::singleShot(700, this, [this] {
    save(QStringLiteral("export.png"));
    model_.setSheet(std::nullopt);
    next();
  });
}

void ScreenshotTour::grid() {
  model_.setModule(app::Module::library);
  waitFor([this] { return firstGridPaintMS_ >= 0; }, 30000,
          [this] {
            std::fprintf(stderr, "grid of %zu photos drawn %lld ms after start\n", model_.photos().size(),
                         static_cast<long long>(firstGridPaintMS_));
            waitFor([this] { return thumbnailsShown(); }, 30000,
                    [this] {
                      QTimer::singleShot(300, this, [this] {
                        save(QStringLiteral("grid-%1.png").arg(model_.photos().size()));
                        next();
                      });
                    });
          });
}

}  // namespace lumivale::ui
