#include "app/app_icon.h"
#include "app/dark_theme.h"

#include <QImage>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

// WCAG's relative luminance and contrast ratio: 1 for equal colours, 21 for black on white.
double luminance(const QColor& colour) {
    const auto linear = [](double channel) {
        return channel <= 0.03928 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

double contrast(const QColor& a, const QColor& b) {
    const double first = luminance(a);
    const double second = luminance(b);
    return (std::max(first, second) + 0.05) / (std::min(first, second) + 0.05);
}

struct Pairing {
    QPalette::ColorRole text;
    QPalette::ColorRole background;
    double least; // the contrast it needs while enabled
};

} // namespace

// Every dialog, menu and tooltip takes its colours from this palette: its text has to read on its
// background, and disabled text has to look disabled while staying legible.
TEST(DarkPalette, TextReadsOnItsBackgroundAndDisabledTextIsDimmed) {
    const QPalette palette = clarovi::app::darkPalette();
    const Pairing pairings[] = {
        {QPalette::WindowText, QPalette::Window, 7.0},
        {QPalette::Text, QPalette::Base, 7.0},
        {QPalette::ButtonText, QPalette::Button, 7.0},
        {QPalette::ToolTipText, QPalette::ToolTipBase, 7.0},
        {QPalette::HighlightedText, QPalette::Highlight, 4.0},
        {QPalette::Link, QPalette::Base, 4.5},
        {QPalette::LinkVisited, QPalette::Base, 4.5},
        {QPalette::PlaceholderText, QPalette::Base, 4.5},
    };
    for (const auto& [text, background, least] : pairings) {
        SCOPED_TRACE(::testing::Message() << text << " on " << background);
        for (const auto group : {QPalette::Active, QPalette::Inactive})
            EXPECT_GE(contrast(palette.color(group, text), palette.color(group, background)),
                      least);
    }
    for (const auto& [text, background] : {std::pair{QPalette::WindowText, QPalette::Window},
                                           {QPalette::Text, QPalette::Base},
                                           {QPalette::ButtonText, QPalette::Button}}) {
        SCOPED_TRACE(::testing::Message() << "disabled " << text << " on " << background);
        const double enabled = contrast(palette.color(text), palette.color(background));
        const double disabled = contrast(palette.color(QPalette::Disabled, text),
                                         palette.color(QPalette::Disabled, background));
        EXPECT_LE(disabled, enabled / 2);
        EXPECT_GE(disabled, 2.5);
    }
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
