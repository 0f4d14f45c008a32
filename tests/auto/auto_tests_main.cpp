#include "common/offscreen_main.h"

#include <QGuiApplication>

// The auto run posts its updates to an event loop.
int main(int argc, char** argv) {
    return runOffscreenTests<QGuiApplication>(argc, argv);
}
