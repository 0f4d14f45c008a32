#pragma once

#include "engine/image_bridge.h"
#include "jobs/control_sequences.h"
#include "jobs/headless_window.h"
#include "jobs/restoration_jobs.h"

#include <QImage>
#include <QPainter>

namespace clarovi::testing {

/// A test picture with edges in both directions: a light rectangle and a dark disk on mid grey,
/// plus a coloured patch.
inline QImage scenePicture(int width, int height) {
    QImage picture(width, height, QImage::Format_RGB32);
    picture.fill(QColor(128, 128, 128));
    QPainter painter(&picture);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(230, 230, 230));
    painter.drawRect(width / 8, height / 8, width / 3, height / 3);
    painter.setBrush(QColor(20, 20, 20));
    painter.drawEllipse(QPointF(width * 0.65, height * 0.6), width / 6.0, height / 6.0);
    painter.setBrush(QColor(200, 40, 40));
    painter.drawRect(width / 2, height / 8, width / 5, height / 5);
    return picture;
}

/// The controller state, a headless window and the jobs, set up as the main window sets them up
/// and with a picture opened as the window opens one.
struct OpenedPicture {
    jobs::ControllerState state;
    jobs::HeadlessWindow window;
    jobs::RestorationJobs jobs{state, window};
    jobs::ControlSequences sequences{state, window, jobs};

    explicit OpenedPicture(const QImage& photo) {
        sequences.setUpDefaults();
        sequences.pickImg(photo, window.controls);
    }
};

} // namespace clarovi::testing
