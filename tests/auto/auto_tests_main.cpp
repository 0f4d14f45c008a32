#include <QGuiApplication>
#include <gtest/gtest.h>

// The auto run posts its updates to an event loop: the tests need an application object.
int main(int argc, char** argv) {
    // Tests never need a display, not even when listing themselves.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
