#include "SiteItemDelegate.h"

#include "SiteListModel.h"

#include <QApplication>
#include <QPainter>

namespace tw {

namespace {

constexpr int padding = 10;

QFont hostFont(const QFont& base) {
    QFont font = base;
    font.setPointSizeF(base.pointSizeF() > 0 ? base.pointSizeF() * 0.85 : 8);
    return font;
}

QFont boldFont(const QFont& base) {
    QFont font = base;
    font.setBold(true);
    return font;
}

QRect textArea(const QRect& row) {
    return row.adjusted(padding + 2, padding / 2, -padding, -padding / 2);
}

} // namespace

QString SiteItemDelegate::shownName(const QString& name, const QFont& font, int rowWidth) {
    return QFontMetrics(boldFont(font))
        .elidedText(name, Qt::ElideRight, textArea(QRect(0, 0, rowWidth, 1)).width());
}

SiteItemDelegate::SiteItemDelegate(QObject* parent)
    : QStyledItemDelegate(parent) {}

void SiteItemDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QString name = opt.text;
    opt.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const bool selected = opt.state & QStyle::State_Selected;
    const QPalette::ColorGroup group =
        opt.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
    const QColor text = opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    QColor faint = text;
    faint.setAlphaF(0.65f);

    const QRect area = textArea(opt.rect);
    const QFont nameFont = boldFont(opt.font);
    const QFontMetrics nameMetrics(nameFont);
    const QFont smaller = hostFont(opt.font);
    const QFontMetrics hostMetrics(smaller);
    const QString host = index.data(SiteListModel::HostRole).toString();

    painter->save();
    painter->setFont(nameFont);
    painter->setPen(text);
    const QRect nameRect(area.left(), area.top(), area.width(), nameMetrics.height());
    painter->drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter,
                      shownName(name, opt.font, opt.rect.width()));
    painter->setFont(smaller);
    painter->setPen(faint);
    const QRect hostRect(area.left(), nameRect.bottom() + 1, area.width(), hostMetrics.height());
    painter->drawText(
        hostRect, Qt::AlignLeft | Qt::AlignVCenter,
        hostMetrics.elidedText(host.isEmpty() ? tr("No host") : host, Qt::ElideMiddle, hostRect.width()));
    painter->restore();
}

QSize SiteItemDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    Q_UNUSED(index);
    const int height = QFontMetrics(boldFont(option.font)).height() +
                       QFontMetrics(hostFont(option.font)).height() + padding + 1;
    return QSize(160, height);
}

} // namespace tw
