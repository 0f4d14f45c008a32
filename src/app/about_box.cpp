#include "about_box.h"

#include <QMessageBox>
#include <QObject>

#include <opencv2/core/version.hpp>

namespace clarovi::app {

namespace {

QString aboutText() {
    return QObject::tr("<h3>Clarovi %1</h3>"
                       "<p>Removes out-of-focus and motion blur from a photograph.</p>"
                       "<p>Licence: GNU General Public License, version 3 or later.</p>"
                       "<p>Built with Qt %2, OpenCV %3, FFTW 3, exiv2 and libtiff.</p>")
        .arg(QStringLiteral(CLAROVI_VERSION), QString::fromLatin1(qVersion()),
             QStringLiteral(CV_VERSION));
}

} // namespace

void showAboutBox(QWidget* parent) {
    QMessageBox::about(parent, QObject::tr("About Clarovi"), aboutText());
}

} // namespace clarovi::app
