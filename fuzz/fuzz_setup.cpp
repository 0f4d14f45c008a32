// What every fuzz target sets up once: the application object, through which the image plugins
// are found, and quiet log categories.
#include <QCoreApplication>
#include <QLoggingCategory>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication application(*argc, *argv);
    QLoggingCategory::setFilterRules(QStringLiteral("clarovi*=false"));
    return 0;
}
