#include "app/image_view.h"

#include <QApplication>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

using clarovi::app::ImageView;

namespace {

// Red (blue in the compare picture) is the column, green the row, modulo 256: a pixel of a
// screenshot tells which picture pixel it shows.
QImage pattern(QSize size, bool xInBlue = false) {
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x)
            image.setPixel(x, y, xInBlue ? qRgb(0, y & 255, x & 255) : qRgb(x & 255, y & 255, 0));
    return image;
}

// An 800 x 600 picture in a 400 x 300 view: it fits at 1/2.
class ImageViewTest : public ::testing::Test {
  protected:
    void SetUp() override {
        view.setZoomable(true);
        view.resize(400, 300);
        view.setImage(pattern({800, 600}));
        view.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    }
    void wheel(QPointF at, int notches) {
        QWheelEvent event(at, view.mapToGlobal(at), {}, {0, 120 * notches}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&view, &event);
    }
    void drag(QPoint by) {
        const QPoint from(200, 150);
        QTest::mousePress(&view, Qt::LeftButton, {}, from);
        QTest::mouseMove(&view, from + by);
        QTest::mouseRelease(&view, Qt::LeftButton, {}, from + by);
    }
    ImageView view;
};

TEST_F(ImageViewTest, WheelZoomsAboutTheCursorWhereThePictureAllows) {
    // From 100 % after a drag, the zoom factor and where the picture point under the cursor lands.
    using Case = std::tuple<QPoint, QPointF, int, double, QPointF>;
    // Zooming in holds the point under the cursor (up to 8x); no larger than the view, the picture
    // is centred (down to 1/8); dragged to its top-left corner, that corner stays in the view's.
    for (const auto& [dragBy, cursor, notches, factor, landsAt] :
         {Case{{}, {10, 10}, 3, 3.0, {10, 10}}, Case{{}, {395, 295}, 1, 1.5, {395, 295}},
          Case{{}, {300, 50}, 20, 8.0, {300, 50}}, Case{{}, {10, 10}, -2, 0.5, {105, 80}},
          Case{{}, {300, 50}, -20, 1.0 / 8, {212.5, 137.5}},
          Case{{1000, 1000}, {390, 290}, -1, 2.0 / 3, {260, 580.0 / 3}}}) {
        view.fitToWindow();
        view.showActualSize();
        drag(dragBy);
        const QPointF held = view.widgetToPicture(cursor);
        wheel(cursor, notches);
        EXPECT_NEAR(view.zoomFactor(), factor, 1e-9) << notches;
        EXPECT_LT(QLineF(view.pictureToWidget(held), landsAt).length(), 1e-6) << notches;
    }
}

// The compare picture has half the size: laid out at the natural size, it covers the same place.
TEST_F(ImageViewTest, ShowsThePictureAndTheCompareOneWhereTheMappingSays) {
    view.setNaturalSize({800, 600});
    view.setCompareImage(pattern({400, 300}, true));
    wheel({120, 90}, 4); // 2x
    drag({-40, 25});
    for (bool comparing : {false, true}) {
        view.setComparing(comparing);
        const QImage shot = view.grab().toImage();
        for (QPoint at : {QPoint(3, 4), QPoint(200, 150), QPoint(396, 280)}) {
            const QPointF pixel =
                view.widgetToPicture(at + QPointF(0.5, 0.5)) / (comparing ? 2 : 1);
            const QImage& shown = comparing ? view.compareImage() : view.image();
            EXPECT_EQ(shot.pixel(at), shown.pixel(int(pixel.x()), int(pixel.y()))) << comparing;
        }
    }
}

TEST_F(ImageViewTest, ANewPictureKeepsTheZoomAndTheDetailOrTheFit) {
    for (QSize next : {QSize(800, 600), QSize(1600, 1200), QSize(600, 900)}) {
        view.fitToWindow();
        view.setImage(pattern({800, 600}));
        wheel({100, 100}, 4);
        drag({-30, 20});
        const QPointF at = view.widgetToPicture({200, 150});
        view.setImage(pattern(next));
        EXPECT_NEAR(view.zoomFactor(), 2.0, 1e-9);
        const QPointF scaled(at.x() * next.width() / 800, at.y() * next.height() / 600);
        EXPECT_LT(QLineF(view.widgetToPicture({200, 150}), scaled).length(), 1e-6) << next.width();
    }
    view.fitToWindow();
    view.setImage(pattern({1200, 300}));
    EXPECT_NEAR(view.zoomFactor(), 1.0 / 3, 1e-9);
}

TEST_F(ImageViewTest, KeysAndDoubleClickSwitchBetweenStepsAndFit) {
    double signalled = 0;
    bool fitting = false;
    QObject::connect(&view, &ImageView::zoomChanged, [&](double f, bool fit) {
        signalled = f;
        fitting = fit;
    });
    using Step = std::pair<Qt::Key, double>;
    for (auto [key, factor] :
         {Step{Qt::Key_Plus, 2.0 / 3}, Step{Qt::Key_Equal, 1.0}, Step{Qt::Key_Minus, 2.0 / 3},
          Step{Qt::Key_1, 1.0}, Step{Qt::Key_0, 0.5}}) {
        QTest::keyClick(&view, key);
        EXPECT_NEAR(signalled, factor, 1e-9) << key;
    }
    const QPointF held = view.widgetToPicture({100, 80});
    QTest::mouseDClick(&view, Qt::LeftButton, {}, {100, 80});
    EXPECT_NEAR(view.zoomFactor(), 1.0, 1e-9);
    EXPECT_LT(QLineF(view.pictureToWidget(held), {100, 80}).length(), 1e-6);
    QTest::mouseDClick(&view, Qt::LeftButton, {}, {100, 80});
    view.resize(200, 300);
    EXPECT_TRUE(fitting);
    EXPECT_NEAR(signalled, 0.25, 1e-9);
}

} // namespace
