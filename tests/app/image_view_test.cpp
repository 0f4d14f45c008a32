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

void expectNear(QPointF actual, QPointF expected) {
    EXPECT_NEAR(actual.x(), expected.x(), 1e-6);
    EXPECT_NEAR(actual.y(), expected.y(), 1e-6);
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
        const QPoint from(200, 150), to = from + by;
        QTest::mousePress(&view, Qt::LeftButton, {}, from);
        QMouseEvent move(QEvent::MouseMove, to, view.mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(&view, &move);
        QTest::mouseRelease(&view, Qt::LeftButton, {}, to);
    }
    ImageView view;
};

TEST_F(ImageViewTest, WheelZoomsAboutTheCursorWhereThePictureAllows) {
    // From 100 % on the picture's centre, after a drag: where the point under the cursor lands.
    const struct {
        QPoint dragBy;
        QPointF cursor;
        int notches;
        double factor;
        QPointF landsAt;
    } cases[] = {
        {{0, 0}, {200, 150}, 1, 1.5, {200, 150}},
        {{0, 0}, {10, 10}, 3, 3.0, {10, 10}},
        {{0, 0}, {395, 295}, 1, 1.5, {395, 295}},
        {{0, 0}, {300, 50}, 20, 8.0, {300, 50}},
        // No larger than the view: the picture is centred instead.
        {{0, 0}, {10, 10}, -2, 0.5, {105, 80}},
        {{0, 0}, {300, 50}, -20, 1.0 / 8, {212.5, 137.5}},
        // Dragged to its top-left corner, which stays in the view's corner.
        {{1000, 1000}, {390, 290}, -1, 2.0 / 3, {260, 580.0 / 3}},
    };
    for (const auto& c : cases) {
        view.fitToWindow();
        view.showActualSize();
        drag(c.dragBy);
        const QPointF held = view.widgetToPicture(c.cursor);
        wheel(c.cursor, c.notches);
        EXPECT_NEAR(view.zoomFactor(), c.factor, 1e-9) << c.notches;
        expectNear(view.pictureToWidget(held), c.landsAt);
    }
}

TEST_F(ImageViewTest, ShowsThePictureAndTheCompareOneWhereTheMappingSays) {
    view.setCompareImage(pattern({800, 600}, true));
    wheel({120, 90}, 4); // 2x
    drag({-40, 25});
    for (bool comparing : {false, true}) {
        view.setComparing(comparing);
        const QImage shot = view.grab().toImage();
        for (QPoint at : {QPoint(3, 4), QPoint(200, 150), QPoint(396, 280)}) {
            const QPointF pixel = view.widgetToPicture(at + QPointF(0.5, 0.5));
            const QRgb colour = shot.pixel(at);
            EXPECT_EQ(comparing ? qBlue(colour) : qRed(colour), int(pixel.x()) & 255);
            EXPECT_EQ(qGreen(colour), int(pixel.y()) & 255);
            EXPECT_EQ(comparing ? qRed(colour) : qBlue(colour), 0);
        }
    }
}

TEST_F(ImageViewTest, ANewPictureKeepsTheZoomAndTheDetail) {
    const auto detailAtCentre = [this](QSizeF size) {
        const QPointF at = view.widgetToPicture({200, 150});
        return QPointF(at.x() / size.width(), at.y() / size.height());
    };
    for (QSize next : {QSize(800, 600), QSize(1600, 1200), QSize(600, 900)}) {
        view.fitToWindow();
        view.setImage(pattern({800, 600}));
        wheel({100, 100}, 4);
        drag({-30, 20});
        const QPointF detail = detailAtCentre({800, 600});
        view.setImage(pattern(next));
        EXPECT_NEAR(view.zoomFactor(), 2.0, 1e-9);
        expectNear(detailAtCentre(next), detail);
    }
    view.fitToWindow();
    view.setImage(pattern({1200, 300}));
    EXPECT_NEAR(view.zoomFactor(), 1.0 / 3, 1e-9);
}

TEST_F(ImageViewTest, KeysAndDoubleClickSwitchBetweenStepsAndFit) {
    double signalled = 0;
    QObject::connect(&view, &ImageView::zoomChanged, [&](double f, bool) { signalled = f; });
    for (auto [key, factor] : {std::pair(Qt::Key_Plus, 2.0 / 3), std::pair(Qt::Key_Equal, 1.0),
                               std::pair(Qt::Key_Minus, 2.0 / 3), std::pair(Qt::Key_1, 1.0),
                               std::pair(Qt::Key_0, 0.5)}) {
        QTest::keyClick(&view, key);
        EXPECT_NEAR(signalled, factor, 1e-9) << key;
    }
    const QPointF held = view.widgetToPicture({100, 80});
    QTest::mouseDClick(&view, Qt::LeftButton, {}, {100, 80});
    EXPECT_NEAR(view.zoomFactor(), 1.0, 1e-9);
    expectNear(view.pictureToWidget(held), {100, 80});
    QTest::mouseDClick(&view, Qt::LeftButton, {}, {100, 80});
    view.resize(200, 300);
    EXPECT_TRUE(view.isFitting());
    EXPECT_NEAR(signalled, 0.25, 1e-9);
}

} // namespace
