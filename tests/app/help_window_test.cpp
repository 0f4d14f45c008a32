#include "app/help_window.h"

#include "common/wait.h"

#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QTextBlock>
#include <QTextDocument>
#include <QtTest/QTest>
#include <gtest/gtest.h>

using clarovi::app::helpHtml;

// Paragraphs, counted from 1: the opening line and the titles are large; the centred ones follow.
static const QList<int> kLarge{1, 5, 7, 9, 12, 14, 16, 18, 20};
static bool centred(int number) {
    return number == 5 || number >= 7;
}

TEST(HelpText, IsTwentyOneHelveticaParagraphsSizedAndCentredAsWritten) {
    const QRegularExpression paragraph(
        QStringLiteral(R"(<p><font face="Helvetica"( align="center")? style="font-size:(\d+)px">)"
                       R"(([^<]*)</font></p>)"));
    const QString html = helpHtml();
    EXPECT_TRUE(QString(html).remove(paragraph).isEmpty()) << "nothing but the paragraphs";
    int number = 0;
    for (const auto& match : paragraph.globalMatch(html)) {
        ++number;
        EXPECT_EQ(match.captured(2).toInt(), kLarge.contains(number) ? 20 : 16) << number;
        EXPECT_EQ(match.hasCaptured(1), centred(number)) << number;
    }
    EXPECT_EQ(number, 21);
    EXPECT_TRUE(paragraph.match(html).captured(3).startsWith("Clarovi is a professional tool"));
    EXPECT_TRUE(html.contains(QStringLiteral("it didn't freeze.Check the Spectrum")));
}

// The window's own reading of the text keeps the sizes and the centring, on dark grey.
TEST(HelpWindow, ShowsTheTextByNameOnDarkGrey) {
    clarovi::app::HowToViewC window;
    const auto* scroll = window.findChild<QScrollArea*>(QStringLiteral("textV"));
    const auto* text = window.findChild<QLabel*>(QStringLiteral("txtV"));
    ASSERT_TRUE(scroll && text && scroll->widget() == text);
    QTextDocument document;
    document.setHtml(text->text());
    ASSERT_EQ(document.blockCount(), 21);
    for (int number = 1; number <= 21; ++number) {
        SCOPED_TRACE(number);
        const QTextBlock block = document.findBlockByNumber(number - 1);
        EXPECT_EQ(bool(block.blockFormat().alignment() & Qt::AlignHCenter), centred(number));
        EXPECT_EQ(block.begin().fragment().charFormat().font().pixelSize(),
                  kLarge.contains(number) ? 20 : 16);
    }
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QImage picture = window.grab().toImage();
    EXPECT_EQ(picture.pixelColor(2, picture.height() - 3), QColor(Qt::darkGray));
}

// Esc, the platform's Close keys and the Close button each close the window.
TEST(HelpWindow, ClosesOnEscCtrlWAndItsCloseButton) {
    const std::function<void(QWidget&)> closers[] = {
        [](QWidget& window) { QTest::keyClick(&window, Qt::Key_Escape); },
        [](QWidget& window) { QTest::keyClick(&window, Qt::Key_W, Qt::ControlModifier); },
        [](QWidget& window) {
            QTest::mouseClick(window.findChild<QPushButton*>(QStringLiteral("closeBtn")),
                              Qt::LeftButton);
        },
    };
    for (const auto& close : closers) {
        clarovi::app::HowToViewC window;
        window.showInFront();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
        close(window);
        EXPECT_FALSE(window.isVisible());
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
    EXPECT_TRUE(help->isWindow());
    EXPECT_EQ(help->windowHandle()->transientParent(), owner.windowHandle());
}
