#pragma once

#include "auto/auto_run.h"
#include "image_view.h"
#include "jobs/blur_estimation.h"
#include "jobs/control_sequences.h"
#include "jobs/controller_state.h"
#include "jobs/full_size_export.h"
#include "jobs/restoration_jobs.h"
#include "jobs/window_port.h"
#include "recent_files.h"
#include "side_panel.h"

#include <QFutureWatcher>
#include <QMainWindow>
#include <QPointer>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

class QLabel;
class QMenu;
class QProgressDialog;
class QSettings;

namespace clarovi::app {

class AutoOverlay;
class AutoViewController;
class HowToViewC;

/// The one main window: the result with its zoom and compare, the side panel of controls, the
/// menus and the status bar. Its controls start the control sequences, which reach it back
/// through the WindowPort it implements; an auto run reaches it through the AutoWindowPort.
class MainWindow : public QMainWindow, public jobs::WindowPort, public autosearch::AutoWindowPort {
    Q_OBJECT
  public:
    /// Asks for a file to open, or a path to save to starting from the proposed one; an empty
    /// string means cancelled.
    using FileChooser = std::function<QString(const QString& proposed)>;
    /// Tells the user that something failed.
    using MessageSink = std::function<void(const QString&)>;

    /// settings holds the first-start marker, the recent files, the folders and the window's
    /// geometry; the window does not own it.
    explicit MainWindow(QSettings& settings, QWidget* parent = nullptr);
    ~MainWindow() override;

    void setOpenFileChooser(FileChooser chooser) { m_openChooser = std::move(chooser); }
    void setSaveFileChooser(FileChooser chooser) { m_saveChooser = std::move(chooser); }
    void setExportFileChooser(FileChooser chooser) { m_exportChooser = std::move(chooser); }
    void setMessageSink(MessageSink sink) { m_messageSink = std::move(sink); }
    /// What closing the gallery without a pick does; quits the application unless replaced.
    void setGalleryTerminator(std::function<void()> terminate) {
        m_galleryTerminator = std::move(terminate);
    }

    jobs::ControllerState& state() { return m_state; }
    jobs::RestorationJobs& restorationJobs() { return m_jobs; }
    jobs::ControlSequences& sequences() { return m_sequences; }
    HowToViewC* helpWindow() const { return m_helpController.get(); }
    AutoViewController* gallery() const { return m_loadingController.get(); }
    autosearch::AutoRun& autoRun() { return m_autoRun; }
    ImageView* view() const { return img01; }
    const RecentFiles& recentFiles() const { return m_recent; }
    /// The picture the result view shows; what Save writes.
    const QImage& shownImage() const { return img01->image(); }

    // WindowPort
    jobs::Setting setting() const override;
    void showSetting(const jobs::Setting& setting) override;
    bool sliderHeld() const override { return m_panel->sliderHeld(); }
    bool showsResult() const override { return !img01->image().isNull(); }
    void lockEverything() override;
    void unlockEverything() override;
    void showResult(const QImage& picture) override;
    void showSettings(const QString& text) override;
    void showPsf(const jobs::PsfPicture& psf) override;
    void showSpectrum(const jobs::ShownSpectrum& spectrum) override;
    void reportError(const QString& message) override;

    // Opening and saving.
    void pickIt();
    /// Opens the picture at path; a file that cannot be opened is refused with a message and
    /// everything shown stays as it was.
    bool setImageInputForPictureTaker(const QString& path);
    void SaveImage();
    /// Restores the opened photograph at its own size and writes it, off the main thread behind
    /// a progress dialog; the controls stay locked meanwhile.
    void exportFullSize();
    bool exporting() const { return m_exportWatcher.isRunning(); }
    void showHelp();

    /// Looks for the blur in the opened picture off the main thread; once found, the mode and the
    /// sliders move to it and the preview restores, or the status bar says none was found.
    void estimateBlur(engine::KindWanted wanted);
    bool estimating() const { return m_estimation.running(); }
    /// The spectrum enlarged in a window of its own, with the zeros of the sliders' blur.
    void showSpectrumWindow();
    SpectrumPreview* spectrumWindowView() const { return m_spectrumWindowView; }

    void autoBtn() { m_autoRun.MainWrapper(setting()); }
    /// Asks for an auto run as soon as the next picture is open.
    void automatizateIt() { m_autoRun.automatizateIt(); }

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
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void buildMenus();
    void buildStatusBar();
    void connectPanel();
    void connectField(SliderField* field, void (jobs::ControlSequences::*handler)(bool));
    void settingEdited();
    void viewDidLoad();
    void showFirstStartHelp();
    void movedSwitch(bool motion);
    void muSliderChange();
    void applyPick();
    void setComparing(bool comparing);
    void rememberWindow();
    void showOpenedFile(const QString& path, const QSize& originalSize);
    void rebuildRecentMenu();
    QString proposedSavePath() const;
    void startExport(const jobs::ExportRequest& request);
    void finishExport(const QString& target);
    void takeEstimate(const engine::BlurEstimate& estimate);
    void endEstimate();
    void makeSpectrumWindow();

    jobs::ControllerState m_state;
    jobs::RestorationJobs m_jobs;
    jobs::ControlSequences m_sequences;
    QSettings& m_settings;
    RecentFiles m_recent;
    FileChooser m_openChooser;
    FileChooser m_saveChooser;
    FileChooser m_exportChooser;
    MessageSink m_messageSink;
    std::unique_ptr<HowToViewC> m_helpController;
    std::unique_ptr<AutoViewController> m_loadingController;
    std::function<void()> m_galleryTerminator;
    autosearch::AutoRun m_autoRun;
    jobs::BlurEstimation m_estimation;
    qint64 m_estimatedPicture = 0; ///< the cache key of the picture the running estimate reads
    QPointer<QWidget> m_spectrumWindow;
    QPointer<SpectrumPreview> m_spectrumWindowView;
    /// A typed or keyed change restores once the keys have been left alone.
    QTimer m_editSettled;
    QFutureWatcher<jobs::ExportResult> m_exportWatcher;
    QPointer<QProgressDialog> m_exportProgress;
    std::shared_ptr<std::atomic<bool>> m_stopExport; ///< set to stop the running export

    SidePanel* m_panel = nullptr;
    ImageView* img01 = nullptr;
    AutoOverlay* m_overlay = nullptr;
    QMenu* m_recentMenu = nullptr;
    QLabel* m_fileLabel = nullptr;
    QLabel* m_zoomLabel = nullptr;
    QLabel* m_jobLabel = nullptr;
    QString m_openedPath;
    QPointer<QWidget> m_focusAfterJob;
    QImage m_inputShown; ///< the working picture before restoration, at display size
    QImage m_inputGrey;  ///< the same in grey, made when a grey result first needs it
};

} // namespace clarovi::app
