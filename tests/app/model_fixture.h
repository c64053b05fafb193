#pragma once
// A model on a library made by importing real photos into a temporary
// folder, driven without a window: Qt's event loop runs only while a test
// waits for something.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/model/vesk_model.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

namespace lumivale::test {

/// Waits up to `ms` milliseconds for `done`, running the event loop.
template <class F>
bool waitFor(F done, int ms = 300000) {
  return QTest::qWaitFor(done, ms);
}

class ModelTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!QCoreApplication::instance()) {
      static int argc = 1;
      static char name[] = "tests_app";
      static char* argv[] = {name, nullptr};
      new QCoreApplication(argc, argv);
    }
  }

  void SetUp() override {
    std::filesystem::create_directories(dir / "photos");
    library = std::make_shared<PhotoLibrary>(dir / "lib");
  }

  void TearDown() override {
    model.reset();
    library.reset();
  }

  /// Copies shared photos (paths below ../shared/testdata/photos) into the
  /// photos folder.
  void addPhotos(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      auto file = sharedPhoto(name);
      ASSERT_TRUE(file) << name << " is missing from the shared test photos";
      std::filesystem::copy_file(*file, dir / "photos" / std::filesystem::path(name).filename());
    }
  }

  /// The model with the default store in a folder of its own.
  app::VeskModel& makeModel() {
    model = std::make_unique<app::VeskModel>(library, UserDefaults(dir / "config"));
    return *model;
  }

  /// Imports the photos folder through the model and waits for the end.
  ImportResult importPhotos() {
    std::optional<ImportResult> result;
    model->importFolder(dir / "photos", [&](const ImportResult& r) { result = r; });
    EXPECT_TRUE(waitFor([&] { return result.has_value(); }));
    return result.value_or(ImportResult());
  }

  /// Waits until the photo is loaded and no render runs or is pending,
  /// then lets the last results in.
  void settle() {
    EXPECT_TRUE(waitFor([&] { return !model->loadingOriginal() && !model->renderBusy(); }, 600000));
    QTest::qWait(50);
  }

  std::int64_t idNamed(const std::string& name) const {
    for (const PhotoRecord& r : model->photos()) {
      if (r.name == name) return r.id;
    }
    ADD_FAILURE() << name << " is not in the grid";
    return 0;
  }

  TempDir dir;
  std::shared_ptr<PhotoLibrary> library;
  std::unique_ptr<app::VeskModel> model;
};

}  // namespace lumivale::test
