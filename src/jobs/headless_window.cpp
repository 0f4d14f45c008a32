#include "headless_window.h"

namespace clarovi::jobs {

void HeadlessWindow::lockEverything() {
    locked = true;
    ++lockCount;
}

// Without an event loop there is no later pass to wait for: the unlock takes effect at once.
void HeadlessWindow::unlockEverything() {
    locked = false;
    ++unlockCount;
}

} // namespace clarovi::jobs
