#pragma once

#include "auto/gallery_model.h"

#include <QStyledItemDelegate>
#include <QWidget>

class QListView;

namespace clarovi::app {

/// Paints one gallery tile: the thumbnail scaled to fit with its aspect kept, its white label
/// below, on dark grey with a 2-pixel dark grey border.
class LabelItem : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

  private:
    static void markBest(QPainter* painter, const QRect& tile);

    mutable QSet<int> m_made; // tiles painted at least once
};

/// The results gallery: every thumbnail of the latest search with its label and score, opened on
/// the best-scoring one, which is marked and chosen; "Sort by score" puts the best first. A
/// click chooses a tile; a double click, Enter or "Use this setting" picks the chosen one and
/// closes the gallery. "Keep current settings", Escape or closing the window in any other way
/// keeps the settings the window had.
class AutoViewController : public QWidget {
    Q_OBJECT
  public:
    explicit AutoViewController(QWidget* parent = nullptr);

  signals:
    /// The chosen tile's setting is in Data, waiting to be applied.
    void picked();
    void keepCurrentSettings();

  protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

  private:
    void fitToScreen(QSize wanted);
    /// Makes the best-scoring tile the current one and scrolls it to the middle of the view.
    void showBest();
    void pick(const QModelIndex& index);

    autosearch::GalleryModel m_model;
    QListView* m_colView = nullptr;
    bool m_pickMade = false;
    bool m_shownOnce = false;
};

} // namespace clarovi::app
