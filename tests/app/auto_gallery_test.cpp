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
    QImage thumbnail(512, 341, QImage::Format_Grayscale8);
    const int ramp = int(std::abs(length - 20)) + 1;
    for (int y = 0; y < thumbnail.height(); ++y)
        for (int x = 0; x < thumbnail.width(); ++x)
            thumbnail.scanLine(y)[x] = uchar(std::clamp((x - 256) * 200 / ramp, 0, 200));
    return thumbnail;
}

QImage quickThumbnail(const clarovi::engine::BlurOnPhoto& blur) {
    QThread::msleep(1); // long enough for a cancel to land mid-run
    return edgeThumbnail(blur.length);
}

class GalleryTest : public MainWindowTest {
  protected:
    void SetUp() override {
        MainWindowTest::SetUp();
        createWindow(quickThumbnail);
        // A sharp photograph: no blur is found, so the searches go over the grid.
        openSample(QStringLiteral(CLAROVI_DATA_DIR "/astronaut.png"));
    }
    AutoViewController* gallery() const {
        return window->findChild<AutoViewController*>("loadingWindow");
    }
    QListView* tiles() const { return gallery()->findChild<QListView*>("colView"); }
    /// Starts a search and waits for its gallery.
    void search() {
        QTest::mouseClick(outlet("autobtn"), Qt::LeftButton);
        ASSERT_TRUE(waitFor([this] { return gallery() && gallery()->isVisible(); }, 60000));
    }
};

} // namespace

// The search covers the picture, not the panel, which stays in view dimmed; the status says it
// searches; then the gallery opens on the best tile, marked, with scores.
TEST_F(GalleryTest, ASearchCoversThePictureThenOpensTheGalleryOnTheBest) {
    auto* overlay = outlet("neCont");
    QTest::mouseClick(outlet("autobtn"), Qt::LeftButton);
    EXPECT_TRUE(overlay->isVisible());
    EXPECT_EQ(overlay->parentWidget(), view());
    EXPECT_EQ(outlet<QLabel>("jobLabel")->text(), "Searching…");
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    ASSERT_TRUE(waitFor([this] { return gallery() != nullptr; }));
    EXPECT_TRUE(outlet<QLabel>("_loadLabelNew")->text().contains(" left") ||
                gallery()->isVisible());
    const auto* model = static_cast<const GalleryModel*>(tiles()->model());
    ASSERT_GT(model->rowCount(), 41);
    // The labels say the blur a pick sets, and the score; the search ends near the best.
    int bestRow = -1;
    for (int row = 0; row < model->rowCount(); ++row) {
        const QString label = model->index(row, 0).data().toString();
        EXPECT_TRUE(label.startsWith(
            QStringLiteral("Ø %1   score ").arg(model->result(row).blur.length, 0, 'f', 1)))
            << label.toStdString();
        if (model->index(row, 0).data(GalleryModel::kBestRole).toBool())
            bestRow = row;
    }
    ASSERT_GE(bestRow, 0);
    EXPECT_NEAR(model->result(bestRow).blur.length, 20.0, 0.6);
    const QModelIndex best = model->index(bestRow, 0);
    ASSERT_TRUE(waitFor([&] { return tiles()->currentIndex() == best; }));
    EXPECT_TRUE(tiles()->viewport()->rect().intersects(tiles()->visualRect(best)));
    gallery()->findChild<QCheckBox*>("sortByScore")->click();
    EXPECT_TRUE(model->index(0, 0).data(GalleryModel::kBestRole).toBool());
}

// Closing the gallery with its title bar, Escape or "Keep current settings" keeps the program,
// the settings and the picture; the results go with it.
TEST_F(GalleryTest, ClosingTheGalleryKeepsTheProgramAndTheSettings) {
    const auto closeBy = std::initializer_list<std::function<void(AutoViewController*)>>{
        [](AutoViewController* g) { g->close(); },
        [](AutoViewController* g) { QTest::keyClick(g, Qt::Key_Escape); },
        [](AutoViewController* g) {
            QTest::mouseClick(g->findChild<QPushButton*>("keepBtn"), Qt::LeftButton);
        }};
    for (const auto& close : closeBy) {
        const QImage before = shown();
        const clarovi::jobs::Setting setting = window->setting();
        search();
        close(gallery());
        ASSERT_TRUE(waitFor([this] { return !gallery() && idle(); }));
        EXPECT_TRUE(window->isVisible());
        EXPECT_EQ(window->setting(), setting);
        EXPECT_EQ(shown(), before);
        EXPECT_FALSE(outlet("neCont")->isVisible());
        EXPECT_TRUE(Data::getInstance().arrayOfData.empty()) << "the results go with the gallery";
    }
}

// A click only chooses; a double click picks: the blur goes to the controls and is restored at
// once with their sharpness (the thumbnails'), grey as the colour switch is.
TEST_F(GalleryTest, ADoubleClickPicksTheTileAndRestoresIt) {
    QTest::keyClick(window.get(), Qt::Key_M);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    const int before = restorations();
    search();
    const auto* model = static_cast<const GalleryModel*>(tiles()->model());
    const QModelIndex first = model->index(0, 0);
    const clarovi::engine::BlurOnPhoto tile = model->result(0).blur;
    EXPECT_EQ(tile.kind, clarovi::engine::BlurKind::Motion);
    tiles()->scrollToTop();
    const QPoint at = tiles()->visualRect(first).center();
    QTest::mouseClick(tiles()->viewport(), Qt::LeftButton, {}, at);
    EXPECT_TRUE(gallery()->isVisible()) << "a single click does not pick";
    QTest::mouseDClick(tiles()->viewport(), Qt::LeftButton, {}, at);
    ASSERT_TRUE(waitFor([this] { return !gallery() && idle(); }));
    EXPECT_NEAR(slider("psfCountD")->floatValue(), tile.length, 0.05);
    EXPECT_NEAR(slider("psfAngle")->floatValue(), tile.angle, 0.05);
    EXPECT_FLOAT_EQ(slider("muSlider")->floatValue(), 50.0f) << "the thumbnails' sharpness";
    EXPECT_EQ(restorations(), before + 1);
    EXPECT_TRUE(shown().isGrayscale());
}

// A cancelled search says so and leaves everything as it was.
TEST_F(GalleryTest, ACancelledSearchSaysSo) {
    QTest::keyClick(window.get(), Qt::Key_M);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    const QImage before = shown();
    QTest::mouseClick(outlet("autobtn"), Qt::LeftButton);
    QTest::mouseClick(outlet("cancelBtn"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_EQ(gallery(), nullptr);
    EXPECT_TRUE(status().startsWith("Search cancelled")) << status().toStdString();
    EXPECT_EQ(shown(), before);
}

// However small the screen, the gallery stays on it and still shows at least one whole tile.
TEST(Gallery, FitsOnTheScreenWithAWholeTileInView) {
    AutoViewController gallery;
    gallery.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&gallery));
    EXPECT_TRUE(gallery.screen()->availableGeometry().contains(gallery.frameGeometry()));
    const QSize view = gallery.findChild<QListView*>("colView")->viewport()->size();
    EXPECT_TRUE(view.width() >= 400 && view.height() >= 400)
        << view.width() << "x" << view.height();
}
