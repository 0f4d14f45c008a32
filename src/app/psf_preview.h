#pragma once

#include "image_view.h"
#include "jobs/window_port.h"

namespace clarovi::app {

/// The PSF view: the kernel that restores, as it lies on the photograph, enlarged, with its
/// enlargement written in a corner ("×4.5": a pixel of the photograph is 4.5 pixels here).
class PsfPreview : public ImageView {
    Q_OBJECT
  public:
    explicit PsfPreview(QWidget* parent = nullptr);

    void setPsf(const jobs::PsfPicture& psf);
    /// What the corner says, for the view's present size.
    QString scaleText() const;

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    double m_scale = 1;
};

} // namespace clarovi::app
