#pragma once

class QWidget;

namespace clarovi::app {

/// Shows the About box over parent: the program, its version, what it does, its licence and the
/// libraries it is built on.
void showAboutBox(QWidget* parent);

} // namespace clarovi::app
