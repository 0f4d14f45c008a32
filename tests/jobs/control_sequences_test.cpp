#include "job_fixtures.h"

#include <gtest/gtest.h>

using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;
namespace engine = clarovi::engine;
namespace jobs = clarovi::jobs;

namespace {

jobs::Setting streak(double length, bool colour = false) {
    return {{engine::BlurKind::Motion, length, 30, 1}, 50, colour};
}

/// The controls set to setting, then left alone: its restoration, shown.
QImage settle(OpenedPicture& opened, const jobs::Setting& setting) {
    opened.window.controls = setting;
    opened.sequences.settled();
    return opened.window.shown;
}

} // namespace

// Undo and redo walk back and forth through the settings restored, each time the controls and
// the very picture they gave.
TEST(ControlSequences, UndoReturnsTheExactPreviousSettingAndPicture) {
    OpenedPicture opened(scenePicture(500, 300));
    opened.sequences.showFirstRestoration();
    const jobs::Setting first = opened.window.controls;
    const QImage atFirst = opened.window.shown;
    const QImage atSecond = settle(opened, streak(12));
    const QImage atThird = settle(opened, streak(12, true));
    ASSERT_FALSE(atThird.isGrayscale());
    settle(opened, streak(12, true)); // the same again: no new step
    QUndoStack& history = opened.sequences.history();
    ASSERT_EQ(history.count(), 2);

    const std::pair<jobs::Setting, QImage> back[] = {{streak(12), atSecond}, {first, atFirst}};
    for (const auto& [setting, picture] : back) {
        history.undo();
        EXPECT_EQ(opened.window.controls, setting);
        EXPECT_EQ(opened.window.shown, picture);
    }
    EXPECT_FALSE(history.canUndo());
    history.redo();
    history.redo();
    EXPECT_EQ(opened.window.controls, streak(12, true));
    EXPECT_EQ(opened.window.shown, atThird);
    EXPECT_FALSE(opened.window.locked);
}

// With colour on, every full restoration ends in colour: a settled value, a pick (whose
// thumbnails were grey) and an estimate.
TEST(ControlSequences, ColourModeHoldsForEveryFullRestoration) {
    OpenedPicture opened(scenePicture(500, 300));
    settle(opened, streak(10, true));
    EXPECT_FALSE(opened.window.shown.isGrayscale());
    opened.sequences.applyPick({engine::BlurKind::OutOfFocus, 14});
    EXPECT_FALSE(opened.window.shown.isGrayscale());
    EXPECT_TRUE(opened.window.controls.colour);
    jobs::EstimatedSetting found;
    found.blur = {engine::BlurKind::Motion, 9, -20, 1};
    opened.sequences.applyEstimate(found);
    EXPECT_FALSE(opened.window.shown.isGrayscale());
    settle(opened, streak(10, false));
    EXPECT_TRUE(opened.window.shown.isGrayscale());
}

// A new photograph starts from the setting it is opened with and a history of its own; the
// previous photograph's setting is offered, and taken only when asked for.
TEST(ControlSequences, ANewPhotographStartsFreshAndOffersThePreviousSetting) {
    OpenedPicture opened(scenePicture(500, 300));
    settle(opened, streak(40));
    settle(opened, streak(44));
    const jobs::Setting start{{engine::BlurKind::OutOfFocus, 10}, 45, false};
    opened.sequences.pickImg(scenePicture(300, 500), start);
    EXPECT_EQ(opened.window.controls, start);
    EXPECT_EQ(opened.sequences.history().count(), 0);
    ASSERT_TRUE(opened.sequences.previousSetting().has_value());
    EXPECT_EQ(*opened.sequences.previousSetting(), streak(44));
    opened.sequences.showFirstRestoration();
    opened.sequences.applyPrevious();
    EXPECT_EQ(opened.window.controls, streak(44));
    EXPECT_EQ(opened.window.settings, jobs::settingsLabel(streak(44)));
}
