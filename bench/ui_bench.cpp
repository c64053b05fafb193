// The window on a 100,000-photo catalog, on the offscreen platform: from
// opening the library to the grid's first drawing, from a rating key to the
// redrawn cell, and the longest the main thread is kept busy by one event
// while the grid scrolls (thumbnails arriving included).

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QTest>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>

#include "app/model/vesk_model.h"
#include "app/ui/library_view.h"
#include "app/ui/main_window.h"
#include "app/ui/photo_grid.h"
#include "app/ui/theme.h"
#include "bench/bench_library.h"
#include "bench/timed_application.h"

namespace lumivale::bench {
namespace {

constexpr int photoCount = 100'000;

using TimedApplication = bench::TimedApplication<QApplication>;

TimedApplication& application() {
  static TimedApplication* app = [] {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "bench_ui";
    static char* argv[] = {name, nullptr};
    auto* made = new TimedApplication(argc, argv);
    ui::applyDarkTheme(*made);
    return made;
  }();
  return *app;
}

/// A catalog of 100,000 photos and its private per-user store, made once.
struct BigCatalog {
  explicit BigCatalog(int count) {
    insertPhotos(*temp.library, count);
    qputenv("LUMIVALE_CONFIG", QByteArray::fromStdString((temp.folder / "config").string()));
  }
  TempLibrary temp;
};

/// Counts the grid's paint events.
class PaintCounter : public QObject {
 public:
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
  int paints = 0;
};

void waitForPaint(const PaintCounter& counter, int before) {
  while (counter.paints == before) QApplication::processEvents(QEventLoop::AllEvents, 5);
}

void BM_GridStartToDrawn(benchmark::State& state) {
  application();
  BigCatalog& catalog = keptOfSize<BigCatalog>(photoCount);
  for (auto _ : state) {
    QElapsedTimer clock;
    clock.start();
    auto library = std::make_shared<PhotoLibrary>(catalog.temp.folder);
    app::VeskModel model(library, UserDefaults(catalog.temp.folder / "config"));
    ui::MainWindow window(model);
    PaintCounter counter;
    window.libraryView()->grid()->viewport()->installEventFilter(&counter);
    window.show();
    waitForPaint(counter, 0);
    state.SetIterationTime(clock.nsecsElapsed() / 1e9);
    if (model.photos().size() != std::size_t(photoCount)) state.SkipWithError("the grid lost photos");
  }
  state.SetItemsProcessed(state.iterations() * photoCount);
}
BENCHMARK(BM_GridStartToDrawn)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

/// One window on the big catalog, kept for the benchmarks that follow.
struct OpenWindow {
  explicit OpenWindow(int count) : catalog(keptOfSize<BigCatalog>(count)) {
    library = std::make_shared<PhotoLibrary>(catalog.temp.folder);
    model = std::make_unique<app::VeskModel>(library, UserDefaults(catalog.temp.folder / "config"));
    window = std::make_unique<ui::MainWindow>(*model);
    grid()->viewport()->installEventFilter(&counter);
    window->show();
    waitForPaint(counter, 0);
  }
  ui::PhotoGridView* grid() const { return window->libraryView()->grid(); }
  BigCatalog& catalog;
  std::shared_ptr<PhotoLibrary> library;
  std::unique_ptr<app::VeskModel> model;
  std::unique_ptr<ui::MainWindow> window;
  PaintCounter counter;
};

void BM_RatingKeyToRedrawnCell(benchmark::State& state) {
  application();
  OpenWindow& w = keptOfSize<OpenWindow>(photoCount);
  w.model->select(w.model->photos()[5].id);
  int stars = 0;
  for (auto _ : state) {
    stars = (stars + 1) % 6;
    QElapsedTimer clock;
    clock.start();
    const int before = w.counter.paints;
    QTest::keyClick(w.grid(), Qt::Key(Qt::Key_0 + stars));
    waitForPaint(w.counter, before);
    state.SetIterationTime(clock.nsecsElapsed() / 1e9);
  }
  if (w.model->photos()[5].rating != stars) state.SkipWithError("the rating did not reach the photo");
}
BENCHMARK(BM_RatingKeyToRedrawnCell)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(50);

void BM_GridScroll(benchmark::State& state) {
  TimedApplication& app = application();
  OpenWindow& w = keptOfSize<OpenWindow>(photoCount);
  QScrollBar* bar = w.grid()->verticalScrollBar();
  const int step = w.grid()->gridSize().height() / 3;
  app.longestMS = app.longestCPUms = 0;
  app.timing = true;
  for (auto _ : state) {
    // One wheel notch a frame: move, paint, and handle whatever arrived.
    bar->setValue(bar->value() + step);
    w.grid()->viewport()->repaint();
    QApplication::processEvents(QEventLoop::AllEvents, 16);
  }
  app.timing = false;
  state.counters["longestEventMS"] = app.longestMS;
  state.counters["longestEventCPUms"] = app.longestCPUms;
  state.counters["rowsScrolled"] = double(state.iterations()) / 3;
}
BENCHMARK(BM_GridScroll)->Unit(benchmark::kMillisecond)->Iterations(600);

}  // namespace
}  // namespace lumivale::bench
