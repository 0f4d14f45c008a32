#pragma once

#include <QPalette>

class QApplication;

namespace clarovi::app {

/// One dark palette for every widget of the application, dialogs and tooltips included: light
/// text on grey, a darker base for fields and lists, a blue selection, dimmed disabled text.
QPalette darkPalette();

/// Gives the whole application the Fusion style and the dark palette. Call it once, before the
/// first window is made.
void applyDarkTheme(QApplication& app);

} // namespace clarovi::app
