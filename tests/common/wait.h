#pragma once

#include <QElapsedTimer>
#include <QTest>

#include <functional>

namespace clarovi::testing {

/// Runs the event loop until condition holds or the time is up; whether it held.
inline bool waitFor(const std::function<bool()>& condition, int milliseconds = 15000) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QTest::qWait(5);
    }
    return true;
}

} // namespace clarovi::testing
