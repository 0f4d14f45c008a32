#include "dark_theme.h"

#include <QApplication>
#include <QStyleFactory>
#include <QToolTip>

namespace clarovi::app {

namespace {

const QColor kWindow(0x45, 0x45, 0x45);
const QColor kBase(0x2d, 0x2d, 0x2d);
const QColor kButton(0x4f, 0x4f, 0x4f);
const QColor kText(Qt::white);
const QColor kDisabledText(0x8c, 0x8c, 0x8c);
const QColor kHighlight(0x3d, 0x7b, 0xe0);

// Disabled controls keep their shapes but lose contrast, so that they read as unavailable.
void dimDisabled(QPalette& palette) {
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText,
                            QPalette::HighlightedText, QPalette::Link})
        palette.setColor(QPalette::Disabled, role, kDisabledText);
    palette.setColor(QPalette::Disabled, QPalette::Base, kWindow);
    palette.setColor(QPalette::Disabled, QPalette::Button, kWindow);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x5a, 0x5a, 0x5a));
    palette.setColor(QPalette::Disabled, QPalette::PlaceholderText, QColor(0x6e, 0x6e, 0x6e));
}

} // namespace

QPalette darkPalette() {
    QPalette palette;
    const QList<std::pair<QPalette::ColorRole, QColor>> colours{
        {QPalette::Window, kWindow},
        {QPalette::WindowText, kText},
        {QPalette::Base, kBase},
        {QPalette::AlternateBase, QColor(0x38, 0x38, 0x38)},
        {QPalette::Text, kText},
        {QPalette::PlaceholderText, QColor(0xa0, 0xa0, 0xa0)},
        {QPalette::Button, kButton},
        {QPalette::ButtonText, kText},
        {QPalette::BrightText, QColor(0xff, 0x6b, 0x6b)},
        // Fusion draws its bevels and frames from these, lightest to darkest.
        {QPalette::Light, QColor(0x6a, 0x6a, 0x6a)},
        {QPalette::Midlight, QColor(0x5a, 0x5a, 0x5a)},
        {QPalette::Mid, QColor(0x3a, 0x3a, 0x3a)},
        {QPalette::Dark, QColor(0x2a, 0x2a, 0x2a)},
        {QPalette::Shadow, QColor(0x14, 0x14, 0x14)},
        {QPalette::Highlight, kHighlight},
        {QPalette::HighlightedText, kText},
        {QPalette::Link, QColor(0x7a, 0xb0, 0xff)},
        {QPalette::LinkVisited, QColor(0xc0, 0x9a, 0xff)},
        {QPalette::ToolTipBase, QColor(0x20, 0x20, 0x20)},
        {QPalette::ToolTipText, kText},
    };
    for (const auto& [role, colour] : colours)
        palette.setColor(role, colour);
    dimDisabled(palette);
    return palette;
}

void applyDarkTheme(QApplication& app) {
    app.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QPalette palette = darkPalette();
    QApplication::setPalette(palette);
    // Tooltips keep a palette of their own, taken from the platform's theme.
    QToolTip::setPalette(palette);
}

} // namespace clarovi::app
