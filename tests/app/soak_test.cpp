// A hundred random presses, drags and clicks on the real window, then the state it must come
// back to once the last restoration has run. CLAROVI_SOAK_SEED replays another sequence.
#include "gui_helpers.h"
#include "soak_driver.h"

#include <QPushButton>

using clarovi::testing::residentMiB;
using clarovi::testing::SoakDriver;
using clarovi::testing::soakSeed;
using clarovi::testing::waitUntilSettled;
using MainWindowTest = clarovi::testing::MainWindowTest;

namespace {

// The restorations of a 2048-side picture stay well below this; a leak per event would not.
// AddressSanitizer's redzones and quarantine double the heap, and LeakSanitizer finds leaks there.
#ifdef __SANITIZE_ADDRESS__
constexpr double kResidentLimitMiB = 3072.0;
#else
constexpr double kResidentLimitMiB = 1536.0;
#endif

} // namespace

TEST_F(MainWindowTest, RandomEventsLeaveTheWindowUnlockedShowingThePicture) {
    openSample();
    const unsigned seed = soakSeed();
    const QStringList events = SoakDriver(*window, seed).run(100);
    SCOPED_TRACE(
        QStringLiteral("seed %1, events:\n%2").arg(seed).arg(events.join('\n')).toStdString());

    ASSERT_TRUE(waitUntilSettled(*window));

    for (const char* name :
         {"psfCountD", "muSlider", "movedSw", "ofSw", "rgbBtn", "saveBtn", "autobtn"})
        EXPECT_TRUE(outlet(name)->isEnabled()) << name << " left locked";
    const bool motion = outlet<QPushButton>("movedSw")->isChecked();
    EXPECT_EQ(outlet("psfAngle")->isEnabled(), motion);
    EXPECT_EQ(outlet("anglewidth")->isEnabled(), motion);
    EXPECT_EQ(window->shownImage().size(), QSize(2048, 1365));
    EXPECT_TRUE(messages.isEmpty()) << messages.join('\n').toStdString();

    RecordProperty("drag_steps", log.count("dragging"));
    RecordProperty("restorations", restorations());
    const double resident = residentMiB();
    RecordProperty("resident_MiB", int(resident));
    EXPECT_LT(resident, kResidentLimitMiB);
}
