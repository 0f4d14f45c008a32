#include "full_size_export.h"

#include <QFileInfo>

#include <opencv2/core.hpp>

namespace clarovi::jobs {

namespace {

// How much of the work each stage is, for the progress shown.
constexpr double kReadShare = 0.1;
constexpr double kRestoreShare = 0.8;

int matTypeOf(const QImage& picture) {
    switch (picture.format()) {
    case QImage::Format_Grayscale8:
        return CV_8UC1;
    case QImage::Format_Grayscale16:
        return CV_16UC1;
    case QImage::Format_RGBA8888:
        return CV_8UC4;
    case QImage::Format_RGBA64:
        return CV_16UC4;
    default:
        throw std::invalid_argument("an export source of an unexpected format");
    }
}

// The picture's pixels as a matrix sharing its memory.
cv::Mat wrap(QImage& picture) {
    return cv::Mat(picture.height(), picture.width(), matTypeOf(picture), picture.bits(),
                   size_t(picture.bytesPerLine()));
}

// Restores the picture's colour planes in place; alpha, the fourth plane, stays as it was.
bool restorePicture(QImage& picture, const Setting& setting, const JobControl& control) {
    cv::Mat pixels = wrap(picture);
    std::vector<cv::Mat> planes;
    cv::split(pixels, planes);
    const bool colour = planes.size() == 4;
    std::vector<cv::Mat> restored(planes.begin(), planes.begin() + (colour ? 3 : 1));
    PlaneRecipe recipe;
    recipe.scale = engine::workingScale(pixels.size());
    if (!restorePlanes(restored, setting, recipe, control))
        return false;
    std::copy(restored.begin(), restored.end(), planes.begin());
    cv::merge(planes, pixels);
    return true;
}

bool cancelled(const JobControl& control) {
    return control.cancelled && control.cancelled();
}

ExportResult failed(const QString& message) {
    return {ExportResult::Outcome::Failed, message};
}

// Reading, restoring and writing: what can throw.
ExportResult readRestoreAndWrite(const ExportRequest& request, const JobControl& control) {
    files::ExportSource source = files::readExportSource(request.source);
    if (source.image.isNull())
        return failed(source.error);
    if (control.progress)
        control.progress(kReadShare);
    if (cancelled(control))
        return {ExportResult::Outcome::Cancelled, {}};

    QStringList notes = source.metadata.notes;
    if (blurBelowAPixel(request.setting.blur,
                        engine::workingScale({source.image.width(), source.image.height()})))
        notes << QStringLiteral("At the size of \u201c%1\u201d the blur set is smaller than a "
                                "pixel: the photograph was written as it is.")
                     .arg(QFileInfo(request.source).fileName());
    else if (!restorePicture(source.image, request.setting,
                             stage(control, kReadShare, kRestoreShare)))
        return {ExportResult::Outcome::Cancelled, {}};
    if (cancelled(control))
        return {ExportResult::Outcome::Cancelled, {}};

    const QString error = files::writeExport(source.image, request.target, source.metadata,
                                             request.options, notes, control.cancelled);
    if (!error.isEmpty())
        return failed(error);
    if (cancelled(control))
        return {ExportResult::Outcome::Cancelled, {}};
    if (control.progress)
        control.progress(1.0);
    return {ExportResult::Outcome::Written, notes.join(QLatin1Char('\n'))};
}

} // namespace

QString failureOf(const std::exception& error) {
    const auto* openCv = dynamic_cast<const cv::Exception*>(&error);
    if (dynamic_cast<const std::bad_alloc*>(&error) ||
        (openCv && openCv->code == cv::Error::StsNoMem))
        return QStringLiteral("there is not enough memory for it.");
    return QString::fromLocal8Bit(error.what()).simplified() + QLatin1Char('.');
}

ExportResult exportFullSize(const ExportRequest& request, const JobControl& control) {
    if (const QString error = files::exportTargetError(request.target, request.source);
        !error.isEmpty())
        return failed(error);
    try {
        return readRestoreAndWrite(request, control);
    } catch (const std::exception& error) {
        return failed(QStringLiteral("Cannot export \u201c%1\u201d: %2")
                          .arg(QFileInfo(request.source).fileName(), failureOf(error)));
    }
}

} // namespace clarovi::jobs
