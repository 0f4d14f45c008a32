#include "activity_board.h"

namespace clarovi::jobs {

void ActivityBoard::setRunning(Activity activity, bool running) {
    if (m_running[index(activity)] == running)
        return;
    m_running[index(activity)] = running;
    emit changed();
}

bool ActivityBoard::covered() const {
    return running(Activity::Searching) || running(Activity::AwaitingPick);
}

bool ActivityBoard::controlsFree() const {
    return !covered() && !running(Activity::Restoring) && !running(Activity::Exporting);
}

QString ActivityBoard::summary() const {
    if (running(Activity::Exporting))
        return tr("Exporting…");
    if (running(Activity::Searching))
        return tr("Searching…");
    if (running(Activity::AwaitingPick))
        return tr("Waiting for a pick");
    if (running(Activity::Restoring))
        return tr("Restoring…");
    if (running(Activity::Estimating))
        return tr("Estimating the blur…");
    return tr("Ready");
}

} // namespace clarovi::jobs
