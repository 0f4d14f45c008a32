#pragma once

#include <QIcon>

namespace clarovi::app {

/// Clarovi's icon, a lens blurred on one side and sharp on the other, at the sizes that desktops
/// ask for. Built into the program, so it needs no file or image plugin at run time.
QIcon appIcon();

} // namespace clarovi::app
