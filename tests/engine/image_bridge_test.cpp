#include "engine/image_bridge.h"

#include <QColor>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using namespace clarovi::engine;

namespace {

QImage filled(QSize size, QColor colour, QImage::Format format = QImage::Format_ARGB32) {
    QImage image(size, format);
    image.fill(colour);
    return image;
}

/// An opaque picture whose every pixel differs from its neighbours.
QImage noise(QSize size, QImage::Format format = QImage::Format_RGB32) {
    QImage image(size, QImage::Format_RGB32);
    cv::Mat bytes(size.height(), size.width(), CV_8UC4, image.bits(), image.bytesPerLine());
    cv::randu(bytes, 0, 256);
    return image.convertToFormat(format);
}

/// Largest difference between any sample of mat and value.
double maxDifference(const cv::Mat& mat, cv::Scalar value) {
    return cv::norm(mat, cv::Mat(mat.size(), mat.type(), value), cv::NORM_INF);
}

} // namespace

TEST(ImageBridge, ColourIsBgrxAndGreyIsRec601OverBlack) {
    for (QImage::Format format :
         {QImage::Format_ARGB32, QImage::Format_RGB888, QImage::Format_RGBA64}) {
        SCOPED_TRACE(testing::Message() << "format " << format);
        const QImage red = filled({7, 5}, Qt::red, format);
        EXPECT_EQ(maxDifference(CVMat(red), cv::Scalar(0, 0, 255, 255)), 0.0);
        EXPECT_EQ(maxDifference(CVGrayscaleMat(red), cv::Scalar(76)), 0.0);
    }
    // A grey picture's rows are padded to 40 bytes: no row padding luck either way.
    const QImage grey = noise({37, 23}, QImage::Format_Grayscale8);
    EXPECT_EQ(imageWithCVMat(CVGrayscaleMat(grey)), grey);

    const cv::Mat half = CVMat(filled({4, 4}, QColor(200, 100, 40, 128)));
    EXPECT_LE(maxDifference(half, cv::Scalar(20, 50, 100, 255)), 1.0); // over black
    EXPECT_EQ(maxDifference(CVMat(filled({4, 4}, Qt::transparent)), cv::Scalar(0, 0, 0, 255)), 0.0);
}

TEST(ImageBridge, FilePixelFormatsAreConvertedFirst) {
    const QImage deepGrey = filled({3, 2}, QColor(128, 128, 128), QImage::Format_Grayscale16);
    EXPECT_EQ(maxDifference(CVGrayscaleMat(deepGrey), cv::Scalar(128)), 0.0);
    QImage indexed(2, 1, QImage::Format_Indexed8);
    indexed.setColorTable({qRgb(255, 0, 0), qRgba(0, 0, 255, 0)});
    indexed.setPixel(0, 0, 0);
    indexed.setPixel(1, 0, 1);
    const cv::Mat bgrx = CVMat(indexed);
    EXPECT_EQ(bgrx.at<cv::Vec4b>(0, 0), cv::Vec4b(0, 0, 255, 255));
    EXPECT_EQ(bgrx.at<cv::Vec4b>(0, 1), cv::Vec4b(0, 0, 0, 255)) << "transparent over black";
}

TEST(ImageBridge, MatrixOrRegionBecomesAnImageOfItsOwnOfItsChannels) {
    // One channel stays one channel, as the resampling's fast path for grey pictures needs.
    const QImage grey = imageWithCVMat((cv::Mat_<uchar>(1, 3) << 0, 128, 255));
    EXPECT_EQ(grey.format(), QImage::Format_Grayscale8);
    EXPECT_EQ(grey.pixel(1, 0), qRgb(128, 128, 128));

    cv::Mat rgb(2, 3, CV_8UC3, cv::Scalar(255, 10, 20));
    const QImage rgbImage = imageWithCVMat(rgb);
    rgb.setTo(cv::Scalar(1, 2, 3)); // the image keeps its own bytes
    EXPECT_EQ(rgbImage.pixel(2, 1), qRgb(255, 10, 20));

    const QImage rgbx = imageWithCVMat(cv::Mat(2, 3, CV_8UC4, cv::Scalar(255, 10, 20, 7)));
    EXPECT_EQ(rgbx.pixel(2, 1), qRgb(255, 10, 20)); // opaque: X carries no data

    // As the colour restoration does: BGRX matrix, swapped to RGBX, back to an image.
    for (const QImage& picture : {filled({8, 6}, Qt::red, QImage::Format_RGB32), noise({33, 17})}) {
        cv::Mat swapped;
        cv::cvtColor(CVMat(picture), swapped, cv::COLOR_BGRA2RGBA);
        EXPECT_EQ(imageWithCVMat(swapped).convertToFormat(QImage::Format_RGB32), picture);
    }

    // A region of interest has gaps between its rows: its image is that of its copy.
    for (int type : {CV_8UC1, CV_8UC3, CV_8UC4}) {
        SCOPED_TRACE(testing::Message() << "channels " << CV_MAT_CN(type));
        cv::Mat whole(20, 30, type);
        cv::randu(whole, 0, 256);
        const cv::Mat roi = whole(cv::Rect(3, 2, 5, 4)); // odd offset, rows with gaps
        ASSERT_FALSE(roi.isContinuous());
        EXPECT_EQ(imageWithCVMat(roi), imageWithCVMat(roi.clone()));
    }
}

TEST(ImageBridge, NothingGivesNothingAndOtherDepthsThrow) {
    EXPECT_TRUE(CVMat(QImage()).empty() && CVGrayscaleMat(QImage()).empty());
    EXPECT_TRUE(imageWithCVMat(cv::Mat()).isNull());
    EXPECT_TRUE(imageWithImage(QImage(), QSizeF(2048, 2048)).isNull());
    EXPECT_TRUE(imageWithImage(filled({4, 4}, Qt::red), QSizeF(0.9, 10)).isNull());
    EXPECT_TRUE(flipImage(QImage()).isNull());
    EXPECT_THROW(imageWithCVMat(cv::Mat(2, 2, CV_16UC1)), std::invalid_argument);
    EXPECT_THROW(imageWithCVMat(cv::Mat(2, 2, CV_8UC2)), std::invalid_argument);
}

TEST(ImageBridge, GreyPicturesResampleToTheSameBytesAsTheirColourCopies) {
    const QImage grey = noise({300, 200}, QImage::Format_Grayscale8);
    const QImage colour = grey.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (const QSizeF size : {QSizeF(150, 100), QSizeF(640, 480.7)}) {
        SCOPED_TRACE(size.width());
        EXPECT_EQ(imageWithImage(grey, size), imageWithImage(colour, size));
    }
}
