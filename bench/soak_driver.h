#pragma once

#include "common/wait.h"

#include "app/main_window.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QMouseEvent>
#include <QTest>

#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <random>

namespace clarovi::bench {

/// The seed of a soak: CLAROVI_SOAK_SEED when set, so that a failing run can be replayed.
inline unsigned soakSeed() {
    bool given = false;
    const int seed = qEnvironmentVariableIntValue("CLAROVI_SOAK_SEED", &given);
    return given ? unsigned(seed) : 20240611u;
}

/// The length of a soak: CLAROVI_SOAK_EVENTS when set, so that a quick run can check it works.
inline int soakEvents() {
    bool given = false;
    const int events = qEnvironmentVariableIntValue("CLAROVI_SOAK_EVENTS", &given);
    return given ? events : 1000;
}

/// Resident size of this process now, in MiB.
inline double residentMiB() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

/// The highest resident size this process has had, in MiB.
inline double peakResidentMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

using clarovi::testing::waitFor;

/// Runs the event loop until the window is unlocked and neither its title nor the picture it
/// shows has changed for quietMs: longer than the delay between a release and its restoration,
/// so no restoration is still pending. Whether that happened within limitMs.
inline bool waitUntilSettled(app::MainWindow& window, int quietMs = 1500, int limitMs = 60000) {
    const auto* title = window.findChild<QLabel*>(QStringLiteral("maintitle"));
    const auto* view = window.findChild<app::ImageView*>(QStringLiteral("img01"));
    auto seen = std::make_pair(title->text(), view->image().cacheKey());
    QElapsedTimer quiet;
    quiet.start();
    return waitFor(
        [&] {
            const auto now = std::make_pair(title->text(), view->image().cacheKey());
            if (now != seen) {
                seen = now;
                quiet.restart();
            }
            return now.first == QLatin1String("CLAROVI") && quiet.elapsed() >= quietMs;
        },
        limitMs);
}

/// A user at the blur controls, reproducible from a seed: presses on the PSF and sharpness
/// sliders followed by 0 to 7 moves and a release, and clicks on the mode, colour and Fixed size
/// buttons, 0 to 150 ms apart, on controls picked at random; only enabled sliders are dragged.
class SoakDriver {
  public:
    SoakDriver(app::MainWindow& window, unsigned seed) : m_window(window), m_random(seed) {}

    /// Sends count events; returns them in order as "ms name action", for a failure to show.
    QStringList run(int count) {
        QStringList events;
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < count; ++i) {
            QTest::qWait(between(0, 150));
            const QString event = step();
            events << QStringLiteral("%1 %2").arg(clock.elapsed()).arg(event);
        }
        return events;
    }

  private:
    QString step() {
        static constexpr const char* kControls[] = {"psfCountD", "psfAngle", "anglewidth",
                                                    "muSlider",  "movedSw",  "ofSw",
                                                    "rgbBtn",    "aspectBtn"};
        auto* control = m_window.findChild<QWidget*>(QLatin1String(kControls[between(0, 7)]));
        auto* slider = qobject_cast<QSlider*>(control);
        const bool enabled = control->isEnabled();
        // A locked control gets a plain click, which it must drop: a drag would only take time.
        if (!slider || !enabled) {
            QTest::mouseClick(control, Qt::LeftButton);
            return control->objectName() +
                   (enabled ? QStringLiteral(" click") : QStringLiteral(" click, disabled"));
        }
        // A press off the handle jumps there and grabs it, so any point starts a drag.
        QPoint at(between(0, slider->width() - 1), slider->height() / 2);
        const QString event =
            QStringLiteral("%1 press at %2").arg(slider->objectName()).arg(at.x());
        QTest::mousePress(slider, Qt::LeftButton, {}, at);
        const int moves = between(0, 7);
        for (int i = 0; i < moves; ++i) {
            // Pauses within the drag let a pending restoration lock the window under the mouse.
            QTest::qWait(between(0, 40));
            at.rx() += between(3, 15) * (between(0, 1) ? 1 : -1);
            QMouseEvent move(QEvent::MouseMove, at, slider->mapToGlobal(at), Qt::NoButton,
                             Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(slider, &move);
        }
        QTest::mouseRelease(slider, Qt::LeftButton, {}, at);
        return event + QStringLiteral(", %1 moves, release at %2").arg(moves).arg(at.x());
    }

    int between(int low, int high) { return std::uniform_int_distribution(low, high)(m_random); }

    app::MainWindow& m_window;
    std::mt19937 m_random;
};

} // namespace clarovi::bench
