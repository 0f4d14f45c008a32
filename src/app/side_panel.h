#pragma once

#include "fourier_preview.h"
#include "image_view.h"
#include "psf_preview.h"
#include "slider_field.h"

#include "engine/blur_estimate.h"

#include <QWidget>

class QLabel;
class QPushButton;
class QToolButton;
class QVBoxLayout;

namespace clarovi::app {

/// The controls beside the result: the title, the PSF and spectrum views, the settings label,
/// the four settings and the buttons, and which of them a running job locks and dims.
class SidePanel : public QWidget {
    Q_OBJECT
  public:
    explicit SidePanel(QWidget* parent = nullptr);

    /// Every control off; the title says "LOADING" at once, even while a job holds the thread.
    void lockEverything();
    /// Every control on again; angle and width only in motion mode.
    void auxUnlock();
    /// With no picture open, everything but Open stays off.
    void showNoPicture();
    /// A picture has just been opened.
    void showPictureOpened();
    /// The angle and width settings belong to motion mode.
    void showMotionMode(bool motion);
    bool sliderHeld() const;
    /// The kind of blur the Estimate button looks for, as its menu last chose it.
    engine::KindWanted estimateKind() const { return m_estimateKind; }

    QLabel* maintitle;
    PsfPreview* psfPreview;
    SpectrumPreview* spectrumPreview;
    QLabel* settingInfo;
    SliderField* psfCountD;
    SliderField* psfAngle;
    SliderField* anglewidth;
    SliderField* muSlider;
    QPushButton* movedSw;
    QPushButton* ofSw;
    QPushButton* openBtn;
    QPushButton* saveBtn;
    QPushButton* exportBtn;
    QPushButton* rgbBtn;
    QPushButton* autobtn;
    QToolButton* estimateBtn;
    QPushButton* compareBtn;

  signals:
    /// Estimate was pressed, or a kind chosen from its menu.
    void estimateRequested(clarovi::engine::KindWanted wanted);

  private:
    void addViews(QVBoxLayout* column);
    void addSettings(QVBoxLayout* column);
    void addButtons(QVBoxLayout* column);
    QPushButton* addButton(const QString& text, const char* name, const QString& tip);
    void setActive(std::initializer_list<QWidget*> controls, bool active);
    QToolButton* makeEstimateButton();

    engine::KindWanted m_estimateKind = engine::KindWanted::Any;
};

/// Dims a control (opacity 0.2) or shows it fully.
void setDimmed(QWidget* control, bool dimmed);

} // namespace clarovi::app
