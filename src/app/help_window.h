#pragma once

#include <QString>
#include <QWidget>

namespace clarovi::app {

/// The help text: what the program does, control by control, with its shortcuts (HTML).
QString helpHtml();

/// The help window: the help text, light on dark grey, in a scroll area, and a Close button; Esc
/// and the platform's Close keys (Ctrl+W) close it too. It opens on the first start and from the
/// Help menu, no larger than the screen; closing it leaves the main window running.
///
/// It is always a window of its own, never modal. Given an owner, the window manager keeps it above
/// the owner (it is the owner's transient), and the owner deletes it.
class HowToViewC : public QWidget {
    Q_OBJECT
  public:
    explicit HowToViewC(QWidget* owner = nullptr);

    /// Shows the window above its owner and gives it the focus. While the owner is not on screen
    /// yet, this happens as soon as the owner appears, so that the owner does not cover it.
    void showInFront();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void viewDidLoad();
    void fitToScreen();
    QWidget* closeRow();
};

} // namespace clarovi::app
