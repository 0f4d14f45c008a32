#include "app/fourier_preview.h"
#include "common/shake_paths.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"
#include "engine/shake_kernel.h"
#include "gui_helpers.h"

#include <QAction>
#include <QPushButton>
#include <QRegularExpression>
#include <QStatusBar>
#include <opencv2/imgproc.hpp>

#include <cmath>

using clarovi::app::SpectrumPreview;
namespace engine = clarovi::engine;

namespace {

// camera.png (512 pixels wide) blurred by a streak 32 working pixels long at 20 degrees.
const engine::BlurOnPhoto kStreak{engine::BlurKind::Motion, 32, 20, 1};

QString blurredCamera(const QTemporaryDir& dir,
                      const cv::Mat& kernel = engine::MakePsfD(kStreak, 0.25)) {
    const cv::Mat sharp = engine::CVGrayscaleMat(QImage(CLAROVI_DATA_DIR "/camera.png"));
    cv::Mat blurred;
    cv::filter2D(sharp, blurred, -1, kernel, {-1, -1}, 0, cv::BORDER_REFLECT);
    const QString path = dir.filePath("blurred.png");
    engine::imageWithCVMat(blurred).save(path);
    return path;
}

} // namespace

// Off the main thread the blur is found; the switch and the sliders move to it and the preview
// restores, so that the zeros the spectrum draws are those of the blur put in. A sharp picture
// keeps the sliders where they were.
TEST_F(MainWindowTest, EstimateSetsTheSlidersToTheBlurFoundOrSaysThereIsNone) {
    openSample(blurredCamera(dir));
    slider("psfCountD")->setFloatValue(5);
    const int before = restorations();
    QTest::keyClick(window.get(), Qt::Key_E, Qt::ControlModifier);
    EXPECT_EQ(outlet<QLabel>("jobLabel")->text(), "Estimating the blur…");
    EXPECT_FALSE(outlet("estimateBtn")->isEnabled());
    ASSERT_TRUE(waitFor([&] { return restorations() > before && idle(); }));
    EXPECT_TRUE(outlet<QPushButton>("movedSw")->isChecked());
    EXPECT_FLOAT_EQ(slider("anglewidth")->floatValue(), 1.0f);
    EXPECT_TRUE(status().startsWith("Motion blur found"));
    const auto& undone = outlet<SpectrumPreview>("spectrumPreview")->blur();
    ASSERT_TRUE(undone && undone->kind == engine::BlurKind::Motion);
    EXPECT_NEAR(undone->length, kStreak.length, 0.06 * kStreak.length);
    EXPECT_NEAR(std::remainder(undone->angle - kStreak.angle, 180.0), 0, 3.0);

    openSample(QStringLiteral(CLAROVI_DATA_DIR "/astronaut.png"));
    const float length = slider("psfCountD")->floatValue();
    QTest::mouseClick(outlet("estimateBtn"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return idle(); }));
    EXPECT_EQ(status(), "No clear blur found");
    EXPECT_EQ(slider("psfCountD")->floatValue(), length);
    EXPECT_TRUE(outlet("estimateBtn")->isEnabled());
}

// The spectrum view shows the picture's spectrum; the zeros drawn over it follow a drag; a click
// enlarges it in a window of its own that follows too.
TEST_F(MainWindowTest, TheSpectrumShowsAtOnceAndItsZerosFollowTheSliders) {
    openSample();
    auto* spectrum = outlet<SpectrumPreview>("spectrumPreview");
    double darkest = 0, brightest = 0;
    cv::minMaxLoc(engine::CVGrayscaleMat(spectrum->image()), &darkest, &brightest);
    EXPECT_GT(brightest - darkest, 200) << "not a black square";
    ASSERT_TRUE(spectrum->blur());
    const double before = spectrum->blur()->length;
    QTest::mouseClick(spectrum, Qt::LeftButton);
    auto* enlarged = window->findChild<SpectrumPreview*>("spectrumWindowView");
    ASSERT_TRUE(enlarged && enlarged->isVisible() && enlarged->isZoomable());
    EXPECT_EQ(enlarged->image(), spectrum->image());
    drag(slider("psfCountD"), 3);
    EXPECT_GT(spectrum->blur()->length, before);
    EXPECT_EQ(*enlarged->blur(), *spectrum->blur());
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
}

// An unsure estimate is offered in the status bar, not applied; "Try it" sets the sliders to it.
// A rectangle dragged on the fitted picture is the region the estimate then reads, until the
// whole picture is asked for again.
TEST_F(MainWindowTest, AnUnsureGuessIsOfferedAndARegionCanBeMarked) {
    // A streak of 3 of the photograph's pixels: found, but not surely.
    openSample(blurredCamera(dir, cv::Mat(1, 3, CV_32F, cv::Scalar(1.0 / 3))));
    const float length = slider("psfCountD")->floatValue();
    auto* offer = outlet("guessOffer");
    ASSERT_TRUE(waitFor([&] { return offer->isVisible(); }));
    EXPECT_EQ(slider("psfCountD")->floatValue(), length) << "an unsure guess moves nothing";
    const QString text = outlet<QLabel>("guessLabel")->text();
    ASSERT_TRUE(text.startsWith("Maybe ")) << text.toStdString();
    const double guessed =
        QRegularExpression("(diameter|length) ([0-9.]+)").match(text).captured(2).toDouble();
    const int before = restorations();
    QTest::mouseClick(outlet("tryGuessBtn"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return restorations() > before && idle(); }));
    EXPECT_NEAR(slider("psfCountD")->floatValue(), std::min(guessed, 100.0), 0.051);
    EXPECT_FALSE(offer->isVisible());

    const QPoint from(view()->width() * 3 / 10, view()->height() * 3 / 10);
    const QPoint to(view()->width() * 6 / 10, view()->height() * 6 / 10);
    QTest::mousePress(view(), Qt::LeftButton, {}, from);
    QMouseEvent move(QEvent::MouseMove, to, view()->mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QApplication::sendEvent(view(), &move);
    QTest::mouseRelease(view(), Qt::LeftButton, {}, to);
    const QRectF marked = view()->region();
    EXPECT_NEAR(marked.center().x(), view()->widgetToPicture(QRectF(from, to).center()).x(), 2);
    EXPECT_NEAR(marked.width(), (to.x() - from.x()) / view()->zoomFactor(), 2);
    EXPECT_EQ(status(), "Estimate and Auto Search look at the marked region");
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    window->findChild<QAction*>("wholePictureAction")->trigger();
    EXPECT_TRUE(view()->region().isEmpty());
    EXPECT_EQ(status(), "Estimate and Auto Search look at the whole picture");
}

// File ▸ Load PSF… restores with a kernel from a picture as a shake, which the Shake switch
// holds while the other modes are tried; Save PSF… writes the kernel back as it was loaded; a
// picture that is no kernel is refused with a message and changes nothing.
TEST_F(MainWindowTest, AKernelLoadedIsRestoredAsAShakeAndSavedBack) {
    openSample();
    const cv::Mat shake = clarovi::testing::randomShake(15, 4);
    engine::kernelPicture(shake).save(dir.filePath("shake.png"));
    QImage(300, 300, QImage::Format_Grayscale8).save(dir.filePath("huge.png"));
    QString chosen = dir.filePath("shake.png");
    window->setOpenFileChooser([&](const QString&) { return chosen; });
    window->setSaveFileChooser([&](const QString&) { return dir.filePath("saved.png"); });
    const auto trigger = [&](const char* action) {
        window->findChild<QAction*>(QLatin1String(action))->trigger();
    };
    const int before = restorations();
    trigger("loadPsfAction");
    ASSERT_TRUE(waitFor([&] { return restorations() > before && idle(); }));
    auto* shakeSwitch = outlet<QPushButton>("shakeSw");
    EXPECT_TRUE(shakeSwitch->isChecked());
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    EXPECT_TRUE(outlet<QLabel>("settingInfo")->text().startsWith("Shake ")) << "the label";

    trigger("savePsfAction");
    const cv::Mat saved = engine::kernelFromPicture(QImage(dir.filePath("saved.png")));
    const cv::Mat loaded = engine::kernelFromPicture(QImage(dir.filePath("shake.png")));
    ASSERT_EQ(saved.size(), loaded.size());
    EXPECT_LT(cv::norm(saved, loaded, cv::NORM_INF), 0.01);

    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return idle(); }));
    EXPECT_FALSE(shakeSwitch->isChecked());
    EXPECT_TRUE(outlet("psfCountD")->isEnabled());
    QTest::mouseClick(shakeSwitch, Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return idle(); }));
    EXPECT_TRUE(shakeSwitch->isChecked());

    chosen = dir.filePath("huge.png");
    const int restored = restorations();
    trigger("loadPsfAction");
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.front().contains("at most 255")) << messages.front().toStdString();
    EXPECT_EQ(restorations(), restored);
}
