#include "app_icon.h"
#include "dark_theme.h"
#include "engine/memory_policy.h"
#include "main_window.h"

#include <QApplication>
#include <QSettings>
#include <QTimer>

int main(int argc, char* argv[]) {
    clarovi::engine::keepFreedMemoryForReuse();
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Clarovi"));
    QApplication::setApplicationName(QStringLiteral("Clarovi"));
    // Lets the desktop match the windows to clarovi.desktop, for their icon and grouping.
    QGuiApplication::setDesktopFileName(QStringLiteral("clarovi"));
    QApplication::setWindowIcon(clarovi::app::appIcon());
    clarovi::app::applyDarkTheme(app);

    QSettings settings;
    clarovi::app::MainWindow window(settings);
    window.show();

    // A picture named on the command line opens once the window is on screen.
    const QStringList arguments = QApplication::arguments().mid(1);
    if (!arguments.isEmpty()) {
        const QString path = arguments.first();
        QTimer::singleShot(0, &window,
                           [&window, path] { window.setImageInputForPictureTaker(path); });
    }
    return QApplication::exec();
}
