#pragma once

#include <QStyledItemDelegate>

namespace tw {

// A site in the sidebar: its name, and its host in a smaller, fainter line
// below.
class SiteItemDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit SiteItemDelegate(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace tw
