#include "app/app_icon.h"
#include "app/dark_theme.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QToolTip>
#include <gtest/gtest.h>

// Dialogs and tooltips made after the theme is applied take its colours (tooltips keep a palette
// of their own), and disabled text looks different from enabled text.
TEST(DarkTheme, ReachesDialogsAndTooltipsMadeLaterAndDimsDisabledText) {
    const QPalette dark = clarovi::app::darkPalette();
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        EXPECT_NE(dark.color(QPalette::Disabled, role), dark.color(QPalette::Active, role)) << role;
    const QPalette before = QApplication::palette();
    clarovi::app::applyDarkTheme(*qobject_cast<QApplication*>(QApplication::instance()));
    const QFileDialog files;
    const QMessageBox message;
    for (const QPalette& palette : {files.palette(), message.palette(), QToolTip::palette()})
        EXPECT_EQ(palette.color(QPalette::Window), dark.color(QPalette::Window));
    QApplication::setPalette(before);
    QToolTip::setPalette(before);
}

// The icon is built into the program: a missing resource would leave every window without one.
TEST(AppIcon, HasAPictureAtTheSizesDesktopsAskFor) {
    const QIcon icon = clarovi::app::appIcon();
    for (const int size : {16, 32, 48, 64, 128, 256}) {
        const QImage picture = icon.pixmap(size).toImage();
        EXPECT_EQ(picture.size(), QSize(size, size));
        EXPECT_GT(picture.pixelColor(size / 2, size / 2).alpha(), 0) << size;
    }
}
