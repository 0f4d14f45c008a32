#include "export_dialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace clarovi::app {

namespace {

// The formats offered and the extension each writes; the index is the combo box's.
struct Format {
    const char* name;
    const char* extension;
};
constexpr Format kFormats[] = {{"PNG", "png"}, {"TIFF", "tif"}, {"JPEG", "jpg"}};
constexpr int kJpeg = 2;

int formatOfSuffix(const QString& suffix) {
    const QString lower = suffix.toLower();
    if (lower == QLatin1String("tif") || lower == QLatin1String("tiff"))
        return 1;
    if (lower == QLatin1String("jpg") || lower == QLatin1String("jpeg"))
        return kJpeg;
    return lower == QLatin1String("png") ? 0 : -1;
}

} // namespace

ExportDialog::ExportDialog(const ExportChoice& proposed, QWidget* parent)
    : QDialog(parent), m_path(new QLineEdit(proposed.path, this)), m_format(new QComboBox(this)),
      m_quality(new QSpinBox(this)), m_depth(new QComboBox(this)) {
    setObjectName(QStringLiteral("exportDialog"));
    setWindowTitle(tr("Save the restored photograph"));
    m_path->setObjectName(QStringLiteral("exportPath"));
    m_path->setMinimumWidth(420);
    for (const Format& format : kFormats)
        m_format->addItem(QString::fromLatin1(format.name));
    m_format->setObjectName(QStringLiteral("exportFormat"));
    m_quality->setObjectName(QStringLiteral("exportQuality"));
    m_quality->setRange(1, 100);
    m_quality->setValue(proposed.options.jpegQuality);
    m_quality->setSuffix(QStringLiteral(" %"));
    m_depth->setObjectName(QStringLiteral("exportDepth"));
    m_depth->addItem(tr("As the photograph"), 0);
    m_depth->addItem(tr("8 bits per channel"), 8);
    m_depth->addItem(tr("16 bits per channel"), 16);
    m_depth->setCurrentIndex(std::max(0, m_depth->findData(proposed.options.depth)));

    auto* browse = new QPushButton(tr("Browse…"), this);
    connect(browse, &QPushButton::clicked, this, &ExportDialog::browse);
    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(m_path, 1);
    pathRow->addWidget(browse);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* form = new QFormLayout(this);
    form->addRow(tr("File:"), pathRow);
    form->addRow(tr("Format:"), m_format);
    form->addRow(tr("JPEG quality:"), m_quality);
    form->addRow(tr("Depth:"), m_depth);
    form->addRow(buttons);

    m_format->setCurrentIndex(std::max(0, formatOfSuffix(QFileInfo(proposed.path).suffix())));
    connect(m_format, &QComboBox::currentIndexChanged, this, &ExportDialog::formatChosen);
    connect(m_path, &QLineEdit::textEdited, this, &ExportDialog::nameEdited);
    formatChosen();
}

// The name's extension becomes the chosen format's; JPEG has a quality and 8 bits only.
void ExportDialog::formatChosen() {
    const Format& format = kFormats[m_format->currentIndex()];
    const QFileInfo file(m_path->text());
    if (formatOfSuffix(file.suffix()) != m_format->currentIndex())
        m_path->setText(QDir(file.path())
                            .filePath(file.completeBaseName() + QLatin1Char('.') +
                                      QLatin1String(format.extension)));
    const bool jpeg = m_format->currentIndex() == kJpeg;
    m_quality->setEnabled(jpeg);
    m_depth->setEnabled(!jpeg);
}

void ExportDialog::nameEdited() {
    const int format = formatOfSuffix(QFileInfo(m_path->text()).suffix());
    if (format >= 0 && format != m_format->currentIndex()) {
        const QSignalBlocker quiet(m_format);
        m_format->setCurrentIndex(format);
        m_quality->setEnabled(format == kJpeg);
        m_depth->setEnabled(format != kJpeg);
    }
}

void ExportDialog::browse() {
    const QString chosen = QFileDialog::getSaveFileName(
        this, windowTitle(), m_path->text(),
        tr("PNG picture (*.png);;TIFF picture (*.tif *.tiff);;JPEG picture (*.jpg *.jpeg)"));
    if (chosen.isEmpty())
        return;
    m_path->setText(chosen);
    nameEdited();
}

ExportChoice ExportDialog::choice() const {
    return {m_path->text(), {m_depth->currentData().toInt(), m_quality->value()}};
}

} // namespace clarovi::app
