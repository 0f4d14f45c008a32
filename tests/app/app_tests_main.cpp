#include <QApplication>
#include <gtest/gtest.h>

// The window tests drive real widgets: they need the application object and its event loop.
int main(int argc, char** argv) {
    // Tests never need a display, not even when listing themselves.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
