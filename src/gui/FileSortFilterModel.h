#pragma once

#include <QSortFilterProxyModel>

namespace tw {

// The file table's order and filter over FileTableModel: sorted by check
// mark, change letter, name or transfer status (not sent, by percentage,
// sent, "ERROR" last), filtered by a text anywhere in the path, any case.
// Rows of the source stay the rows the deploy controller knows.
class FileSortFilterModel : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit FileSortFilterModel(QObject* parent = nullptr);

    void setFilterText(const QString& text);
    QString filterText() const { return m_filter; }

    // The order of a status text: empty (not sent) 0, a percentage 1 + its
    // value, "100%" 101.5, "ERROR" 200.
    static double statusRank(const QString& status);

protected:
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
    QString m_filter;
};

} // namespace tw
