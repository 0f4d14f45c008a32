#pragma once

#include "auto/gallery_model.h"

#include <QStyledItemDelegate>
#include <QWidget>

#include <functional>

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

/// The results gallery: every thumbnail of the latest search with its label, opened on the
/// best-scoring one, which is marked; "Sort by score" puts the best first. A click picks that
/// setting and closes the gallery; "Keep current settings" closes it without a pick; closing it
/// any other way without a pick quits the application.
class AutoViewController : public QWidget {
    Q_OBJECT
  public:
    explicit AutoViewController(QWidget* parent = nullptr);

    /// What closing without a pick does; quits the application unless replaced.
    void setTerminator(std::function<void()> terminate) { m_terminate = std::move(terminate); }
    QListView* colView() const { return m_colView; }
    bool pickMade() const { return m_pickMade; }

  signals:
    void keepCurrentSettings();
    /// The gallery has closed, with a pick or without.
    void closed();

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
    bool m_keep = false;
    bool m_shownOnce = false;
    std::function<void()> m_terminate;
};

} // namespace clarovi::app
