#pragma once

#include "auto/auto_run.h"
#include "float_slider.h"
#include "image_view.h"
#include "jobs/controller_state.h"
#include "jobs/restoration_jobs.h"
#include "jobs/window_port.h"

#include <QMainWindow>
#include <QTimer>

#include <functional>
#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;
class QSettings;

namespace clarovi::app {

class AutoViewController;
class HowToViewC;

/// The one main window: the result, the PSF and the spectrum, the blur and sharpness controls,
/// and the buttons. Its handlers change the shared controller state and start the restoration
/// jobs, which reach it back through the WindowPort it implements.
class MainWindow : public QMainWindow, public jobs::WindowPort, public autosearch::AutoWindowPort {
    Q_OBJECT
  public:
    /// Asks for a file to open or a path to save to; an empty string means cancelled.
    using FileChooser = std::function<QString()>;
    /// Tells the user that something failed.
    using MessageSink = std::function<void(const QString&)>;

    /// settings holds the first-start marker; the window does not own it.
    explicit MainWindow(QSettings& settings, QWidget* parent = nullptr);
    ~MainWindow() override;

    void setOpenFileChooser(FileChooser chooser) { m_openChooser = std::move(chooser); }
    void setSaveFileChooser(FileChooser chooser) { m_saveChooser = std::move(chooser); }
    void setMessageSink(MessageSink sink) { m_messageSink = std::move(sink); }
    /// What closing the gallery without a pick does; quits the application unless replaced.
    void setGalleryTerminator(std::function<void()> terminate) {
        m_galleryTerminator = std::move(terminate);
    }

    jobs::ControllerState& state() { return m_state; }
    jobs::RestorationJobs& restorationJobs() { return m_jobs; }
    HowToViewC* helpWindow() const { return m_helpController.get(); }
    AutoViewController* gallery() const { return m_loadingController.get(); }
    autosearch::AutoRun& autoRun() { return m_autoRun; }
    /// The picture the result view shows; what Save writes.
    const QImage& shownImage() const { return img01->image(); }

    // WindowPort
    float psfLength() const override { return psfCountD->floatValue(); }
    float sharpness() const override { return muSlider->floatValue(); }
    bool showsResult() const override { return !img01->image().isNull(); }
    void lockEverything() override;
    void unlockEverything() override;
    void showResult(const QImage& picture) override { img01->setImage(picture); }
    void showSettings(const QString& text) override;
    void showSpectrum(const QImage& spectrum) override { spectrumPreview->setImage(spectrum); }
    void reportError(const QString& message) override;

    // Opening and saving.
    void pickIt();
    /// Opens the picture at path; a file that cannot be opened is refused with a message and
    /// everything shown stays as it was.
    bool setImageInputForPictureTaker(const QString& path);
    void SaveImage();
    void showHelp();

    // Control handlers.
    void LengthNew(bool ended);
    void angleNew(bool ended);
    void widthSlider(bool ended);
    void muSliderChange();
    void movedSwitch();
    void outOfFocusSelected();
    void colorize();
    void aspectChange();

    void autoBtn() { m_autoRun.MainWrapper(); }
    /// Asks for an auto run as soon as the next picture is open.
    void automatizateIt() { m_autoRun.automatizateIt(); }
    void setupBtn();

    // AutoWindowPort
    void showOverlay(bool shown) override;
    void showProgress(double fraction) override;
    void showProgressText(const QString& text) override;
    void showCv() override;
    void AppearActions() override;
    void showSearchFailure(const QString& why) override {
        showOverlay(false);
        reportError(why);
    }

    void auxUnlock();

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    void buildControls();
    QWidget* buildSidePanel();
    void viewDidLoad();
    void pickImg(const QImage& photo);
    void lengthDrag();
    void angleDrag();
    void widthDrag();
    void dragStep();
    void lengthEndedDragging();
    void angleEndedDragging();
    void widthEndDrag();
    void useWorkingPicture();
    QImage showDisplayPsf(double angle, double width);
    QImage showDisplayPsf() { return showDisplayPsf(m_state.currentAngle, m_state.currentWidth); }
    void redrawPsf();
    void rewriteSettingsLabel() { showSettings(m_jobs.settingsText()); }
    void scheduleAfter(double seconds, void (jobs::RestorationJobs::*job)());
    void setDimmed(QWidget* control, bool dimmed);
    void showFirstStartHelp();
    void buildOverlay(QWidget* central);
    void applyPick();
    void restoreAfterAspectChange();

    jobs::ControllerState m_state;
    jobs::RestorationJobs m_jobs;
    QSettings& m_settings;
    FileChooser m_openChooser;
    FileChooser m_saveChooser;
    MessageSink m_messageSink;
    std::unique_ptr<HowToViewC> m_helpController;
    std::unique_ptr<AutoViewController> m_loadingController;
    std::function<void()> m_galleryTerminator;
    autosearch::AutoRun m_autoRun;
    QTimer m_aspectSettled; ///< the full preview after the Fixed size button was left alone

    // Outlets, under the names the rest of the program knows them by.
    QLabel* maintitle = nullptr;
    FloatSlider* muSlider = nullptr;
    FloatSlider* psfCountD = nullptr;
    FloatSlider* psfAngle = nullptr;
    FloatSlider* anglewidth = nullptr;
    ImageView* img01 = nullptr;
    ImageView* psfPreview = nullptr;
    ImageView* spectrumPreview = nullptr;
    QPushButton* movedSw = nullptr;
    QPushButton* ofSw = nullptr;
    QPushButton* saveBtn = nullptr;
    QPushButton* rgbBtn = nullptr;
    QPushButton* autobtn = nullptr;
    QPushButton* openBtn = nullptr;
    QPushButton* aspectBtn = nullptr;
    QPushButton* cancelBtn = nullptr;
    QLabel* settingInfo = nullptr;
    QLabel* _loadLabelNew = nullptr;
    QProgressBar* _pBar = nullptr;
    QWidget* neCont = nullptr;
};

} // namespace clarovi::app
