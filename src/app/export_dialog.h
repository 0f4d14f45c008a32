#pragma once

#include "files/export_file.h"

#include <QDialog>

#include <optional>

class QComboBox;
class QLineEdit;
class QSpinBox;

namespace clarovi::app {

/// Where and how the full-size restoration is written.
struct ExportChoice {
    QString path;
    files::ExportOptions options;
};

/// Save As: the file's name and folder (with a Browse… button), its format, the JPEG quality and
/// the bits per channel. The format follows the name's extension and the other way round.
class ExportDialog : public QDialog {
    Q_OBJECT
  public:
    ExportDialog(const ExportChoice& proposed, QWidget* parent = nullptr);
    ExportChoice choice() const;

  private:
    void browse();
    void formatChosen();
    void nameEdited();

    QLineEdit* m_path;
    QComboBox* m_format;
    QSpinBox* m_quality;
    QComboBox* m_depth;
};

} // namespace clarovi::app
