#include "StatusTableCell.h"

#include "FileTableModel.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace tw {

StatusTableCell::StatusTableCell(QObject* parent)
    : QStyledItemDelegate(parent) {}

std::optional<QColor> StatusTableCell::badgeColor(const QString& gitStatus) {
    if (gitStatus == u"D")
        return QColor(246, 124, 121);
    if (gitStatus == u"A")
        return QColor(142, 203, 119);
    if (gitStatus == u"M")
        return QColor(105, 202, 240);
    if (gitStatus == u"-") {
        QColor faint(Qt::black);
        faint.setAlphaF(0.1f);
        return faint;
    }
    return std::nullopt;
}

namespace {

double luminance(const QColor& color) {
    auto channel = [](double value) {
        return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

} // namespace

double StatusTableCell::contrastRatio(const QColor& a, const QColor& b) {
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor StatusTableCell::composited(const QColor& over, const QColor& background) {
    const double alpha = over.alphaF();
    return QColor::fromRgbF(static_cast<float>(over.redF() * alpha + background.redF() * (1 - alpha)),
                            static_cast<float>(over.greenF() * alpha + background.greenF() * (1 - alpha)),
                            static_cast<float>(over.blueF() * alpha + background.blueF() * (1 - alpha)));
}

QColor StatusTableCell::letterColor(const QString& gitStatus, const QColor& background) {
    const QColor fill = composited(badgeColor(gitStatus).value_or(background), background);
    const QColor black(Qt::black);
    const QColor white(Qt::white);
    return contrastRatio(black, fill) >= contrastRatio(white, fill) ? black : white;
}

void StatusTableCell::paintBadge(QPainter* painter, const QRectF& bounds,
                                 const std::optional<QString>& gitStatus) {
    QBrush fill = painter->brush();
    if (gitStatus) {
        const std::optional<QColor> colour = badgeColor(*gitStatus);
        if (!colour)
            return;
        fill = QBrush(*colour);
    }
    QPainterPath badge;
    badge.addRoundedRect(bounds, cornerRadius, cornerRadius);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, true);
    painter->fillPath(badge, fill);
    painter->restore();
}

void StatusTableCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    // The selection background and focus frame as the style draws them,
    // without the text: the badge carries the letter.
    opt.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const QVariant value = index.data(FileTableModel::GitStatusRole);
    const std::optional<QString> gitStatus =
        value.isValid() ? std::optional<QString>(value.toString()) : std::nullopt;
    const QFontMetrics metrics(option.font);
    const qreal side = std::min<qreal>(option.rect.height() - 4, metrics.height() + 2);
    const QRectF badge(option.rect.center().x() - side / 2 + 0.5, option.rect.center().y() - side / 2 + 0.5,
                       side, side);
    painter->save();
    painter->setBrush(Qt::NoBrush);
    paintBadge(painter, badge, gitStatus);
    if (gitStatus && badgeColor(*gitStatus)) {
        QFont bold = option.font;
        bold.setBold(true);
        painter->setFont(bold);
        const bool selected = option.state & QStyle::State_Selected;
        const QColor background = option.palette.color(selected ? QPalette::Highlight : QPalette::Base);
        painter->setPen(letterColor(*gitStatus, background));
        painter->drawText(badge, Qt::AlignCenter, *gitStatus);
    }
    painter->restore();
}

QSize StatusTableCell::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    Q_UNUSED(index);
    const QFontMetrics metrics(option.font);
    return QSize(metrics.height() + 10, metrics.height() + 6);
}

} // namespace tw
