#pragma once

#include <QImage>
#include <QPixmap>
#include <QWidget>

namespace clarovi::app {

/// Shows one picture on a background of its own. By default it is scaled to fit, keeping its
/// aspect ratio, up or down, optionally mirrored left to right, and ignores mouse and keys.
/// Made zoomable, it also shows the picture at fixed zoom steps from 1/8x to 8x, zoomed with the
/// wheel, the keys + - 0 1 or the slots, panned by dragging; it can show a second picture
/// (the one before restoration) in the same place for comparison; and a drag where it cannot
/// pan (on the fitted picture, or with Shift held) marks a region of the picture.
class ImageView : public QWidget {
    Q_OBJECT
  public:
    explicit ImageView(QWidget* parent = nullptr);

    /// Keeps the zoom and the detail at the centre of the view (relative to the picture's size),
    /// so that a new restoration of the same picture shows the same place.
    void setImage(const QImage& image);
    const QImage& image() const { return m_image; }
    void setCompareImage(const QImage& image);
    const QImage& compareImage() const { return m_compareImage; }
    /// While on, the compare image is shown instead of the image, at the same zoom and place.
    void setComparing(bool comparing);
    bool comparing() const { return m_comparing; }

    void setMirrored(bool mirrored);
    void setBackground(const QColor& colour);
    /// Shown while there is no picture.
    /// The size every picture is shown at at 100 %, whatever its own: a quick preview of half the
    /// size or the picture before restoration then cover the same place as the restoration.
    /// Empty (the default): each picture's own size.
    void setNaturalSize(const QSize& size);
    void setPlaceholderText(const QString& text);
    const QString& placeholderText() const { return m_placeholder; }

    /// Off by default: fitted only, no interaction. Turning it off returns to fit.
    void setZoomable(bool zoomable);
    bool isZoomable() const { return m_zoomable; }

    /// Widget (device-independent) pixels per picture pixel, also while fitting.
    double zoomFactor() const;
    /// Maps between widget coordinates and the picture's layout units (its pixels, or those of the
    /// natural size when one is set).
    QPointF widgetToPicture(QPointF point) const;
    QPointF pictureToWidget(QPointF point) const;

    /// The marked region in layout units, shown dashed; empty for none.
    void setRegion(const QRectF& inPicture);
    const QRectF& region() const { return m_region; }

  public slots:
    void zoomIn();
    void zoomOut();
    void fitToWindow();
    void showActualSize();

  signals:
    void zoomChanged(double factor, bool fitting);
    void comparingChanged(bool comparing);
    /// The user marked a region, in layout units, within the picture.
    void regionMarked(const QRectF& inPicture);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    /// A copy of a picture in the screen's format, made once rather than on every reduced paint.
    struct PixmapCache {
        qint64 key = 0;
        QPixmap pixmap;
        const QPixmap& of(const QImage& image);
    };

    const QImage& shownImage() const;
    /// The size the view lays the picture out at: the natural size when one is set.
    QSizeF shownSize() const {
        return m_naturalSize.isEmpty() ? QSizeF(shownImage().size()) : QSizeF(m_naturalSize);
    }
    double fitFactor() const;
    QPointF centreInPicture() const;
    QPointF clampedCentre(QPointF centreInPixels, double factor) const;
    QPointF unmirrored(QPointF point) const;
    bool pannable() const;

    void zoomAbout(double factor, QPointF widgetPoint);
    void showFitted();
    QPointF keyboardAnchor() const;
    void viewChanged();
    void drawPlaceholder(QPainter& painter);
    void drawPicture(QPainter& painter);
    void drawRegion(QPainter& painter) const;
    bool marksOnDrag(const QMouseEvent* event) const;
    void finishMarking(QPointF end);

    QImage m_image;
    QImage m_compareImage;
    PixmapCache m_imagePixmap;
    PixmapCache m_comparePixmap;
    QColor m_background;
    QString m_placeholder;
    QSize m_naturalSize;
    bool m_mirrored = false;
    bool m_comparing = false;
    bool m_zoomable = false;
    bool m_fitting = true;
    double m_factor = 1.0;
    /// The picture point at the view's centre, as a fraction of the picture's size.
    QPointF m_centre{0.5, 0.5};
    int m_wheelRemainder = 0;
    bool m_dragging = false;
    QPointF m_dragStart;
    QPointF m_centreAtDragStart;
    bool m_marking = false;
    QPointF m_markStart; ///< widget coordinates of the region being marked
    QPointF m_markEnd;
    QRectF m_region;
    double m_notifiedFactor = 0.0;
    bool m_notifiedFitting = true;
};

} // namespace clarovi::app
