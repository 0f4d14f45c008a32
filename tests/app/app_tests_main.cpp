#include "common/offscreen_main.h"

#include <QApplication>

// The window tests drive real widgets.
int main(int argc, char** argv) {
    return runOffscreenTests<QApplication>(argc, argv);
}
