// The item delegate that draws outline rows as an icon beside the name.
#pragma once

#include "TLImageTextCell.h"

#include <QStyledItemDelegate>

// Draws a row with TLImageTextCell's geometry: the icon (16 by 16) in a
// slice at the left edge, the name truncated at the tail in the rest, and a
// row's subtitle (BinOutlineModel::subtitleRole), when it has one, in the
// small font along the bottom. The in-place editor covers the name only.
class ImageTextCellDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    // The side of a row's icon, in device-independent pixels.
    static constexpr int iconSide = 16;

    explicit ImageTextCellDelegate(QObject *parent = nullptr);

    // The cell of a row: its icon's size (none for a row without an icon)
    // and its subtitle.
    static TLImageTextCell cellForIndex(const QModelIndex &index);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    // The text's size widened by the icon and its margin.
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    // A line editor that reports every edit through nameEdited().
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    // Places the editor right of the icon slice.
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;

signals:
    // The in-place editor's text changed as the user typed.
    void nameEdited(const QString &text) const;
};
