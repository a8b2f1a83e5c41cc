#include "FileSortFilterModel.h"

#include "FileTableModel.h"

namespace tw {

FileSortFilterModel::FileSortFilterModel(QObject* parent)
    : QSortFilterProxyModel(parent) {
    setDynamicSortFilter(true);
    setSortCaseSensitivity(Qt::CaseInsensitive);
}

void FileSortFilterModel::setFilterText(const QString& text) {
    const QString trimmed = text.trimmed();
    if (trimmed == m_filter)
        return;
    m_filter = trimmed;
    invalidateFilter();
}

double FileSortFilterModel::statusRank(const QString& status) {
    const QString text = status.trimmed();
    if (text.isEmpty())
        return 0;
    if (text == u"ERROR")
        return 200;
    QString number = text;
    number.remove(QLatin1Char('%'));
    bool ok = false;
    const double percent = number.trimmed().toDouble(&ok);
    if (!ok)
        return 150;
    return percent >= 100 ? 101.5 : 1 + percent;
}

bool FileSortFilterModel::lessThan(const QModelIndex& left, const QModelIndex& right) const {
    switch (left.column()) {
    case FileTableModel::UploadColumn:
        return left.data(Qt::CheckStateRole).toInt() < right.data(Qt::CheckStateRole).toInt();
    case FileTableModel::ChangeColumn: {
        const QString a = left.data(FileTableModel::GitStatusRole).toString();
        const QString b = right.data(FileTableModel::GitStatusRole).toString();
        if (a != b)
            return a < b;
        break;
    }
    case FileTableModel::StatusColumn: {
        const double a = statusRank(left.data(Qt::DisplayRole).toString());
        const double b = statusRank(right.data(Qt::DisplayRole).toString());
        if (a != b)
            return a < b;
        break;
    }
    default:
        break;
    }
    // Ties, and the name column: by path, as people read them.
    return QString::localeAwareCompare(left.data(FileTableModel::PathRole).toString(),
                                       right.data(FileTableModel::PathRole).toString()) < 0;
}

bool FileSortFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
    if (m_filter.isEmpty())
        return true;
    const QModelIndex cell = sourceModel()->index(sourceRow, FileTableModel::NameColumn, sourceParent);
    return cell.data(FileTableModel::PathRole).toString().contains(m_filter, Qt::CaseInsensitive);
}

} // namespace tw
