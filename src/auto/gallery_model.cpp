#include "gallery_model.h"

#include <algorithm>
#include <numeric>

namespace clarovi::autosearch {

GalleryModel::GalleryModel(QObject* parent)
    : QAbstractListModel(parent), m_results(Data::getInstance().arrayOfData),
      m_order(m_results.size()) {
    std::iota(m_order.begin(), m_order.end(), size_t{0});
    const auto best = std::max_element(
        m_results.begin(), m_results.end(),
        [](const AutoResult& a, const AutoResult& b) { return a.score < b.score; });
    m_best = size_t(best - m_results.begin());
}

int GalleryModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_results.size());
}

QString GalleryModel::labelOf(const AutoResult& result) {
    const QString score = QString::asprintf("   score %.2f", result.score);
    if (result.blur.kind == engine::BlurKind::OutOfFocus)
        return QString::asprintf("Ø %.1f", result.blur.length) + score;
    return QString::asprintf("%.1f ∠ %.1f°", result.blur.length, result.blur.angle) + score;
}

int GalleryModel::bestRow() const {
    const auto row = std::find(m_order.begin(), m_order.end(), m_best);
    return row == m_order.end() ? -1 : int(row - m_order.begin());
}

void GalleryModel::sortByScore(bool sorted) {
    beginResetModel();
    std::iota(m_order.begin(), m_order.end(), size_t{0});
    if (sorted)
        std::stable_sort(m_order.begin(), m_order.end(), [this](size_t a, size_t b) {
            return m_results[a].score > m_results[b].score;
        });
    endResetModel();
}

QVariant GalleryModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const AutoResult& item = result(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return labelOf(item);
    case Qt::DecorationRole:
        return item.thumbnail;
    case Qt::ToolTipRole:
        return tr("Score %1: higher is sharper with less ringing").arg(item.score, 0, 'f', 3);
    case kBestRole:
        return m_order.at(size_t(index.row())) == m_best;
    default:
        return {};
    }
}

} // namespace clarovi::autosearch
