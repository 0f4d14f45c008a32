#pragma once

#include <QImage>
#include <QWidget>

namespace clarovi::app {

/// Shows one picture scaled to fit, keeping its aspect ratio, up or down, on a background of its
/// own; optionally mirrored left to right.
class ImageView : public QWidget {
    Q_OBJECT
  public:
    explicit ImageView(QWidget* parent = nullptr);

    void setImage(const QImage& image);
    const QImage& image() const { return m_image; }
    void setMirrored(bool mirrored);
    void setBackground(const QColor& colour);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    QImage m_image;
    QColor m_background;
    bool m_mirrored = false;
};

} // namespace clarovi::app
