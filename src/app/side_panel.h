#pragma once

#include "image_view.h"
#include "slider_field.h"

#include <QWidget>

class QLabel;
class QPushButton;
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
    void showPictureOpened(bool keepAspect);
    /// The angle and width settings belong to motion mode.
    void showMotionMode(bool motion);
    bool sliderHeld() const;

    QLabel* maintitle;
    ImageView* psfPreview;
    ImageView* spectrumPreview;
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
    QPushButton* aspectBtn;
    QPushButton* compareBtn;

  private:
    void addViews(QVBoxLayout* column);
    void addSettings(QVBoxLayout* column);
    void addButtons(QVBoxLayout* column);
    QPushButton* addButton(const QString& text, const char* name, const QString& tip);
    void setActive(std::initializer_list<QWidget*> controls, bool active);
};

/// Dims a control (opacity 0.2) or shows it fully.
void setDimmed(QWidget* control, bool dimmed);

} // namespace clarovi::app
