#include "gallery_model.h"

namespace clarovi::autosearch {

GalleryModel::GalleryModel(QObject* parent)
    : QAbstractListModel(parent), m_results(Data::getInstance().arrayOfData) {}

int GalleryModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_results.size());
}

QString GalleryModel::labelOf(const AutoResult& result) {
    return QString::asprintf("Ø %.1f ∠ %.1f", double(result.labelLength), double(result.angle));
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
    default:
        return {};
    }
}

} // namespace clarovi::autosearch
