#include "app/help_window.h"

#include "common/wait.h"

#include <QLabel>
#include <QPushButton>
#include <QTextBlock>
#include <QTextDocument>
#include <QtTest/QTest>
#include <gtest/gtest.h>

// Qt ignores align on a font element: the window has to move it for the centred paragraphs to show
// centred.
TEST(HelpWindow, ShowsTheCentredParagraphsCentredOnDarkGrey) {
    clarovi::app::HowToViewC window;
    QTextDocument document;
    document.setHtml(window.txtV->text());
    int centred = 0;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next())
        centred += bool(block.blockFormat().alignment() & Qt::AlignHCenter);
    EXPECT_EQ(centred, clarovi::app::helpHtml().count(QStringLiteral("align=\"center\"")));
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QImage picture = window.grab().toImage();
    EXPECT_EQ(picture.pixelColor(2, picture.height() - 3), QColor(Qt::darkGray));
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
