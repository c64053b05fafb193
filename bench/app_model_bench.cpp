// The application model on a 100,000-photo catalog: reloading the grid,
// rating one photo and moving the current photo on the main thread, and a
// slider drag in Develop (60 changes a second on an 1800-pixel preview of a
// 24 MP photo), measured by how long the main thread is ever kept busy.

#include <benchmark/benchmark.h>
#include <time.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <algorithm>
#include <filesystem>

#include "app/model/vesk_model.h"
#include "bench/bench_library.h"
#include "bench/timed_application.h"

namespace lumivale::bench {
namespace {

using TimedApplication = bench::TimedApplication<QCoreApplication>;

QCoreApplication& application() {
  static int argc = 1;
  static char name[] = "bench_app_model";
  static char* argv[] = {name, nullptr};
  static QCoreApplication* app = new TimedApplication(argc, argv);
  return *app;
}

// A model over a catalog of `count` photos, made once for the run.
struct CatalogModel {
  explicit CatalogModel(int count) {
    application();
    insertPhotos(*temp.library, count);
    library = std::shared_ptr<PhotoLibrary>(temp.library.get(), [](PhotoLibrary*) {});
    model = std::make_unique<app::VeskModel>(library, UserDefaults(temp.folder / "config"));
  }
  TempLibrary temp;
  std::shared_ptr<PhotoLibrary> library;
  std::unique_ptr<app::VeskModel> model;
};

void BM_Reload(benchmark::State& state) {
  auto& m = keptOfSize<CatalogModel>(int(state.range(0)));
  for (auto _ : state) {
    m.model->reload();
    benchmark::DoNotOptimize(m.model->photos().size());
  }
  if (m.model->photos().size() != std::size_t(state.range(0))) state.SkipWithError("the grid is incomplete");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Reload)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_RateOnePhoto(benchmark::State& state) {
  auto& m = keptOfSize<CatalogModel>(int(state.range(0)));
  m.model->select(m.model->photos()[500].id);
  int rating = 0;
  for (auto _ : state) {
    m.model->setRating(rating = (rating + 1) % 6);
  }
  if (m.model->photos()[500].rating != rating) state.SkipWithError("the rating did not reach the grid");
}
BENCHMARK(BM_RateOnePhoto)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_MoveCurrentPhoto(benchmark::State& state) {
  auto& m = keptOfSize<CatalogModel>(int(state.range(0)));
  m.model->select(m.model->photos()[1000].id);
  int step = 1;
  for (auto _ : state) {
    m.model->stepCurrent(step = -step);
  }
  QCoreApplication::processEvents();
}
BENCHMARK(BM_MoveCurrentPhoto)->Arg(100000)->Unit(benchmark::kMillisecond);

TimedApplication& timedApplication() { return static_cast<TimedApplication&>(application()); }

// Two seconds of a slider drag at 60 changes a second on the 24 MP photo.
void BM_SliderDrag(benchmark::State& state) {
  const std::filesystem::path photo = std::filesystem::path(LUMIVALE_SOURCE_DIR) /
                                      "../shared/testdata/photos/camera/sony-a6000-6000x4000.jpg";
  if (!std::filesystem::exists(photo)) {
    state.SkipWithError("the shared 24 MP photo is missing");
    return;
  }
  TimedApplication& app = timedApplication();
  TempLibrary temp;
  std::filesystem::create_directories(temp.folder / "in");
  std::filesystem::create_symlink(photo, temp.folder / "in" / photo.filename());
  auto library = std::shared_ptr<PhotoLibrary>(temp.library.get(), [](PhotoLibrary*) {});
  library->importFiles({temp.folder / "in" / photo.filename()});
  app::VeskModel model(library, UserDefaults(temp.folder / "config"));
  model.enterDevelop();
  while (model.loadingOriginal() || model.frameTimes().empty()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
  }
  int previews = 0;
  double renderMS = 0;
  QObject::connect(&model, &app::VeskModel::previewChanged, [&] { ++previews; });
  for (auto _ : state) {
    QTimer drag;
    drag.setTimerType(Qt::PreciseTimer);
    int frame = 0;
    QObject::connect(&drag, &QTimer::timeout,
                     [&] { model.set(&EditSettings::exposure, -1.0 + 0.02 * (frame++ % 100)); });
    QEventLoop loop;
    QTimer::singleShot(2000, &loop, &QEventLoop::quit);
    app.timing = true;
    drag.start(1000 / 60);
    loop.exec();
    app.timing = false;
    drag.stop();
    for (double ms : model.frameTimes()) renderMS += ms;
    renderMS /= double(model.frameTimes().size());
  }
  state.counters["max_main_event_ms"] = app.longestMS;
  state.counters["max_main_event_cpu_ms"] = app.longestCPUms;
  state.counters["previews_per_s"] = previews / 2.0 / double(state.iterations());
  state.counters["render_ms"] = renderMS;
}
BENCHMARK(BM_SliderDrag)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace lumivale::bench
