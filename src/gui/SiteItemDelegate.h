#pragma once

#include <QStyledItemDelegate>

namespace tw {

// A site in the sidebar: its name, and its host in a smaller, fainter line
// below; both cut to the row, never widening the list.
class SiteItemDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit SiteItemDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // The name as drawn in a row of the width given: cut with an ellipsis
    // when it is too long (the whole name is the row's tool tip).
    static QString shownName(const QString& name, const QFont& font, int rowWidth);
};

} // namespace tw
