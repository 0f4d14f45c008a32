#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QScrollArea;

namespace clarovi::app {

/// The fixed help text: 21 paragraphs, each one Helvetica font element, 20 px for the opening
/// line and the titles and 16 px for the body; the centred ones carry align="center" on their
/// font element. Plain ASCII.
QString helpHtml();

/// The help window: the help text, light on dark grey, in a scroll area. It opens on the first
/// start and from the Help menu; closing it leaves the main window running.
class HowToViewC : public QWidget {
    Q_OBJECT
  public:
    explicit HowToViewC(QWidget* parent = nullptr);

    QScrollArea* textV = nullptr; ///< the scroll area that holds the text
    QLabel* txtV = nullptr;       ///< the read-only rich text itself

  private:
    void viewDidLoad();
};

} // namespace clarovi::app
