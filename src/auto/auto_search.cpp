#include "auto_search.h"

#include "engine/image_bridge.h"
#include "engine/restoration_score.h"
#include "jobs/controller_state.h"
#include "jobs/plane_recipe.h"
#include "jobs/slider_ranges.h"

#include <QElapsedTimer>
#include <QException>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <algorithm>
#include <cmath>
#include <exception>

namespace clarovi::autosearch {

namespace {

// The grid: disk diameters from 2 to 82; streaks at 42 angles across the half turn (a streak has
// no head), from just above -90 to 90, each at 23 lengths from 4 to 92.
constexpr int kDiskCount = 41;
constexpr double kDiskStep = 2.0;
constexpr int kStreakAngles = 42;
constexpr int kStreakLengths = 23;
constexpr double kStreakStep = 4.0;
// Around an estimate: lengths within 30 % of its own, half a pixel apart for a disk (whose size
// matters more) and a pixel apart for a streak, at angles within 6 degrees a degree apart.
constexpr double kFineSpan = 0.3;
// Steps of the sharpness control the thumbnails are restored crisper than the setting asks.
constexpr double kThumbnailSharpening = 30.0;
constexpr double kFineDiskStep = 0.5;
constexpr double kFineStreakStep = 1.0;
constexpr int kFineAngles = 6;

// Keeps about the central three quarters of each side.
cv::Mat centralPart(const cv::Mat& r) {
    return r(cv::Rect(r.cols / 8, r.rows / 8, r.cols - r.cols / 4, r.rows - r.rows / 4));
}

} // namespace

AutoSearch::AutoSearch(SearchInput input, Restoration restoration)
    : m_input(std::move(input)), m_restore(std::move(restoration)) {
    const QImage small = engine::imageWithImage(
        m_input.previewSourceImage,
        jobs::reducedToLongerSide(m_input.previewSourceImage.size(), kThumbnailSide));
    m_smallGrey = engine::CVGrayscaleMat(small);
    if (!m_restore)
        m_restore = [this](const engine::BlurOnPhoto& blur) { return thumbnail(blur); };
    m_pool.setMaxThreadCount(QThread::idealThreadCount());
}

cv::Mat AutoSearch::thumbnailCrop(const cv::Mat& restored) {
    return centralPart(centralPart(restored));
}

QImage AutoSearch::thumbnail(const engine::BlurOnPhoto& blur) const {
    std::vector<cv::Mat> planes{m_smallGrey};
    // The live preview's quick pass, kThumbnailSharpening steps crisper: the sparsity score
    // tells the right blur by the ringing a wrong one leaves, which the preview's smoothing
    // hides (at the sharpness itself the best scores fell at 85 % of a 24-pixel disk and 80 % of
    // a 40-pixel streak; 20 to 50 steps crisper all found both). Without statistics the copy is
    // weighed for an average picture, as every thumbnail must be weighed alike.
    // With the classic filter chosen, the thumbnails are classic too, at the sharpness itself.
    const bool classic = m_input.setting.classic;
    const double sharpness =
        classic ? m_input.setting.sharpness
                : std::min(m_input.setting.sharpness + kThumbnailSharpening, engine::kMaxSharpness);
    jobs::restorePlanes(
        planes, {blur, sharpness, false, classic},
        {engine::workingScale(m_smallGrey.size()), true, engine::PictureStatistics{}, 1});
    const QImage crop = engine::imageWithCVMat(thumbnailCrop(planes.front()));
    return engine::imageWithImage(crop, QSizeF(m_smallGrey.cols, m_smallGrey.rows));
}

engine::BlurOnPhoto AutoSearch::blurOf(double length, double angle) const {
    engine::BlurOnPhoto blur = m_input.setting.blur;
    blur.length = length;
    blur.angle = angle;
    return blur.normalised();
}

// Out of focus: one diameter per step; a streak: every length of an angle per step.
std::vector<AutoSearch::Step> AutoSearch::gridPlan() const {
    std::vector<Step> steps;
    if (kind() == engine::BlurKind::OutOfFocus) {
        for (int k = 1; k <= kDiskCount; ++k)
            steps.push_back({blurOf(k * kDiskStep, 0)});
        return steps;
    }
    for (int a = 1; a <= kStreakAngles; ++a) {
        Step step;
        for (int k = 1; k <= kStreakLengths; ++k)
            step.push_back(blurOf(k * kStreakStep, -90.0 + a * 180.0 / kStreakAngles));
        steps.push_back(step);
    }
    return steps;
}

// The lengths around the estimate within the length slider's range.
std::vector<double> AutoSearch::fineLengths() const {
    const double centre = m_input.around->length;
    const double step = kind() == engine::BlurKind::Motion ? kFineStreakStep : kFineDiskStep;
    const int reach = int(kFineSpan * centre / step + 1e-9);
    std::vector<double> lengths;
    for (int k = -reach; k <= reach; ++k)
        if (jobs::kLengthRange.contains(centre + k * step))
            lengths.push_back(centre + k * step);
    return lengths;
}

std::vector<AutoSearch::Step> AutoSearch::finePlan() const {
    std::vector<Step> steps;
    const std::vector<double> lengths = fineLengths();
    if (kind() == engine::BlurKind::OutOfFocus) {
        for (double length : lengths)
            steps.push_back({blurOf(length, 0)});
        return steps;
    }
    for (int j = -kFineAngles; j <= kFineAngles; ++j) {
        Step step;
        for (double length : lengths)
            step.push_back(blurOf(length, m_input.around->angle + j));
        steps.push_back(step);
    }
    return steps;
}

// The blurs of a step are restored and scored side by side on the cores (each reads only what
// stays fixed during the search), then recorded in order.
void AutoSearch::restoreStep(const Step& step) {
    QList<AutoResult> made;
    try {
        made = QtConcurrent::blockingMapped<QList<AutoResult>>(
            &m_pool, step, [this](const engine::BlurOnPhoto& blur) {
                // Kept as 8-bit grey: a streak search keeps 966 of them.
                const QImage thumbnail = m_restore(blur).convertToFormat(QImage::Format_Grayscale8);
                return AutoResult{thumbnail, blur,
                                  engine::restorationScore(engine::CVGrayscaleMat(thumbnail))};
            });
    } catch (const QUnhandledException& wrapped) {
        // The restoration's own exception, not Qt's wrapper, tells what went wrong.
        if (wrapped.exception())
            std::rethrow_exception(wrapped.exception());
        throw;
    }
    results.insert(results.end(), made.begin(), made.end());
}

bool AutoSearch::run(const Post& post, const std::function<bool()>& cancelled) {
    results.clear();
    const std::vector<Step> steps = m_input.around ? finePlan() : gridPlan();
    const int count = int(steps.size());
    QElapsedTimer clock;
    clock.start();
    double firstStep = 0;
    for (int k = 0; k < count; ++k) {
        restoreStep(steps[size_t(k)]);
        if (k == 0)
            firstStep = clock.nsecsElapsed() / 1e9;
        // The first step's duration for every step left: counted rather than subtracted step by
        // step, so that the last step shows exactly 0.
        post({k + 1, k + 1 == count, (count - 1 - k) * firstStep, float(k + 1) / float(count),
              kind()});
        if (cancelled && cancelled())
            return false;
    }
    return true;
}

} // namespace clarovi::autosearch
