#pragma once

#include "auto/auto_run.h"
#include "export_dialog.h"
#include "image_view.h"
#include "jobs/activity_board.h"
#include "jobs/blur_estimation.h"
#include "jobs/control_sequences.h"
#include "jobs/controller_state.h"
#include "jobs/export_run.h"
#include "jobs/restoration_jobs.h"
#include "jobs/window_port.h"
#include "recent_files.h"
#include "side_panel.h"

#include <QMainWindow>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class QLabel;
class QMenu;
class QProgressDialog;
class QSettings;

namespace clarovi::app {

class AutoOverlay;
class GuessOffer;
class AutoViewController;
class HowToViewC;
class SpectrumWindow;

/// The one main window: the result with its zoom and compare, the side panel of controls, the
/// menus and the status bar. Its controls start the control sequences, which reach it back
/// through the WindowPort it implements; an auto run reaches it through the AutoWindowPort. What
/// is running is on its activity board, which the panel, the menus, the status bar and the
/// overlay follow.
class MainWindow : public QMainWindow, public jobs::WindowPort, public autosearch::AutoWindowPort {
    Q_OBJECT
  public:
    /// Asks for a file to open, or a path to save to starting from the proposed one; an empty
    /// string means cancelled.
    using FileChooser = std::function<QString(const QString& proposed)>;
    /// Asks where and how to save the full-size restoration; nothing means cancelled.
    using ExportChooser = std::function<std::optional<ExportChoice>(const ExportChoice& proposed)>;
    /// Tells the user that something failed.
    using MessageSink = std::function<void(const QString&)>;

    /// settings holds the first-start marker, the recent files, the folders, the last mode,
    /// sharpness and colour choice, and the window's geometry; the window does not own it.
    /// thumbnails replaces the automatic search's restoration when given.
    explicit MainWindow(QSettings& settings, autosearch::Restoration thumbnails = {},
                        QWidget* parent = nullptr);
    ~MainWindow() override;

    void setOpenFileChooser(FileChooser chooser) { m_openChooser = std::move(chooser); }
    void setSaveFileChooser(FileChooser chooser) { m_saveChooser = std::move(chooser); }
    void setExportFileChooser(ExportChooser chooser) { m_exportChooser = std::move(chooser); }
    void setMessageSink(MessageSink sink) { m_messageSink = std::move(sink); }

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

    // AutoWindowPort
    void showProgress(double fraction, const QString& text) override;
    void showCv() override;
    void AppearActions() override;
    void showSearchFailure(const QString& why) override;

    // The window's commands, as its menus and buttons give them.
    void pickIt();
    /// Opens the picture at path; a file that cannot be opened is refused with a message and
    /// everything shown stays as it was.
    bool setImageInputForPictureTaker(const QString& path);
    /// Save Preview: writes the picture the view shows, as PNG.
    void SaveImage();
    /// Save As: restores the photograph at its own size and writes it, off the main thread
    /// behind a progress dialog.
    void exportFullSize();
    void showHelp();
    /// Looks for the blur in the opened picture off the main thread; once found, the mode and the
    /// sliders move to it and the preview restores, or the status bar says none was found.
    void estimateBlur(engine::KindWanted wanted);
    void autoBtn();
    /// Asks for an auto run as soon as the next picture is open.
    void automatizateIt() { m_autoRun.automatizateIt(); }

  protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    // main_window.cpp: building, opening, the activity shown.
    void buildStatusBar();
    void connectPanel();
    void connectField(SliderField* field, void (jobs::ControlSequences::*handler)(bool));
    void settingEdited();
    void showActivity();
    void showFirstStartHelp();
    jobs::Setting startSetting() const;
    void rememberSetting() const;
    void setComparing(bool comparing);
    void rememberWindow();
    void showOpenedFile(const QString& path, const QSize& originalSize);
    void offerPreviousSetting();
    void showNote(const QString& text);
    // main_window_menus.cpp: the menus and their actions.
    void buildMenus();
    QMenu* buildFileMenu();
    void buildEditMenu();
    void buildPictureMenu();
    void buildViewMenu();
    void rebuildRecentMenu();
    // main_window_jobs.cpp: the estimate, the search and the export.
    void connectJobs();
    void takeEstimate(const engine::BlurEstimate& estimate);
    void offerGuess(const engine::BlurEstimate& estimate);
    void tryGuess();
    void searchAroundGuess();
    /// Makes the part of the photograph inside inPhoto (its pixels) the one the estimate and the
    /// search look at, and estimates its blur; an empty one, the whole photograph.
    void markRegion(const QRectF& inPhoto);
    void endEstimate();
    void applyPick();
    void startExport(const jobs::ExportRequest& request);
    void finishExport(const jobs::ExportResult& result, const QString& target);
    void showSpectrumWindow();
    /// File ▸ Load PSF…: a kernel from a grey picture, restored with as a shake.
    void loadPsf();
    /// File ▸ Save PSF…: the current blur's kernel in working pixels, as a grey PNG.
    void savePsf();
    QString proposedPath(const char* folderKey, const QString& suffix) const;

    QSettings& m_settings;
    jobs::ControllerState m_state;
    jobs::ActivityBoard m_board;
    jobs::RestorationJobs m_jobs;
    jobs::ControlSequences m_sequences;
    RecentFiles m_recent;
    FileChooser m_openChooser;
    FileChooser m_saveChooser;
    ExportChooser m_exportChooser;
    MessageSink m_messageSink;
    autosearch::AutoRun m_autoRun;
    jobs::BlurEstimation m_estimation;
    jobs::ExportRun m_export;
    qint64 m_estimatedPicture = 0; ///< the cache key of the picture the running estimate reads
    cv::Rect m_estimatedRegion;    ///< the region it reads, empty for the whole picture
    /// The estimate started by opening a photograph, applied when it is clear and the controls
    /// have not been touched since.
    bool m_openingEstimate = false;
    QPointer<HowToViewC> m_help;
    QPointer<AutoViewController> m_gallery;
    QPointer<SpectrumWindow> m_spectrumWindow;
    QPointer<QProgressDialog> m_exportProgress;
    /// A typed or keyed change restores once the keys have been left alone.
    QTimer m_editSettled;

    SidePanel* m_panel = nullptr;
    ImageView* img01 = nullptr;
    AutoOverlay* m_overlay = nullptr;
    QMenu* m_recentMenu = nullptr;
    QLabel* m_fileLabel = nullptr;
    QLabel* m_zoomLabel = nullptr;
    QLabel* m_jobLabel = nullptr;
    QPushButton* m_previousButton = nullptr;
    GuessOffer* m_guessOffer = nullptr;
    QList<QAction*> m_pictureActions; ///< actions that need a picture and free controls
    QAction* m_estimateAction = nullptr;
    QAction* m_classicAction = nullptr; ///< the classic filter instead of the default one
    QString m_openedPath;
    QPointer<QWidget> m_focusAfterJob;
    QImage m_inputShown; ///< the working picture before restoration
    QImage m_inputGrey;  ///< the same in grey, made when a grey result first needs it
    /// The shake kernel last loaded, estimated or shown, for the Shake switch.
    std::shared_ptr<const cv::Mat> m_shakeKernel;
};

} // namespace clarovi::app
