#pragma once

#include "engine/blur_estimate.h"

#include <QWidget>

class QLabel;
class QPushButton;

namespace clarovi::app {

/// The status bar's offer of an unsure estimate: what the blur may be, how sure the estimate is,
/// and a button each to try it on the sliders or to search around it.
class GuessOffer : public QWidget {
    Q_OBJECT
  public:
    explicit GuessOffer(QWidget* parent = nullptr);

    /// Shows the offer of guess; hidden until then.
    void offer(const engine::BlurEstimate& guess);
    /// "Maybe motion, length 46.0 at -7.0° (confidence 0.31)".
    static QString describe(const engine::BlurEstimate& guess);

  signals:
    void tryIt();
    void searchAround();

  private:
    QLabel* m_text;
};

} // namespace clarovi::app
