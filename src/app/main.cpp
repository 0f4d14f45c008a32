#include "app_icon.h"
#include "dark_theme.h"
#include "engine/memory_policy.h"
#include "main_window.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QSettings>
#include <QTimer>

#include <csignal>

int main(int argc, char* argv[]) {
    // Past a file size limit a save or an export then fails with "File too large", which the
    // window reports, instead of the signal ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    clarovi::engine::keepFreedMemoryForReuse();
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Clarovi"));
    QApplication::setApplicationName(QStringLiteral("Clarovi"));
    // Lets the desktop match the windows to clarovi.desktop, for their icon and grouping.
    QGuiApplication::setDesktopFileName(QStringLiteral("clarovi"));
    QApplication::setWindowIcon(clarovi::app::appIcon());
    clarovi::app::applyDarkTheme(app);
    QApplication::setApplicationVersion(QStringLiteral(CLAROVI_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QApplication::translate("main", "Removes or reduces the blur in a photograph."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption verbose(
        QStringLiteral("verbose"),
        QApplication::translate("main", "Print the program's log lines and the libraries' "
                                        "reports to stderr."));
    parser.addOption(verbose);
    parser.addPositionalArgument(QStringLiteral("photo"),
                                 QApplication::translate("main", "The photograph to open."),
                                 QStringLiteral("[photo]"));
    parser.process(app);
    if (parser.isSet(verbose))
        QLoggingCategory::setFilterRules(QStringLiteral("clarovi*=true"));

    QSettings settings;
    clarovi::app::MainWindow window(settings);
    window.show();

    // A picture named on the command line opens once the window is on screen.
    if (!parser.positionalArguments().isEmpty()) {
        const QString path = parser.positionalArguments().first();
        QTimer::singleShot(0, &window,
                           [&window, path] { window.setImageInputForPictureTaker(path); });
    }
    return QApplication::exec();
}
