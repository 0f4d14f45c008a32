#pragma once

#include "fourier_preview.h"
#include "image_view.h"
#include "psf_preview.h"
#include "slider_field.h"

#include "engine/blur_estimate.h"
#include "jobs/activity_board.h"

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

    /// Every control as what runs allows: with no picture only Open; while an export or a search
    /// runs, or a gallery waits for a pick, nothing; while a restoration is due the settings wait
    /// (but the sharpness, which may be let go again) and the title says "LOADING" at once, even
    /// while a job holds the thread; while the blur is estimated, Estimate waits. Angle and width
    /// belong to motion mode.
    void showActivity(const jobs::ActivityBoard& board, bool pictureOpen);
    /// The mode switches for a blur of kind, and the settings that belong to it: the length to a
    /// disk or a streak, angle and width to a streak. The Shake switch takes input while a
    /// shake's kernel is held (loaded or estimated).
    void showMode(engine::BlurKind kind, bool kernelHeld);
    engine::BlurKind mode() const { return m_kind; }
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
    QPushButton* shakeSw;
    QPushButton* openBtn;
    QPushButton* saveBtn;
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
    void showEstimateKind();

    void showModeControls();

    engine::KindWanted m_estimateKind = engine::KindWanted::Any;
    engine::BlurKind m_kind = engine::BlurKind::OutOfFocus;
    bool m_kernelHeld = false;
    bool m_free = false; ///< the settings take input
};

/// Dims a control (opacity 0.2) or shows it fully.
void setDimmed(QWidget* control, bool dimmed);

} // namespace clarovi::app
