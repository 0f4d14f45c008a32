#include "auto_search.h"

#include "engine/image_bridge.h"
#include "engine/restoration_score.h"
#include "engine/texture.h"
#include "jobs/controller_state.h"
#include "jobs/plane_recipe.h"
#include "jobs/slider_ranges.h"
#include "search_plan.h"

#include <QElapsedTimer>
#include <QException>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <algorithm>
#include <cmath>
#include <exception>

namespace clarovi::autosearch {

namespace {

// Steps of the sharpness control the thumbnails are restored crisper than the setting asks.
constexpr double kThumbnailSharpening = 30.0;

// A thumbnail shows about 9/16 of each side of the small copy (enlarged to its size), kept a
// sixteenth of a side away from its frame, where the restoration is least sure; around a small
// region, at least a quarter of each side.
constexpr double kPartShare = 9.0 / 16.0;
constexpr double kFrameShare = 1.0 / 16.0;
constexpr double kSmallestPartShare = 0.25;

cv::Size shareOf(cv::Size copy, double share) {
    return {std::max(1, int(std::lround(copy.width * share))),
            std::max(1, int(std::lround(copy.height * share)))};
}

// The region's bounds grown to the copy's aspect and at least the smallest share, centred on it
// and kept within the copy.
cv::Rect partAround(cv::Size copy, const cv::Rect& region) {
    const double share =
        std::clamp(std::max(double(region.width) / copy.width, double(region.height) / copy.height),
                   kSmallestPartShare, 1.0);
    const cv::Size size = shareOf(copy, share);
    const int x =
        std::clamp(region.x + region.width / 2 - size.width / 2, 0, copy.width - size.width);
    const int y =
        std::clamp(region.y + region.height / 2 - size.height / 2, 0, copy.height - size.height);
    return {x, y, size.width, size.height};
}

cv::Rect partToShow(const cv::Mat& small, const cv::Rect& regionInWorkingPixels) {
    const cv::Rect whole({0, 0}, small.size());
    const double scale = engine::workingScale(small.size());
    const cv::Rect region = engine::scaledOutwards(regionInWorkingPixels, scale, scale) & whole;
    if (!region.empty())
        return partAround(small.size(), region);
    const cv::Size margin = shareOf(small.size(), kFrameShare);
    const cv::Rect inner(margin.width, margin.height, small.cols - 2 * margin.width,
                         small.rows - 2 * margin.height);
    return engine::TextureMap(small).mostDetailed(shareOf(small.size(), kPartShare), inner);
}

} // namespace

AutoSearch::AutoSearch(SearchInput input, Restoration restoration)
    : m_input(std::move(input)), m_kind(m_input.setting.blur.kind),
      m_restore(std::move(restoration)) {
    const QImage small = engine::imageWithImage(
        m_input.previewSourceImage,
        jobs::reducedToLongerSide(m_input.previewSourceImage.size(), kThumbnailSide));
    m_smallGrey = engine::CVGrayscaleMat(small);
    m_part = partToShow(m_smallGrey, m_input.region);
    if (!m_restore)
        m_restore = [this](const engine::BlurOnPhoto& blur) { return thumbnail(blur); };
    m_pool.setMaxThreadCount(QThread::idealThreadCount());
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
    const QImage crop = engine::imageWithCVMat(planes.front()(m_part));
    return engine::imageWithImage(crop, QSizeF(m_smallGrey.cols, m_smallGrey.rows));
}

// The best guess of the kind searched, or of any kind when the guess is to decide the kind; a
// guess too unsure to go by leaves the kind as it was and the search to cover every blur.
void AutoSearch::estimateGuess() {
    if (!m_input.around && !m_input.analysisGrey.empty()) {
        const engine::KindWanted wanted = m_input.kindOfGuess ? engine::KindWanted::Any
                                          : m_kind == engine::BlurKind::Motion
                                              ? engine::KindWanted::Motion
                                              : engine::KindWanted::OutOfFocus;
        m_input.around = engine::estimateBlur(m_input.analysisGrey,
                                              {wanted, m_input.region, m_input.photoScale});
    }
    if (m_input.around && !usableGuess(*m_input.around))
        m_input.around.reset();
    if (m_input.around && m_input.kindOfGuess)
        m_kind = m_input.around->blur.kind;
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
    estimateGuess();
    engine::BlurOnPhoto model = m_input.setting.blur;
    model.kind = m_kind;
    Pass pass = coarsePass(model, m_input.around ? &*m_input.around : nullptr);
    // The refined passes are planned once the pass before has been scored: counted at their
    // most until then.
    int expected = pass.count() + kRefinements * refinedCountAtMost(m_kind);
    int done = 0;
    QElapsedTimer clock;
    clock.start();
    for (int refinement = 0;; ++refinement) {
        for (size_t k = 0; k < pass.steps.size(); ++k) {
            restoreStep(pass.steps[k]);
            done += int(pass.steps[k].size());
            const bool last = refinement == kRefinements && k + 1 == pass.steps.size();
            const double perBlur = clock.nsecsElapsed() / 1e9 / done;
            post({int(results.size()), last, last ? 0.0 : perBlur * (expected - done),
                  last ? 1.0f : float(done) / float(expected), m_kind});
            if (cancelled && cancelled())
                return false;
        }
        if (refinement == kRefinements)
            return true;
        const Pass next = refinedPass(results, pass.spacing);
        expected -= refinedCountAtMost(m_kind) - next.count();
        pass = next;
    }
}

} // namespace clarovi::autosearch
