#pragma once

#include "data.h"

#include <QAbstractListModel>

#include <vector>

namespace clarovi::autosearch {

/// The results of the latest search as a list: the thumbnail as the decoration and
/// "Ø %.1f ∠ %.1f" (label length, angle) as the text of each item.
class GalleryModel : public QAbstractListModel {
    Q_OBJECT
  public:
    /// Takes the results as Data holds them now.
    explicit GalleryModel(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    static QString labelOf(const AutoResult& result);
    const AutoResult& result(int row) const { return m_results.at(size_t(row)); }

  private:
    std::vector<AutoResult> m_results; // shares the pictures with Data
};

} // namespace clarovi::autosearch
