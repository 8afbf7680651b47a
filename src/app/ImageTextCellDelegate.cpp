// Drawing of the outline's icon-and-text rows on TLImageTextCell's layout.
#include "ImageTextCellDelegate.h"

#include "BinOutlineModel.h"

#include <QApplication>
#include <QFontMetrics>
#include <QIcon>
#include <QLineEdit>
#include <QPainter>

#include <cmath>

namespace {

TLCellRect cellRect(const QRect &rect)
{
    return {double(rect.x()), double(rect.y()), double(rect.width()), double(rect.height())};
}

QRect qtRect(const TLCellRect &rect)
{
    return QRect(int(std::lround(rect.x)), int(std::lround(rect.y)), int(std::lround(rect.width)),
                 int(std::lround(rect.height)));
}

QFont subtitleFont(const QFont &font)
{
    QFont small = font;
    small.setPointSizeF(std::max(1.0, font.pointSizeF() - 2.0));
    return small;
}

} // namespace

ImageTextCellDelegate::ImageTextCellDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{
}

TLImageTextCell ImageTextCellDelegate::cellForIndex(const QModelIndex &index)
{
    TLImageTextCell cell;
    if (!index.data(Qt::DecorationRole).value<QIcon>().isNull())
        cell.setImage(TLCellSize{double(iconSide), double(iconSide)});
    cell.setSubtitle(index.data(BinOutlineModel::subtitleRole).toString().toStdString());
    return cell;
}

void ImageTextCellDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                  const QModelIndex &index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    const QWidget *widget = item.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    // The selection and hover background span the whole row, icon included.
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &item, painter, widget);

    const TLImageTextCell cell = cellForIndex(index);
    // Qt draws an image from its top-left corner in a y-down view: the
    // upright placement, which puts it where the flipped one would.
    const TLImageTextCellDrawing drawing = cell.drawWithFrame(cellRect(item.rect), false);
    if (drawing.imageRect) {
        const QIcon::Mode mode = (item.state & QStyle::State_Selected) ? QIcon::Selected : QIcon::Normal;
        item.icon.paint(painter, qtRect(*drawing.imageRect), Qt::AlignCenter, mode);
    }

    const QRect titleRect = qtRect(drawing.titleFrame);
    const QPalette::ColorRole textRole =
        (item.state & QStyle::State_Selected) ? QPalette::HighlightedText : QPalette::Text;
    painter->save();
    painter->setPen(item.palette.color(textRole));
    painter->setFont(item.font);
    const QString title = item.fontMetrics.elidedText(item.text, Qt::ElideRight, titleRect.width());
    painter->drawText(titleRect, int(Qt::AlignLeft | Qt::AlignVCenter) | int(Qt::TextSingleLine), title);

    const QFont small = subtitleFont(item.font);
    const QFontMetrics smallMetrics(small);
    const QString subtitleText = QString::fromStdString(cell.subtitle());
    const auto subtitle = cell.subtitleForFrame(
        drawing.titleFrame,
        TLCellSize{double(smallMetrics.horizontalAdvance(subtitleText)), double(smallMetrics.height())});
    if (subtitle) {
        const TLCellColor color = cell.subtitleColor();
        painter->setPen(QColor::fromRgbF(float(color.red), float(color.green), float(color.blue),
                                         float(color.alpha)));
        painter->setFont(small);
        painter->drawText(QPointF(subtitle->x, subtitle->y + smallMetrics.ascent()),
                          QString::fromStdString(subtitle->text));
    }
    painter->restore();
}

QSize ImageTextCellDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    const QSize text = item.fontMetrics.size(Qt::TextSingleLine, item.text);
    const TLCellSize size =
        cellForIndex(index).cellSize({double(text.width()), double(std::max(text.height(), iconSide + 2))});
    return QSize(int(std::ceil(size.width)), int(std::ceil(size.height)));
}

void ImageTextCellDelegate::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                                 const QModelIndex &index) const
{
    editor->setGeometry(qtRect(cellForIndex(index).editWithFrame(cellRect(option.rect))));
}

QWidget *ImageTextCellDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                                             const QModelIndex &index) const
{
    QWidget *editor = QStyledItemDelegate::createEditor(parent, option, index);
    if (auto *line = qobject_cast<QLineEdit *>(editor))
        connect(line, &QLineEdit::textEdited, this, &ImageTextCellDelegate::nameEdited);
    return editor;
}
