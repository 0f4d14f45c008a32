#pragma once

#include "fourier_preview.h"

#include <QWidget>

namespace clarovi::app {

/// The spectrum enlarged in a window of its own: a zoomable view with the zeros of the sliders'
/// blur, and a line on how to read it. It follows what the panel's small view shows.
class SpectrumWindow : public QWidget {
    Q_OBJECT
  public:
    explicit SpectrumWindow(QWidget* owner);

    /// Shows the spectrum and the blur of the panel's view, beside the owner where the screen has
    /// room, otherwise over the picture, so that the sliders stay in view.
    void showFrom(const SpectrumPreview& panelView);
    SpectrumPreview* view() const { return m_view; }

  private:
    void placeBesideOwner();

    SpectrumPreview* m_view;
};

} // namespace clarovi::app
