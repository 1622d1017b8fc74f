#pragma once
// Paints one grid cell: the upright thumbnail (or the file-kind tile until one exists), the name,
// the badge top-left, the flag box top-right, stars, colour label (tinted frame and dot),
// rotation, the sharpness mark and the "new" dot. Subfolders are folder tiles.
// Reads the Photo records straight from the GridModel: painting 20,000 cells must not go through
// a dozen QVariant lookups each.
#include <QStyledItemDelegate>

class GridDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    explicit GridDelegate(QObject *parent = nullptr);

    // Long side of the thumbnail area, in device-independent pixels.
    void setThumbSize(int px) { _thumb = px; }
    int thumbSize() const { return _thumb; }

    // Cell geometry, from the item's rectangle in the view (used for hit tests too).
    QSize cellSize() const;
    QRect cellRect(const QRect &itemRect) const;
    QRect cardRect(const QRect &itemRect) const;
    QRect thumbRect(const QRect &itemRect) const;
    QRect flagRect(const QRect &itemRect) const;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    void paintFolderCell(QPainter &p, const QStyleOptionViewItem &option, const QModelIndex &index) const;
    int _thumb = 168;
};
