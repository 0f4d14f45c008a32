#include "app/help_window.h"

#include <QLabel>
#include <QRegularExpression>
#include <QScrollArea>
#include <QTextBlock>
#include <QTextDocument>
#include <QtTest/QTest>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

using clarovi::app::helpHtml;
using clarovi::app::HowToViewC;

namespace {

// One paragraph of the help text as written: its font size in pixels, centring and words.
struct Paragraph {
    int pixels;
    bool centred;
    QString text;
};

const QRegularExpression kParagraph(
    QStringLiteral(R"(<p><font face="Helvetica"( align="center")? style="font-size:(\d+)px">)"
                   R"(([^<]*)</font></p>)"));

std::vector<Paragraph> paragraphsOf(const QString& html) {
    std::vector<Paragraph> paragraphs;
    for (const auto& match : kParagraph.globalMatch(html))
        paragraphs.push_back({match.captured(2).toInt(), match.hasCaptured(1), match.captured(3)});
    return paragraphs;
}

// Paragraph numbers, counted from 1, of the opening line and the titles; the rest is body text.
const std::set<int> kLargeParagraphs{1, 5, 7, 9, 12, 14, 16, 18, 20};

bool centredAsWritten(int number) {
    return number == 5 || number >= 7;
}

} // namespace

TEST(HelpText, IsTwentyOneHelveticaParagraphsAndNothingElse) {
    const QString html = helpHtml();
    EXPECT_EQ(paragraphsOf(html).size(), 21u);
    EXPECT_TRUE(QString(html).remove(kParagraph).isEmpty());
    EXPECT_EQ(html.count(QStringLiteral("<p>")), 21);
}

TEST(HelpText, IsAscii) {
    const QString html = helpHtml();
    EXPECT_TRUE(std::all_of(html.cbegin(), html.cend(), [](QChar c) { return c.unicode() < 128; }));
}

TEST(HelpText, OpeningLineAndTitlesAreLargeAndBodyIsSmall) {
    const auto paragraphs = paragraphsOf(helpHtml());
    for (int number = 1; number <= int(paragraphs.size()); ++number) {
        SCOPED_TRACE(number);
        EXPECT_EQ(paragraphs[number - 1].pixels, kLargeParagraphs.count(number) ? 20 : 16);
    }
}

TEST(HelpText, CentresEverythingFromTheFirstTitleOnExceptTheDefocusBody) {
    const auto paragraphs = paragraphsOf(helpHtml());
    for (int number = 1; number <= int(paragraphs.size()); ++number) {
        SCOPED_TRACE(number);
        EXPECT_EQ(paragraphs[number - 1].centred, centredAsWritten(number));
    }
}

TEST(HelpText, TitlesNameTheTopicsInOrder) {
    QStringList titles;
    for (const auto& paragraph : paragraphsOf(helpHtml()))
        if (paragraph.pixels == 20)
            titles << paragraph.text;
    ASSERT_EQ(titles.size(), 9);
    EXPECT_TRUE(titles[0].startsWith(QStringLiteral("Clarovi is a professional tool")));
    EXPECT_EQ(titles.mid(1),
              QStringList({"Out of Focus Blur", "Save", "Motion Blur", "What is the PSF Angle?",
                           "What is the PSF Length?", "Is the PSF Width needed?", "Additional tips",
                           "Auto Mode"}));
}

TEST(HelpText, KeepsItsWordingExactly) {
    const QString html = helpHtml();
    EXPECT_TRUE(html.contains(QStringLiteral("it didn't freeze.Check the Spectrum")));
    EXPECT_TRUE(html.contains(QStringLiteral(">- Out of Focus Blur;<")));
    EXPECT_TRUE(html.contains(QStringLiteral("Leave it at 0.2 as default")));
}

class HelpWindow : public ::testing::Test {
  protected:
    HowToViewC window;
    QScrollArea* scroll = window.findChild<QScrollArea*>(QStringLiteral("textV"));
    QLabel* text = window.findChild<QLabel*>(QStringLiteral("txtV"));
};

TEST_F(HelpWindow, HoldsTheReadOnlyRichTextInAScrollArea) {
    ASSERT_NE(scroll, nullptr);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(scroll, window.textV);
    EXPECT_EQ(text, window.txtV);
    EXPECT_EQ(scroll->widget(), text);
    EXPECT_EQ(text->textFormat(), Qt::RichText);
    EXPECT_FALSE(text->textInteractionFlags() & Qt::TextEditable);
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Clarovi Help"));
}

// The view's own reading of the text: 21 blocks, centred where written, in the written sizes.
TEST_F(HelpWindow, LaysOutTheParagraphsInTheirSizesAndAlignment) {
    ASSERT_NE(text, nullptr);
    QTextDocument document;
    document.setHtml(text->text());
    ASSERT_EQ(document.blockCount(), 21);
    int number = 0;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        ++number;
        SCOPED_TRACE(number);
        EXPECT_EQ(bool(block.blockFormat().alignment() & Qt::AlignHCenter),
                  centredAsWritten(number));
        for (auto fragment = block.begin(); !fragment.atEnd(); ++fragment) {
            const QTextCharFormat format = fragment.fragment().charFormat();
            EXPECT_EQ(format.font().pixelSize(), kLargeParagraphs.count(number) ? 20 : 16);
            EXPECT_TRUE(format.fontFamilies().toStringList().contains(QStringLiteral("Helvetica")));
        }
    }
}

TEST_F(HelpWindow, ShowsLightTextOnDarkGrey) {
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QImage picture = window.grab().toImage();
    EXPECT_EQ(picture.pixelColor(2, picture.height() - 3), QColor(Qt::darkGray));
    ASSERT_NE(text, nullptr);
    EXPECT_GT(text->palette().color(QPalette::WindowText).lightness(), 200);
    int lightPixels = 0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            lightPixels += picture.pixelColor(x, y).lightness() > 200;
    EXPECT_GT(lightPixels, 1000) << "the text is drawn in a light colour";
}
