// The restoration filters' quality on photographs blurred by known kernels: for each photograph,
// blur and noise level, the PSNR on the middle 384 x 384 pixels of the blurred input, Classic
// at its best sharpness, Regularised and EdgePreserving at the default and at their best, and the
// slow hyper-Laplacian reference at its best weight. Prints a Markdown table.
//
//   restoration_quality [--quick] photo.jpg ...
//
// Each photograph is brought to 2048 pixels on its longer side (plus a margin, blurred with the
// rest and then cut off, so that the frame holds what the blur carried in from outside), blurred
// by a disk of 4, 8 and 16 pixels and a 17-pixel streak at 30 degrees, given white noise of
// sigma 1 and 3 grey levels and rounded to 8 bits. --quick leaves the reference out.

#include "engine/image_bridge.h"
#include "engine/plane_restorer.h"
#include "engine/psf.h"
#include "hyper_laplacian_reference.h"

#include <QImage>

#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace clarovi;

constexpr int kSide = 2048;
constexpr int kMargin = 64;
constexpr int kCentre = 384;
constexpr int kReferenceMargin = 64;

struct Blur {
    const char* name;
    float length;
    double angle;
    bool motion;
};

const Blur kBlurs[] = {{"disk 4", 4.0f, 0.0, false},
                       {"disk 8", 8.0f, 0.0, false},
                       {"disk 16", 16.0f, 0.0, false},
                       {"streak 17 at 30°", 17.0f, 30.0, true}};
const double kNoise[] = {1.0, 3.0};

cv::Mat kernelOf(const Blur& blur) {
    const engine::BlurKind kind =
        blur.motion ? engine::BlurKind::Motion : engine::BlurKind::OutOfFocus;
    return engine::MakePsfD({kind, blur.length, blur.angle, 1.0}, 1.0);
}

/// The photograph in grey, its longer side kSide + 2 kMargin, on the 0..255 scale.
cv::Mat loadPhotograph(const std::string& path) {
    const QImage image(QString::fromStdString(path));
    if (image.isNull())
        return {};
    cv::Mat grey;
    engine::CVGrayscaleMat(image).convertTo(grey, CV_32F);
    const double scale = double(kSide + 2 * kMargin) / std::max(grey.cols, grey.rows);
    cv::Mat resized;
    cv::resize(grey, resized, {}, scale, scale, cv::INTER_AREA);
    return resized;
}

/// A convolution (not a correlation) with the kernel's centre pixel at the origin.
cv::Mat convolve(const cv::Mat& picture, const cv::Mat& kernel) {
    cv::Mat flipped, out;
    cv::flip(kernel, flipped, -1);
    cv::filter2D(picture, out, CV_32F, flipped,
                 {kernel.cols - 1 - kernel.cols / 2, kernel.rows - 1 - kernel.rows / 2}, 0,
                 cv::BORDER_REFLECT);
    return out;
}

/// Where PSNR is measured: the middle kCentre x kCentre pixels.
cv::Rect centreOf(cv::Size size) {
    return {(size.width - kCentre) / 2, (size.height - kCentre) / 2, kCentre, kCentre};
}

double psnr(const cv::Mat& sharp, const cv::Mat& restored) {
    cv::Mat a, b;
    sharp(centreOf(sharp.size())).convertTo(a, CV_64F);
    restored(centreOf(restored.size())).convertTo(b, CV_64F);
    const double mse = cv::norm(a, b, cv::NORM_L2SQR) / double(a.total());
    return 10 * std::log10(255.0 * 255.0 / mse);
}

/// The best of f over [low, high]: a grid of step, then halved steps around the best twice.
std::pair<double, double> best(const std::function<double(double)>& f, double low, double high,
                               double step) {
    double at = low, value = -1e9;
    const auto consider = [&](double x) {
        if (x < low - 1e-9 || x > high + 1e-9)
            return;
        const double v = f(x);
        if (v > value) {
            value = v;
            at = x;
        }
    };
    for (double x = low; x <= high + 1e-9; x += step)
        consider(x);
    for (int round = 0; round < 2; ++round) {
        step /= 2;
        const double centre = at;
        consider(centre - step);
        consider(centre + step);
    }
    return {value, at};
}

struct Row {
    double blurred, classicBest, regularisedDefault, regularisedBest, edgeDefault, edgeBest,
        referenceBest = std::nan("");
    double classicAt, regularisedAt, edgeAt, referenceAt = std::nan("");
};

Row measure(const cv::Mat& sharp, const cv::Mat& blurred, const cv::Mat& kernel, bool streak,
            bool quick) {
    const engine::PictureStatistics picture = engine::measurePicture(blurred);
    const auto restored = [&](engine::RestorationFilter filter, double sharpness) {
        engine::RestorationSettings settings;
        settings.filter = filter;
        settings.sharpness = sharpness;
        settings.picture = picture;
        settings.streak = streak;
        settings.threads = 2;
        return psnr(sharp,
                    engine::PlaneRestorer(kernel, blurred.size(), settings).restore(blurred));
    };
    using engine::RestorationFilter;
    Row row{};
    row.blurred = psnr(sharp, blurred);
    std::tie(row.classicBest, row.classicAt) =
        best([&](double s) { return restored(RestorationFilter::Classic, s); }, 0, 100, 20);
    row.regularisedDefault = restored(RestorationFilter::Regularised, engine::kDefaultSharpness);
    std::tie(row.regularisedBest, row.regularisedAt) =
        best([&](double s) { return restored(RestorationFilter::Regularised, s); }, 0, 100, 10);
    row.edgeDefault = restored(RestorationFilter::EdgePreserving, engine::kDefaultSharpness);
    std::tie(row.edgeBest, row.edgeAt) =
        best([&](double s) { return restored(RestorationFilter::EdgePreserving, s); }, 0, 100, 10);
    if (quick)
        return row;
    // The reference restores the centre with a margin; it mirrors that to twice its size.
    const cv::Rect centre = centreOf(blurred.size());
    const cv::Rect around(centre.x - kReferenceMargin, centre.y - kReferenceMargin,
                          centre.width + 2 * kReferenceMargin,
                          centre.height + 2 * kReferenceMargin);
    cv::Mat input;
    blurred(around).convertTo(input, CV_64F, 1.0 / 255);
    const double sigma = std::max(picture.noiseSigma, 0.25);
    std::tie(row.referenceBest, row.referenceAt) = best(
        [&](double log2LambdaNoise) {
            const double lambda = std::exp2(log2LambdaNoise) / (sigma * sigma);
            cv::Mat full = cv::Mat::zeros(blurred.size(), CV_64F);
            cv::Mat x = reference::hyperLaplacianRestore(input, kernel, lambda) * 255.0;
            x.copyTo(full(around));
            return psnr(sharp, full);
        },
        8, 16, 2);
    return row;
}

} // namespace

int main(int argc, char** argv) {
    bool quick = false;
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--quick")
            quick = true;
        else
            paths.push_back(arg);
    }
    if (paths.empty()) {
        std::fprintf(stderr, "usage: restoration_quality [--quick] photo ...\n");
        return 2;
    }
    std::printf("| photograph | blur | σ | blurred | Classic best | Regularised default | "
                "Regularised best (at) | EdgePreserving default | EdgePreserving best (at) | "
                "reference best (log2 λσ²) | best − reference |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (const std::string& path : paths) {
        const cv::Mat photograph = loadPhotograph(path);
        if (photograph.empty()) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            continue;
        }
        const std::string name = path.substr(path.find_last_of('/') + 1);
        for (const Blur& blur : kBlurs) {
            const cv::Mat kernel = kernelOf(blur);
            const cv::Mat blurredWhole = convolve(photograph, kernel);
            const cv::Rect inner(kMargin, kMargin, photograph.cols - 2 * kMargin,
                                 photograph.rows - 2 * kMargin);
            const cv::Mat sharp = photograph(inner).clone();
            for (const double sigma : kNoise) {
                cv::Mat noise(inner.size(), CV_32F);
                cv::RNG(int(1000 * sigma) + blur.length).fill(noise, cv::RNG::NORMAL, 0, sigma);
                cv::Mat blurred;
                cv::Mat(blurredWhole(inner) + noise).convertTo(blurred, CV_8U);
                const Row r = measure(sharp, blurred, kernel, blur.motion, quick);
                std::printf("| %s | %s | %.0f | %.2f | %.2f | %.2f | %.2f (%.0f) | %.2f | %.2f "
                            "(%.1f) | %.2f (%.1f) | %+.2f |\n",
                            name.c_str(), blur.name, sigma, r.blurred, r.classicBest,
                            r.regularisedDefault, r.regularisedBest, r.regularisedAt, r.edgeDefault,
                            r.edgeBest, r.edgeAt, r.referenceBest, r.referenceAt,
                            r.edgeBest - r.referenceBest);
                std::fflush(stdout);
            }
        }
    }
    return 0;
}
