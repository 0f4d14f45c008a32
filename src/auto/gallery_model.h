#pragma once

#include "data.h"

#include <QAbstractListModel>

#include <vector>

namespace clarovi::autosearch {

/// The results of the latest search as a list: the thumbnail as the decoration, its label as the
/// text ("Ø %.1f" with a disk's diameter, "%.1f ∠ %.1f°" with a streak's length and angle, then
/// "score %.2f"), the score again as the tooltip, and whether it scored best. In search order, or
/// best first.
class GalleryModel : public QAbstractListModel {
    Q_OBJECT
  public:
    /// true for the best-scoring result (Qt::UserRole).
    static constexpr int kBestRole = Qt::UserRole;

    /// Takes the results as Data holds them now.
    explicit GalleryModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    static QString labelOf(const AutoResult& result);
    const AutoResult& result(int row) const { return m_results.at(m_order.at(size_t(row))); }
    /// The row of the best-scoring result; -1 without results.
    int bestRow() const;
    /// Best score first (ties in search order), or back to search order.
    void sortByScore(bool sorted);

  private:
    std::vector<AutoResult> m_results; // shares the pictures with Data
    std::vector<size_t> m_order;       // the result shown in each row
    size_t m_best = 0;
};

} // namespace clarovi::autosearch
