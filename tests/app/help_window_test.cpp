#include "app/help_window.h"

#include "common/wait.h"

#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QTextDocument>
#include <QtTest/QTest>
#include <gtest/gtest.h>

// The help fits on the screen, on dark grey, and names every control and shortcut the window
// has, so that it says how the program is now.
TEST(HelpWindow, FitsTheScreenAndNamesEveryControl) {
    clarovi::app::HowToViewC window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_LE(window.height(), window.screen()->availableGeometry().height());
    const QImage picture = window.grab().toImage();
    EXPECT_EQ(picture.pixelColor(2, picture.height() - 3), QColor(Qt::darkGray));
    QTextDocument document;
    document.setHtml(window.findChild<QLabel*>("txtV")->text());
    const QString text = document.toPlainText();
    for (const char* named :
         {"Estimate", "Save As", "Save Preview", "Compare", "Colour", "Undo", "Auto", "Classic",
          "zoom", "Ctrl+Z", "Ctrl+E", "Ctrl+R", "counter-clockwise"})
        EXPECT_TRUE(text.contains(QLatin1String(named))) << named;
    for (const char* outdated : {"tapping", "not easy", "on your left", "Grayscale"})
        EXPECT_FALSE(text.contains(QLatin1String(outdated))) << outdated;
}

// Esc, the platform's Close keys and the Close button (no keys here) each close the window.
TEST(HelpWindow, ClosesOnEscCtrlWAndItsCloseButton) {
    for (const QKeySequence& keys :
         {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W), QKeySequence()}) {
        clarovi::app::HowToViewC window;
        window.showInFront();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
        if (keys.isEmpty())
            QTest::mouseClick(window.findChild<QPushButton*>(), Qt::LeftButton);
        else
            QTest::keySequence(&window, keys);
        EXPECT_FALSE(window.isVisible()) << keys.toString().toStdString();
    }
}

// Asked to show before its owner is on screen, it waits for the owner, so as to open above it.
TEST(HelpWindow, OpensOnceItsOwnerIsShownAsItsOwnWindow) {
    QWidget owner;
    auto* help = new clarovi::app::HowToViewC(&owner);
    help->showInFront();
    EXPECT_FALSE(help->isVisible());
    owner.show();
    ASSERT_TRUE(clarovi::testing::waitFor([help] { return help->isVisible(); }));
    EXPECT_EQ(help->windowHandle()->transientParent(), owner.windowHandle());
}
