// Feeds bytes through the program's way of opening a picture, as the window and the command line
// open a file, and restores what decodes once, on small working copies so that every input runs
// in milliseconds.
#include "engine/image_bridge.h"
#include "files/picture_file.h"
#include "jobs/controller_state.h"
#include "jobs/headless_window.h"
#include "jobs/restoration_jobs.h"
#include "jobs/slider_ranges.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>

namespace {

using namespace clarovi;

constexpr int kWorkingSide = 64;
constexpr int kPreviewSide = 32;

void restoreOnce(const QImage& photo) {
    jobs::ControllerState state;
    jobs::HeadlessWindow window;
    state.setUpDefaults(window.mu, jobs::kSharpnessRange.minimum, jobs::kSharpnessRange.maximum,
                        window.length);
    state.workingSide = kWorkingSide;
    state.previewSide = kPreviewSide;
    state.installPicture(photo);
    window.shown =
        engine::imageWithImage(state.sourceImage, QSizeF(state.displayWidth, state.displayHeight));
    jobs::RestorationJobs restorations(state, window);
    restorations.MakeMyPSFinitial();
    restorations.auxTrueNoMultithread();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    const files::LoadedPicture loaded = files::loadPicture(buffer, QStringLiteral("input"));
    if (!loaded.image.isNull())
        restoreOnce(loaded.image);
    return 0;
}
