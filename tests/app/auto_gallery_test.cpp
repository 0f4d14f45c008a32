#include "app/gallery_window.h"
#include "auto/data.h"
#include "gui_helpers.h"

#include <QCheckBox>
#include <QListView>
#include <QPushButton>

#include <algorithm>
#include <cmath>

using clarovi::app::AutoViewController;
using clarovi::autosearch::AutoResult;
using clarovi::autosearch::Data;
using clarovi::autosearch::GalleryModel;

namespace {

// An edge blurred the more the further the length is from 20, so that length 20 scores best.
QImage edgeThumbnail(double length) {
    QThread::msleep(1);
    QImage thumbnail(512, 341, QImage::Format_Grayscale8);
    const int ramp = int(std::abs(length - 20)) + 1;
    for (int y = 0; y < thumbnail.height(); ++y)
        for (int x = 0; x < thumbnail.width(); ++x)
            thumbnail.scanLine(y)[x] = uchar(std::clamp((x - 256) * 200 / ramp, 0, 200));
    return thumbnail;
}

QImage quickThumbnail(const clarovi::engine::BlurOnPhoto& blur) {
    return edgeThumbnail(blur.length);
}

} // namespace

TEST_F(MainWindowTest, AnAutoRunCoversTheWindowThenOpensTheGallery) {
    openSample();
    window->autoRun().setRestoration(quickThumbnail);
    auto* overlay = outlet("neCont");
    QTest::mouseClick(outlet("autobtn"), Qt::LeftButton);
    EXPECT_TRUE(overlay->isVisible());
    EXPECT_EQ(overlay->geometry(), window->centralWidget()->rect());
    ASSERT_TRUE(waitFor([this] { return window->gallery() != nullptr; }));
    AutoViewController* gallery = window->gallery();
    EXPECT_TRUE(overlay->isVisible() && gallery->isVisible());
    QListView* view = gallery->colView();
    const QAbstractItemModel* tiles = view->model();
    ASSERT_EQ(tiles->rowCount(), 41);
    // The labels say the blur a pick sets: a disk's diameter, no angle.
    EXPECT_EQ(tiles->index(0, 0).data().toString(), "Ø 2.0");
    EXPECT_EQ(tiles->index(40, 0).data().toString(), "Ø 82.0");
    EXPECT_EQ(view->visualRect(tiles->index(0, 0)).size(), QSize(400, 400));
    // It opens on the best-scoring tile, marked; sorted by score, that tile comes first.
    const QModelIndex best = tiles->index(9, 0);
    EXPECT_TRUE(best.data(GalleryModel::kBestRole).toBool());
    EXPECT_FALSE(tiles->index(8, 0).data(GalleryModel::kBestRole).toBool());
    ASSERT_TRUE(waitFor([&] { return view->currentIndex() == best; }));
    EXPECT_TRUE(view->viewport()->rect().intersects(view->visualRect(best)));
    gallery->findChild<QCheckBox*>("sortByScore")->click();
    EXPECT_TRUE(tiles->index(0, 0).data(GalleryModel::kBestRole).toBool());
    EXPECT_EQ(view->currentIndex().row(), 0);

    // "Keep current settings": the window comes back as it was, and the application goes on.
    const QImage shown = window->shownImage();
    QTest::mouseClick(gallery->findChild<QPushButton*>("keepBtn"), Qt::LeftButton);
    EXPECT_FALSE(gallery->isVisible() || overlay->isVisible());
    EXPECT_EQ(terminations, 0);
    EXPECT_EQ(log.count("TERMINATE"), 1);
    ASSERT_TRUE(waitFor([this] { return window->gallery() == nullptr; }));
    EXPECT_TRUE(Data::getInstance().arrayOfData.empty()) << "the results go with the gallery";
    EXPECT_EQ(window->shownImage(), shown);
    EXPECT_TRUE(unlocked());
}

TEST_F(MainWindowTest, PickingTheFirstTileOfAMotionRunTakesItsSettings) {
    openSample();
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    window->autoRun().setRestoration(quickThumbnail);
    window->autoBtn();
    ASSERT_TRUE(waitFor([this] { return window->gallery() != nullptr; }, 60000));
    AutoViewController* gallery = window->gallery();
    QListView* view = gallery->colView();
    ASSERT_EQ(view->model()->rowCount(), 966);
    EXPECT_EQ(view->model()->index(0, 0).data().toString(), "4.0 ∠ -85.7°");

    slider("muSlider")->setFloatValue(0.006f);
    view->scrollToTop();
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                      view->visualRect(view->model()->index(0, 0)).center());
    Data& shared = Data::getInstance();
    const clarovi::jobs::Setting picked{{clarovi::engine::BlurKind::Motion, 4, -90 + 180.0 / 42, 1},
                                        0.0035};
    EXPECT_EQ(shared.selected, picked) << "the streak's width stays the slider's";
    EXPECT_TRUE(shared.toPut);
    EXPECT_FALSE(gallery->isVisible());
    EXPECT_EQ(terminations, 0);
    EXPECT_EQ(log.count("TERMINATE"), 1);

    // The next tick of the pick timer applies it and restores it, grey as the colour switch is.
    ASSERT_TRUE(waitFor([&] { return !shared.toPut; }, 3000));
    EXPECT_FALSE(outlet("neCont")->isVisible());
    EXPECT_FLOAT_EQ(slider("psfCountD")->floatValue(), 4.0f);
    EXPECT_NEAR(slider("psfAngle")->floatValue(), -85.7f, 0.05f);
    EXPECT_FLOAT_EQ(slider("anglewidth")->floatValue(), 1.0f);
    EXPECT_FLOAT_EQ(slider("muSlider")->floatValue(), 0.0035f) << "the thumbnail's sharpness";
    ASSERT_TRUE(waitFor([this] { return unlocked(); }, 10000));
    EXPECT_EQ(log.count("RESOLUTION"), 0);
    EXPECT_EQ(window->shownImage().size(), QSize(600, 400));
    EXPECT_TRUE(window->shownImage().isGrayscale());
}

TEST_F(MainWindowTest, ClosingTheGalleryWithoutAPickQuits) {
    Data::getInstance().arrayOfData = {
        AutoResult{edgeThumbnail(20), {clarovi::engine::BlurKind::Motion, 3, 16, 1}, 0}};
    window->showCv();
    AutoViewController* gallery = window->gallery();
    ASSERT_EQ(gallery->colView()->model()->index(0, 0).data().toString(), "3.0 ∠ 16.0°");
    gallery->close();
    EXPECT_EQ(terminations, 1);
    EXPECT_EQ(log.count("TERMINATE"), 1);
}

// However small the screen, the gallery stays on it and still shows at least one whole tile.
TEST(Gallery, FitsOnTheScreenWithAWholeTileInView) {
    AutoViewController gallery;
    gallery.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&gallery));
    EXPECT_TRUE(gallery.screen()->availableGeometry().contains(gallery.frameGeometry()));
    const QSize view = gallery.colView()->viewport()->size();
    EXPECT_TRUE(view.width() >= 400 && view.height() >= 400)
        << view.width() << "x" << view.height();
}
