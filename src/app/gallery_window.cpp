#include "gallery_window.h"

#include "auto/auto_search.h"
#include "engine/log.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QListView>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>

#include <utility>

namespace clarovi::app {

namespace {
constexpr int kTile = 400;
constexpr int kBorder = 2;
constexpr int kLabelHeight = 28;
constexpr int kBestBorder = 4;
const QColor kDarkGrey(0x55, 0x55, 0x55);
const QColor kBestColour(0xf2, 0xc1, 0x4e);
// Room for the window manager's title bar and borders, which the window's own size leaves out.
const QSize kFrameAllowance(16, 48);
} // namespace

QSize LabelItem::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
    return {kTile, kTile};
}

// The best-scoring tile: a bright frame and a word in its corner.
void LabelItem::markBest(QPainter* painter, const QRect& tile) {
    painter->setPen(QPen(kBestColour, kBestBorder));
    painter->setBrush(Qt::NoBrush);
    const int inset = kBestBorder / 2;
    painter->drawRect(tile.adjusted(inset, inset, -inset, -inset));
    const QString word = QObject::tr("Best score");
    const QRect badge = painter->fontMetrics().boundingRect(word).adjusted(-6, -3, 6, 3);
    const QRect placed = badge.translated(tile.topLeft() - badge.topLeft() +
                                          QPoint(kBestBorder + 4, kBestBorder + 4));
    painter->fillRect(placed, kBestColour);
    painter->setPen(Qt::black);
    painter->drawText(placed, Qt::AlignCenter, word);
}

void LabelItem::paint(QPainter* painter, const QStyleOptionViewItem& option,
                      const QModelIndex& index) const {
    if (!m_made.contains(index.row())) {
        m_made.insert(index.row());
        logLine("print");
    }
    const QRect tile = option.rect;
    painter->save();
    painter->fillRect(tile, kDarkGrey);
    painter->setPen(QPen(kDarkGrey, kBorder));
    painter->drawRect(tile.adjusted(1, 1, -1, -1));

    const QRect imageArea = tile.adjusted(kBorder, kBorder, -kBorder, -kBorder - kLabelHeight);
    const QImage thumbnail = index.data(Qt::DecorationRole).value<QImage>();
    if (!thumbnail.isNull()) {
        QSize fitted = thumbnail.size().scaled(imageArea.size(), Qt::KeepAspectRatio);
        QRect target(QPoint(0, 0), fitted);
        target.moveCenter(imageArea.center());
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(target, thumbnail);
    }
    painter->setPen(Qt::white);
    const QRect labelArea(tile.left(), imageArea.bottom(), tile.width(), kLabelHeight);
    painter->drawText(labelArea, Qt::AlignCenter, index.data(Qt::DisplayRole).toString());
    if (index.data(autosearch::GalleryModel::kBestRole).toBool())
        markBest(painter, tile);
    painter->restore();
}

AutoViewController::AutoViewController(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName(QStringLiteral("loadingWindow"));
    setWindowTitle(tr("Clarovi: pick the best restoration"));
    setAttribute(Qt::WA_StyledBackground);
    setStyleSheet(QStringLiteral("background: #3c3c3c; color: white;"));
    fitToScreen(QSize(3 * (kTile + 1) + 40, 2 * (kTile + 1) + 80));

    m_colView = new QListView(this);
    m_colView->setObjectName(QStringLiteral("colView"));
    m_colView->setViewMode(QListView::IconMode);
    m_colView->setMovement(QListView::Static);
    m_colView->setResizeMode(QListView::Adjust);
    m_colView->setUniformItemSizes(true);
    m_colView->setSpacing(1);
    m_colView->setSelectionMode(QAbstractItemView::SingleSelection);
    m_colView->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_colView->setItemDelegate(new LabelItem(m_colView));
    m_colView->setModel(&m_model);
    connect(m_colView, &QListView::activated, this, &AutoViewController::pick);
    m_colView->setToolTip(tr("Double-click the restoration that looks best (or choose it and "
                             "press Enter): its setting goes to the sliders and is restored"));

    auto* sort = new QCheckBox(tr("Sort by score"), this);
    sort->setObjectName(QStringLiteral("sortByScore"));
    sort->setToolTip(tr("Show the best-scoring restorations first; the score favours sharp edges "
                        "without ringing"));
    connect(sort, &QCheckBox::toggled, this, [this](bool sorted) {
        m_model.sortByScore(sorted);
        showBest();
    });

    auto* keep = new QPushButton(tr("Keep current settings"), this);
    keep->setObjectName(QStringLiteral("keepBtn"));
    keep->setToolTip(tr("Close the gallery and keep the settings you had (Esc)"));
    keep->setShortcut(QKeySequence::Cancel);
    connect(keep, &QPushButton::clicked, this, &QWidget::close);
    auto* use = new QPushButton(tr("Use this setting"), this);
    use->setObjectName(QStringLiteral("pickBtn"));
    use->setToolTip(tr("Apply the chosen restoration's setting to the photograph (Enter)"));
    connect(use, &QPushButton::clicked, this, [this] { pick(m_colView->currentIndex()); });

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(sort);
    buttons->addStretch();
    buttons->addWidget(keep);
    buttons->addWidget(use);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_colView);
    layout->addLayout(buttons);
}

void AutoViewController::showBest() {
    const QModelIndex best = m_model.index(m_model.bestRow());
    if (!best.isValid())
        return;
    m_colView->setCurrentIndex(best);
    m_colView->scrollTo(best, QAbstractItemView::PositionAtCenter);
}

void AutoViewController::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // Laid out only once shown: before that the view cannot tell where the best tile lies.
    if (!std::exchange(m_shownOnce, true))
        QTimer::singleShot(0, this, &AutoViewController::showBest);
}

// Three columns by two rows where the screen has room; on a smaller screen the grid scrolls.
void AutoViewController::fitToScreen(QSize wanted) {
    const QRect available = screen()->availableGeometry();
    resize(wanted.boundedTo(available.size() - kFrameAllowance));
    move(
        QStyle::alignedRect(layoutDirection(), Qt::AlignCenter, size() + kFrameAllowance, available)
            .topLeft());
}

void AutoViewController::pick(const QModelIndex& index) {
    if (!index.isValid())
        return;
    const autosearch::AutoResult& result = m_model.result(index.row());
    autosearch::Data& shared = autosearch::Data::getInstance();
    shared.selected = result.blur;
    shared.toPut = true;
    m_pickMade = true;
    close();
}

// However it closes without a pick, the settings stay as they were.
void AutoViewController::closeEvent(QCloseEvent* event) {
    logLine("TERMINATE");
    event->accept();
    if (m_pickMade)
        emit picked();
    else
        emit keepCurrentSettings();
}

} // namespace clarovi::app
