#include <QSlider>

#include "app/ui/develop_canvas.h"
#include "app/ui/develop_panels.h"
#include "app/ui/develop_view.h"
#include "app/ui/slider_row.h"
#include "tests/app/ui/window_fixture.h"

namespace lumivale::test {
namespace {

class DevelopTest : public WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    writePhotos(2);
    open();
    model->select(idAt(0));
    model->enterDevelop();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model->loadingOriginal(); }, 20000));
    // A photo's first commit also writes its import step; start after it.
    model->edit("Temperature", [](EditSettings& s) { s.temperature = 5; });
    steps = model->history().size();
    ASSERT_GT(steps, 0u);
  }

  ui::SliderRow* slider(const char* title) {
    ui::SliderRow* row = window->developView()->panels()->slider(QString::fromLatin1(title));
    EXPECT_NE(row, nullptr) << title;
    return row;
  }

  std::size_t steps = 0;
};

TEST_F(DevelopTest, SliderDragRecordsOneStepWhenItEnds) {
  QSlider* s = slider("Contrast")->slider();
  s->setSliderDown(true);
  for (int v = 1; v <= 37; v += 3) s->setValue(v);
  EXPECT_EQ(model->settings().contrast, 37) << "the settings follow the drag at once";
  EXPECT_EQ(model->history().size(), steps) << "nothing is recorded during the drag";
  s->setSliderDown(false);
  ASSERT_EQ(model->history().size(), steps + 1);
  EXPECT_EQ(model->history().back().name, "Contrast");
  EXPECT_EQ(model->history().back().settings.contrast, 37);
}

TEST_F(DevelopTest, DoubleClickPutsTheDefaultBack) {
  ui::SliderRow* row = slider("Exposure");
  model->edit("Exposure", [](EditSettings& s) { s.exposure = 1.25; });
  ASSERT_DOUBLE_EQ(row->value(), 1.25);
  const std::size_t before = model->history().size();
  QTest::mouseDClick(row->slider(), Qt::LeftButton);
  EXPECT_EQ(model->settings().exposure, 0);
  EXPECT_EQ(model->history().size(), before + 1);
}

TEST_F(DevelopTest, KeyStepsSettleIntoOneStep) {
  QSlider* s = slider("Shadows")->slider();
  s->setFocus();
  for (int i = 0; i < 5; ++i) QTest::keyClick(s, Qt::Key_Up);
  EXPECT_GT(model->settings().shadows, 0);
  EXPECT_TRUE(QTest::qWaitFor([&] { return model->history().size() == steps + 1; }, 3000));
  QTest::qWait(ui::SliderRow::settleMS + 100);
  EXPECT_EQ(model->history().size(), steps + 1);
}

TEST_F(DevelopTest, SlidersShowUndoneSettings) {
  ui::SliderRow* row = slider("Vibrance");
  model->edit("Vibrance", [](EditSettings& s) { s.vibrance = 30; });
  EXPECT_EQ(row->value(), 30);
  model->undo();
  EXPECT_EQ(row->value(), 0);
}

TEST_F(DevelopTest, MaskSlidersChangeTheSelectedMaskOnly) {
  const auto first = model->addMask(MaskKind::radial);
  const auto second = model->addMask(MaskKind::linear);
  ASSERT_TRUE(first && second);
  model->selectMask(*first);
  QSlider* s = slider("mask Exposure")->slider();
  s->setSliderDown(true);
  s->setValue(150);
  s->setSliderDown(false);
  const auto& masks = model->settings().masks;
  ASSERT_EQ(masks.size(), 2u);
  EXPECT_DOUBLE_EQ(masks[0].adjust.exposure, 1.5);
  EXPECT_DOUBLE_EQ(masks[1].adjust.exposure, 0);
}

TEST_F(DevelopTest, BrushStrokeOnTheCanvasIsOneStep) {
  ui::DevelopCanvas* canvas = window->developView()->canvas();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !canvas->imageRect().isEmpty(); }, 10000));
  model->setTool(app::DevTool::brush);
  const QRect image = canvas->imageRect().toRect();
  const std::size_t before = model->history().size();
  QTest::mousePress(canvas, Qt::LeftButton, {}, image.center());
  for (int dx = 4; dx <= 40; dx += 4) {
    QMouseEvent move(QEvent::MouseMove, image.center() + QPointF(dx, 0), canvas->mapToGlobal(image.center()),
                     Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(canvas, &move);
  }
  QTest::mouseRelease(canvas, Qt::LeftButton, {}, image.center() + QPoint(40, 0));
  ASSERT_EQ(model->settings().masks.size(), 1u) << "painting without a mask makes a brush mask";
  EXPECT_EQ(model->settings().masks[0].kind, MaskKind::brush);
  EXPECT_GE(model->settings().masks[0].dabs.size(), 5u);
  // Adding the mask and the stroke are the two steps of the gesture.
  EXPECT_LE(model->history().size(), before + 2);
  EXPECT_EQ(model->history().back().settings.masks[0].dabs.size(), model->settings().masks[0].dabs.size());
}

TEST_F(DevelopTest, CropDragIsOneStep) {
  ui::DevelopCanvas* canvas = window->developView()->canvas();
  model->setTool(app::DevTool::crop);
  ASSERT_TRUE(QTest::qWaitFor([&] { return !canvas->imageRect().isEmpty(); }, 10000));
  const QRectF image = canvas->imageRect();
  const std::size_t before = model->history().size();
  const QPoint corner = image.bottomRight().toPoint() - QPoint(1, 1);
  QTest::mousePress(canvas, Qt::LeftButton, {}, corner);
  for (int d = 5; d <= 30; d += 5) {
    QMouseEvent move(QEvent::MouseMove, corner - QPointF(d, d), canvas->mapToGlobal(corner), Qt::NoButton,
                     Qt::LeftButton, {});
    QApplication::sendEvent(canvas, &move);
  }
  QTest::mouseRelease(canvas, Qt::LeftButton, {}, corner - QPoint(30, 30));
  EXPECT_LT(model->settings().crop.w, 1.0);
  EXPECT_EQ(model->history().size(), before + 1);
  EXPECT_EQ(model->history().back().name, "Crop");
}

}  // namespace
}  // namespace lumivale::test
