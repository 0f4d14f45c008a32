#pragma once

#include "app/main_window.h"
#include "common/log_capture.h"
#include "common/wait.h"

#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QSettings>
#include <QStatusBar>
#include <QStyleOptionSlider>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace clarovi::testing {

inline const QString kSample = QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png");

inline double opacityOf(const QWidget* control) {
    const auto* effect = qobject_cast<const QGraphicsOpacityEffect*>(control->graphicsEffect());
    return effect ? effect->opacity() : 1.0;
}

/// The real main window, shown offscreen, with a settings file, file choosers and a message sink
/// of the test's own, so that nothing blocks on a dialog.
class MainWindowTest : public ::testing::Test {
  protected:
    void SetUp() override {
        settings = std::make_unique<QSettings>(dir.filePath("settings.ini"), QSettings::IniFormat);
        settings->setValue("firstStartnew2", true);
        createWindow();
    }

    /// A window of its own, its automatic search restoring with thumbnails when given.
    void createWindow(autosearch::Restoration thumbnails = {}) {
        window.reset();
        window = std::make_unique<app::MainWindow>(*settings, std::move(thumbnails));
        window->setMessageSink([this](const QString& message) { messages << message; });
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    template <typename T = QWidget> T* outlet(const char* name) const {
        T* widget = window->findChild<T*>(QString::fromLatin1(name));
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }
    QString title() const { return outlet<QLabel>("maintitle")->text(); }
    bool unlocked() const { return title() == QLatin1String("CLAROVI"); }
    /// Nothing runs: no restoration due, no estimate, export or search.
    bool idle() const { return outlet<QLabel>("jobLabel")->text() == QLatin1String("Ready"); }
    int restorations() const { return log.count("NEW S"); }
    app::ImageView* view() const { return outlet<app::ImageView>("img01"); }
    QImage shown() const { return view()->image(); }
    QString status() const { return window->statusBar()->currentMessage(); }

    /// Opens a photograph and waits for its first restoration and its estimate.
    void openSample(const QString& path = kSample) {
        ASSERT_TRUE(window->setImageInputForPictureTaker(path));
        ASSERT_TRUE(waitFor([this] { return idle(); }));
    }

    app::FloatSlider* slider(const char* name) const {
        return outlet<app::SliderField>(name)->slider();
    }

    void clickSlider(const char* name) {
        app::FloatSlider* slider = this->slider(name);
        QTest::mouseClick(slider, Qt::LeftButton, {},
                          QPoint(slider->width() / 3, slider->height() / 2));
    }

    static QPoint handleCentre(QSlider* slider) {
        QStyleOptionSlider option;
        option.initFrom(slider);
        option.orientation = slider->orientation();
        option.minimum = slider->minimum();
        option.maximum = slider->maximum();
        option.sliderPosition = slider->sliderPosition();
        option.sliderValue = slider->value();
        return slider->style()
            ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider)
            .center();
    }

    /// Presses the handle, moves it right in steps with the button held, releases it; after
    /// each move calls duringDrag.
    void drag(QSlider* slider, int steps, const std::function<void()>& duringDrag = {}) {
        QPoint at = handleCentre(slider);
        QTest::mousePress(slider, Qt::LeftButton, {}, at);
        for (int i = 0; i < steps; ++i) {
            at.rx() += 6;
            QMouseEvent move(QEvent::MouseMove, at, slider->mapToGlobal(at), Qt::NoButton,
                             Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(slider, &move);
            if (duringDrag)
                duringDrag();
        }
        QTest::mouseRelease(slider, Qt::LeftButton, {}, at);
    }

    QTemporaryDir dir;
    std::unique_ptr<QSettings> settings;
    std::unique_ptr<app::MainWindow> window;
    QStringList messages;
    LogCapture log;
};

} // namespace clarovi::testing

using clarovi::testing::kSample;
using clarovi::testing::waitFor;
using MainWindowTest = clarovi::testing::MainWindowTest;
