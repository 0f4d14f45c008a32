#include "engine/image_bridge.h"

#include <QColor>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>

using clarovi::engine::CVGrayscaleMat;
using clarovi::engine::CVMat;
using clarovi::engine::flipImage;
using clarovi::engine::imageWithCVMat;
using clarovi::engine::imageWithImage;

namespace {

QImage filled(QSize size, QColor colour, QImage::Format format = QImage::Format_ARGB32) {
    QImage image(size, format);
    image.fill(colour);
    return image;
}

/// A picture whose every pixel differs from its neighbours.
QImage noise(QSize size, QImage::Format format = QImage::Format_RGB32) {
    cv::Mat bgra(size.height(), size.width(), CV_8UC4);
    cv::randu(bgra, 0, 256);
    QImage image(size, QImage::Format_ARGB32);
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x) {
            const cv::Vec4b p = bgra.at<cv::Vec4b>(y, x);
            image.setPixel(x, y, qRgb(p[2], p[1], p[0]));
        }
    return image.convertToFormat(format);
}

/// Largest difference between any sample of mat and value.
double maxDifference(const cv::Mat& mat, cv::Scalar value) {
    return cv::norm(mat, cv::Mat(mat.size(), mat.type(), value), cv::NORM_INF);
}

/// Literal Rec. 601 luminance of an opaque pixel.
int rec601(QRgb rgb) {
    return static_cast<int>(
        std::lround(0.299 * qRed(rgb) + 0.587 * qGreen(rgb) + 0.114 * qBlue(rgb)));
}

} // namespace

TEST(ImageBridge, MatricesTakeRowsFromHeightAndColumnsFromWidth) {
    // 100.7 x 50.2 points: the resampled picture and its matrices are 100 x 50 pixels.
    const QImage image = imageWithImage(filled({10, 10}, Qt::blue), QSizeF(100.7, 50.2));
    ASSERT_EQ(image.size(), QSize(100, 50));
    for (const cv::Mat& mat : {CVMat(image), CVGrayscaleMat(image)}) {
        EXPECT_EQ(mat.rows, 50);
        EXPECT_EQ(mat.cols, 100);
        EXPECT_TRUE(mat.isContinuous());
    }
    EXPECT_EQ(CVMat(image).type(), CV_8UC4);
    EXPECT_EQ(CVGrayscaleMat(image).type(), CV_8UC1);
}

TEST(ImageBridge, PureRedIsBgrxAndOneGreyLevel) {
    for (QImage::Format format :
         {QImage::Format_ARGB32, QImage::Format_ARGB32_Premultiplied, QImage::Format_RGB32,
          QImage::Format_RGBA8888, QImage::Format_RGB888, QImage::Format_RGBA64}) {
        SCOPED_TRACE(testing::Message() << "format " << format);
        const QImage red = filled({7, 5}, Qt::red, format);
        const cv::Mat bgrx = CVMat(red);
        EXPECT_EQ(maxDifference(bgrx, cv::Scalar(0, 0, 255, 255)), 0.0);
        EXPECT_EQ(maxDifference(CVGrayscaleMat(red), cv::Scalar(76)), 0.0);
    }
}

TEST(ImageBridge, GreyIsRec601OfEveryPixel) {
    const QImage image = noise({37, 23}); // odd sizes: no row padding luck
    const cv::Mat grey = CVGrayscaleMat(image);
    const cv::Mat bgrx = CVMat(image);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb rgb = image.pixel(x, y);
            ASSERT_NEAR(grey.at<uchar>(y, x), rec601(rgb), 1) << x << "," << y;
            ASSERT_EQ(bgrx.at<cv::Vec4b>(y, x), cv::Vec4b(qBlue(rgb), qGreen(rgb), qRed(rgb), 255));
        }
}

TEST(ImageBridge, TransparentPixelsAreCompositedOverBlack) {
    const QImage image = filled({4, 4}, QColor(200, 100, 40, 128));
    const cv::Vec4b pixel = CVMat(image).at<cv::Vec4b>(2, 2);
    EXPECT_NEAR(pixel[0], 40 * 128 / 255.0, 1.0);
    EXPECT_NEAR(pixel[1], 100 * 128 / 255.0, 1.0);
    EXPECT_NEAR(pixel[2], 200 * 128 / 255.0, 1.0);
    EXPECT_EQ(pixel[3], 255);
    EXPECT_NEAR(CVGrayscaleMat(image).at<uchar>(2, 2), rec601(qRgb(200, 100, 40)) * 128 / 255.0,
                1.0);

    const QImage clear = filled({4, 4}, Qt::transparent);
    EXPECT_EQ(maxDifference(CVMat(clear), cv::Scalar(0, 0, 0, 255)), 0.0);
    EXPECT_EQ(cv::countNonZero(CVGrayscaleMat(clear)), 0);
}

TEST(ImageBridge, FilePixelFormatsAreConvertedFirst) {
    QImage grey16(3, 2, QImage::Format_Grayscale16);
    grey16.fill(QColor(128, 128, 128));
    EXPECT_EQ(maxDifference(CVGrayscaleMat(grey16), cv::Scalar(128)), 0.0);

    QImage grey8(5, 3, QImage::Format_Grayscale8); // rows padded to 8 bytes
    grey8.fill(QColor(9, 9, 9));
    EXPECT_EQ(maxDifference(CVGrayscaleMat(grey8), cv::Scalar(9)), 0.0);
    EXPECT_EQ(maxDifference(CVMat(grey8), cv::Scalar(9, 9, 9, 255)), 0.0);

    QImage indexed(2, 1, QImage::Format_Indexed8);
    indexed.setColorTable({qRgb(255, 0, 0), qRgba(0, 0, 255, 0)});
    indexed.setPixel(0, 0, 0);
    indexed.setPixel(1, 0, 1);
    const cv::Mat bgrx = CVMat(indexed);
    EXPECT_EQ(bgrx.at<cv::Vec4b>(0, 0), cv::Vec4b(0, 0, 255, 255));
    EXPECT_EQ(bgrx.at<cv::Vec4b>(0, 1), cv::Vec4b(0, 0, 0, 255)) << "transparent over black";
}

TEST(ImageBridge, NullImageGivesEmptyMatrices) {
    EXPECT_TRUE(CVMat(QImage()).empty());
    EXPECT_TRUE(CVGrayscaleMat(QImage()).empty());
}

TEST(ImageBridge, MatrixBecomesImageOfItsChannels) {
    const cv::Mat grey = (cv::Mat_<uchar>(1, 3) << 0, 128, 255);
    const QImage greyImage = imageWithCVMat(grey);
    EXPECT_EQ(greyImage.format(), QImage::Format_Grayscale8);
    EXPECT_EQ(qGray(greyImage.pixel(1, 0)), 128);

    const cv::Mat rgb(2, 3, CV_8UC3, cv::Scalar(255, 10, 20));
    const QImage rgbImage = imageWithCVMat(rgb);
    EXPECT_EQ(rgbImage.format(), QImage::Format_RGB888);
    EXPECT_EQ(rgbImage.constBits()[0], 255) << "first byte is red";
    EXPECT_EQ(rgbImage.pixel(2, 1), qRgb(255, 10, 20));

    const cv::Mat rgbx(2, 3, CV_8UC4, cv::Scalar(255, 10, 20, 7)); // X carries no data
    const QImage rgbxImage = imageWithCVMat(rgbx);
    EXPECT_FALSE(rgbxImage.hasAlphaChannel());
    EXPECT_EQ(rgbxImage.depth(), 32);
    EXPECT_EQ(rgbxImage.pixel(2, 1), qRgb(255, 10, 20));
    EXPECT_EQ(rgbxImage.convertToFormat(QImage::Format_RGB32),
              rgbImage.convertToFormat(QImage::Format_RGB32));
}

TEST(ImageBridge, RedStaysRedThroughTheColourRoundTrip) {
    // As the colour restoration does: BGRX matrix, swapped to RGBX, back to an image.
    const QImage red = filled({8, 6}, Qt::red);
    cv::Mat rgbx;
    cv::cvtColor(CVMat(red), rgbx, cv::COLOR_BGR2RGBA);
    const QImage back = imageWithCVMat(rgbx);
    EXPECT_EQ(back.size(), red.size());
    EXPECT_EQ(back.convertToFormat(QImage::Format_ARGB32), red);

    const QImage picture = noise({33, 17});
    cv::cvtColor(CVMat(picture), rgbx, cv::COLOR_BGR2RGBA);
    EXPECT_EQ(imageWithCVMat(rgbx).convertToFormat(QImage::Format_RGB32), picture);
}

TEST(ImageBridge, RegionOfInterestIsCopiedRowByRow) {
    for (int type : {CV_8UC1, CV_8UC3, CV_8UC4}) {
        SCOPED_TRACE(testing::Message() << "channels " << CV_MAT_CN(type));
        cv::Mat whole(20, 30, type);
        cv::randu(whole, 0, 256);
        const cv::Mat roi = whole(cv::Rect(3, 2, 5, 4)); // odd offset, rows with gaps
        ASSERT_FALSE(roi.isContinuous());
        const QImage image = imageWithCVMat(roi);
        ASSERT_EQ(image.size(), QSize(5, 4));
        for (int y = 0; y < roi.rows; ++y) {
            const uchar* expected = roi.ptr(y);
            const uchar* row = image.constScanLine(y);
            for (int i = 0; i < roi.cols * roi.channels(); ++i) {
                if (roi.channels() == 4 && i % 4 == 3)
                    continue; // X
                ASSERT_EQ(row[i], expected[i]) << "row " << y << " byte " << i;
            }
        }
    }
}

TEST(ImageBridge, ImageOwnsItsBytes) {
    cv::Mat rgb(2, 2, CV_8UC3, cv::Scalar(1, 2, 3));
    const QImage image = imageWithCVMat(rgb);
    rgb.setTo(cv::Scalar(200, 200, 200));
    rgb.release();
    EXPECT_EQ(image.pixel(1, 1), qRgb(1, 2, 3));
}

TEST(ImageBridge, EmptyOrUnsupportedMatrices) {
    EXPECT_TRUE(imageWithCVMat(cv::Mat()).isNull());
    EXPECT_THROW(imageWithCVMat(cv::Mat(2, 2, CV_16UC1)), std::invalid_argument);
    EXPECT_THROW(imageWithCVMat(cv::Mat(2, 2, CV_32FC3)), std::invalid_argument);
    EXPECT_THROW(imageWithCVMat(cv::Mat(2, 2, CV_8UC2)), std::invalid_argument);
}

TEST(ImageBridge, ResampleStretchesToTheTargetSize) {
    const QImage photo = filled({4000, 3000}, QColor(10, 150, 250), QImage::Format_RGB32);
    const QImage square = imageWithImage(photo, QSizeF(2048, 2048));
    ASSERT_EQ(square.size(), QSize(2048, 2048));
    EXPECT_EQ(square.format(), QImage::Format_ARGB32_Premultiplied);
    // A flat picture stays flat whatever the filter.
    EXPECT_EQ(maxDifference(CVMat(square), cv::Scalar(250, 150, 10, 255)), 0.0);

    const QImage grown = imageWithImage(filled({3, 3}, Qt::green), QSizeF(10.9, 2.0));
    EXPECT_EQ(grown.size(), QSize(10, 2));
    EXPECT_EQ(maxDifference(CVMat(grown), cv::Scalar(0, 255, 0, 255)), 0.0);
}

TEST(ImageBridge, ResampleKeepsPremultipliedPixelsValid) {
    // Bicubic overshoot at an edge where colour rises while alpha falls (opaque black next to
    // half-transparent white) must not leave colour above alpha.
    QImage image(4, 4, QImage::Format_ARGB32);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            image.setPixel(x, y, x < 2 ? qRgba(0, 0, 0, 255) : qRgba(255, 255, 255, 128));
    const QImage grown = imageWithImage(image, QSizeF(37, 29));
    for (int y = 0; y < grown.height(); ++y)
        for (int x = 0; x < grown.width(); ++x) {
            const QRgb raw = reinterpret_cast<const QRgb*>(grown.constScanLine(y))[x];
            ASSERT_LE(qRed(raw), qAlpha(raw)) << x << "," << y;
            ASSERT_LE(qGreen(raw), qAlpha(raw));
            ASSERT_LE(qBlue(raw), qAlpha(raw));
        }
}

TEST(ImageBridge, ResampleOfNothingIsNothing) {
    EXPECT_TRUE(imageWithImage(QImage(), QSizeF(2048, 2048)).isNull());
    const QImage image = filled({4, 4}, Qt::red);
    EXPECT_TRUE(imageWithImage(image, QSizeF(0.9, 10)).isNull());
    EXPECT_TRUE(imageWithImage(image, QSizeF(10, 0)).isNull());
    EXPECT_TRUE(imageWithImage(image, QSizeF(-5, 10)).isNull());
}

TEST(ImageBridge, FlipMirrorsLeftToRightAndTwiceIsIdentity) {
    const QImage image = noise({9, 4}, QImage::Format_ARGB32_Premultiplied);
    const QImage flipped = flipImage(image);
    ASSERT_EQ(flipped.size(), image.size());
    EXPECT_EQ(flipped.format(), image.format());
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            ASSERT_EQ(flipped.pixel(x, y), image.pixel(image.width() - 1 - x, y));
    EXPECT_EQ(flipImage(flipped), image);
    EXPECT_TRUE(flipImage(QImage()).isNull());
}
