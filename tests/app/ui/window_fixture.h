#pragma once
// A window on a model on a library in a temporary folder, shown on the
// offscreen platform. Photos are small pictures written by the test and
// imported through the model, as a user would.

#include <gtest/gtest.h>

#include <QApplication>
#include <QSignalSpy>
#include <QTest>
#include <filesystem>
#include <memory>
#include <string>

#include "app/model/vesk_model.h"
#include "app/ui/main_window.h"
#include "app/ui/theme.h"
#include "tests/support/sample_photos.h"
#include "tests/support/temp_dir.h"

namespace lumivale::test {

class WindowTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!QApplication::instance()) {
      if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
      static int argc = 1;
      static char name[] = "tests_app_ui";
      static char* argv[] = {name, nullptr};
      auto* app = new QApplication(argc, argv);
      ui::applyDarkTheme(*app);
    }
  }

  void SetUp() override {
    // The window remembers its geometry in the per-user store: a private one.
    qputenv("LUMIVALE_CONFIG", QByteArray::fromStdString((dir / "config").string()));
    library = std::make_shared<PhotoLibrary>(dir / "lib");
  }

  void TearDown() override {
    window.reset();
    model.reset();
    library.reset();
  }

  /// Writes `count` small JPEGs named photo-01.jpg … into the photos folder.
  void writePhotos(int count) {
    std::filesystem::create_directories(dir / "photos");
    for (int i = 1; i <= count; ++i) {
      char name[32];
      std::snprintf(name, sizeof name, "photo-%02d.jpg", i);
      writePhoto(dir / "photos" / name, 96 + i, 64,
                 {.dateTimeOriginal = "2024:05:0" + std::to_string(i % 9 + 1) + " 10:00:00"});
    }
  }

  /// The model and the shown, active window; imports the photos folder
  /// when there is one.
  ui::MainWindow& open() {
    model = std::make_unique<app::VeskModel>(library, UserDefaults(dir / "config"));
    if (std::filesystem::exists(dir / "photos")) {
      bool done = false;
      model->importFolder(dir / "photos", [&](const ImportResult&) { done = true; });
      EXPECT_TRUE(QTest::qWaitFor([&] { return done; }, 20000));
      model->setSheet(std::nullopt);
    }
    window = std::make_unique<ui::MainWindow>(*model);
    window->confirm = [](const QString&, const QString&, const QString&, const QString&) { return true; };
    window->show();
    window->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(window.get()));
    return *window;
  }

  std::int64_t idAt(int row) const { return model->photos().at(std::size_t(row)).id; }

  TempDir dir;
  std::shared_ptr<PhotoLibrary> library;
  std::unique_ptr<app::VeskModel> model;
  std::unique_ptr<ui::MainWindow> window;
};

}  // namespace lumivale::test
