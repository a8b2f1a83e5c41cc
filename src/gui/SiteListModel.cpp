#include "SiteListModel.h"

#include "app/Preferences.h"
#include "model/SiteListActions.h"
#include "model/Sites.h"

#include <QMimeData>

namespace tw {

namespace {

// Sets a flag for the length of a scope.
class Writing {
public:
    explicit Writing(bool& flag)
        : m_flag(flag)
        , m_was(flag) {
        m_flag = true;
    }
    ~Writing() { m_flag = m_was; }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

private:
    bool& m_flag;
    bool m_was;
};

} // namespace

SiteListModel::SiteListModel(QObject* parent)
    : QAbstractListModel(parent) {
    loadFromStore();
    connect(&Preferences::instance(), &Preferences::valueChanged, this, [this](const QString& key) {
        if (key == u"sites" && !m_writing)
            reload();
    });
}

void SiteListModel::loadFromStore() {
    m_sites = Sites().loadAll().value_or(SiteList());
    for (qsizetype i = 0; i < m_sites.size(); ++i) {
        if (m_sites.at(i))
            m_sites.at(i)->siteIndex = i;
    }
}

void SiteListModel::reload() {
    beginResetModel();
    loadFromStore();
    endResetModel();
}

SitePtr SiteListModel::siteAt(int row) const {
    if (row < 0 || row >= m_sites.size())
        return nullptr;
    return m_sites.at(row);
}

int SiteListModel::addSite(const SitePtr& site) {
    const int row = static_cast<int>(m_sites.size());
    beginInsertRows(QModelIndex(), row, row);
    qsizetype stored = row;
    {
        Writing writing(m_writing);
        stored = SiteListActions::add(site);
        loadFromStore();
    }
    endInsertRows();
    return static_cast<int>(stored);
}

std::optional<int> SiteListModel::duplicateSite(int row) {
    if (!siteAt(row))
        return std::nullopt;
    beginInsertRows(QModelIndex(), row + 1, row + 1);
    std::optional<qsizetype> copy;
    {
        Writing writing(m_writing);
        copy = SiteListActions::duplicate(row);
        loadFromStore();
    }
    endInsertRows();
    if (!copy)
        return std::nullopt;
    return static_cast<int>(*copy);
}

bool SiteListModel::removeSite(int row) {
    if (!siteAt(row))
        return false;
    beginRemoveRows(QModelIndex(), row, row);
    bool removed = false;
    {
        Writing writing(m_writing);
        removed = SiteListActions::remove(row);
        loadFromStore();
    }
    endRemoveRows();
    return removed;
}

bool SiteListModel::moveSite(int from, int to) {
    if (!siteAt(from) || !siteAt(to))
        return false;
    if (from == to)
        return true;
    // Qt names the row before which the site lands, counted before the move.
    const int destinationChild = to > from ? to + 1 : to;
    return moveRows(QModelIndex(), from, 1, QModelIndex(), destinationChild);
}

bool SiteListModel::moveRows(const QModelIndex& sourceParent, int sourceRow, int count,
                             const QModelIndex& destinationParent, int destinationChild) {
    if (sourceParent.isValid() || destinationParent.isValid() || count != 1 || !siteAt(sourceRow) ||
        destinationChild < 0 || destinationChild > rowCount())
        return false;
    if (destinationChild == sourceRow || destinationChild == sourceRow + 1)
        return true; // already there
    const int to = destinationChild > sourceRow ? destinationChild - 1 : destinationChild;
    if (!beginMoveRows(QModelIndex(), sourceRow, sourceRow, QModelIndex(), destinationChild))
        return false;
    bool moved = false;
    {
        Writing writing(m_writing);
        moved = SiteListActions::move(sourceRow, to);
        loadFromStore();
    }
    endMoveRows();
    return moved;
}

int SiteListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_sites.size());
}

QVariant SiteListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return QVariant();
    const SitePtr site = siteAt(index.row());
    if (!site)
        return QVariant();
    switch (role) {
    case Qt::DisplayRole: {
        const QString name = site->name.value_or(QString());
        return name.isEmpty() ? tr("Untitled site") : name;
    }
    case Qt::ToolTipRole: {
        const QString host = site->host.value_or(QString());
        return host.isEmpty() ? site->name.value_or(QString())
                              : site->name.value_or(QString()) + QStringLiteral("\n") + host;
    }
    case HostRole:
        return site->host.value_or(QString());
    case SiteIdRole:
        return site->siteId();
    case IsValidRole:
        return site->isValid;
    default:
        return QVariant();
    }
}

Qt::ItemFlags SiteListModel::flags(const QModelIndex& index) const {
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
}

Qt::DropActions SiteListModel::supportedDragActions() const {
    return Qt::MoveAction;
}

Qt::DropActions SiteListModel::supportedDropActions() const {
    return Qt::MoveAction;
}

QStringList SiteListModel::mimeTypes() const {
    return {mimeType()};
}

QMimeData* SiteListModel::mimeData(const QModelIndexList& indexes) const {
    if (indexes.isEmpty() || !indexes.constFirst().isValid())
        return nullptr;
    auto* data = new QMimeData;
    data->setData(mimeType(), QByteArray::number(indexes.constFirst().row()));
    return data;
}

std::optional<int> SiteListModel::draggedRow(const QMimeData* data) const {
    if (!data || !data->hasFormat(mimeType()))
        return std::nullopt;
    bool ok = false;
    const int row = data->data(mimeType()).toInt(&ok);
    if (!ok || !siteAt(row))
        return std::nullopt;
    return row;
}

bool SiteListModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                    const QModelIndex& parent) const {
    Q_UNUSED(row);
    Q_UNUSED(column);
    Q_UNUSED(parent);
    return action == Qt::MoveAction && draggedRow(data).has_value();
}

bool SiteListModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                 const QModelIndex& parent) {
    Q_UNUSED(column);
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    const int from = *draggedRow(data);
    // Between rows: before that row; onto a site: before it; below the
    // last one: at the end.
    const int destination = row >= 0 ? row : (parent.isValid() ? parent.row() : rowCount());
    return moveRows(QModelIndex(), from, 1, QModelIndex(), destination);
}

} // namespace tw
