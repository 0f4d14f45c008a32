#pragma once

#include <QByteArray>
#include <QtGlobal>
#include <gtest/gtest.h>

/// The main of a test binary that needs an application object App and its event loop. Tests
/// never need a display, not even when they only list themselves.
template <typename App> int runOffscreenTests(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    App app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
