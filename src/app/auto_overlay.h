#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace clarovi::app {

/// What covers the window while an auto search runs: its progress, the remaining time or the
/// wait for a pick, and Cancel.
class AutoOverlay : public QWidget {
    Q_OBJECT
  public:
    explicit AutoOverlay(QWidget* parent);

    /// fraction from 0 to 1.
    void showProgress(double fraction);
    void showText(const QString& text);
    /// Covers its parent entirely, above every other control, or goes.
    void cover(bool shown);

  signals:
    void cancelRequested();

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QProgressBar* _pBar;
    QLabel* _loadLabelNew;
    QPushButton* cancelBtn;
};

} // namespace clarovi::app
