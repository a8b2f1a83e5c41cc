#include "FileTableModel.h"

#include "ThemeColors.h"
#include "app/Preferences.h"

#include <QBrush>
#include <QColor>
#include <QGuiApplication>

#include <algorithm>
#include <limits>

namespace tw {

namespace {

int boundedRowCount(const std::optional<FileList>* files) {
    if (!files || !files->has_value())
        return 0;
    return static_cast<int>(std::min<qsizetype>((*files)->size(), std::numeric_limits<int>::max()));
}

QString changeDescription(const QString& gitStatus) {
    if (gitStatus == u"A")
        return FileTableModel::tr("Added");
    if (gitStatus == u"M")
        return FileTableModel::tr("Modified");
    if (gitStatus == u"D")
        return FileTableModel::tr("Deleted: removed from the server");
    if (gitStatus == u"-")
        return FileTableModel::tr("Always uploaded");
    return FileTableModel::tr("Changed (%1)").arg(gitStatus);
}

} // namespace

FileTableModel::FileTableModel(const std::optional<FileList>* files, QObject* parent)
    : QAbstractTableModel(parent)
    , m_files(files)
    , m_rowCount(boundedRowCount(files)) {
    connect(&Preferences::instance(), &Preferences::valueChanged, this, [this](const QString& key) {
        if (key == u"showFullPath")
            showFullPathChanged();
    });
}

void FileTableModel::setFiles(const std::optional<FileList>* files) {
    beginResetModel();
    m_files = files;
    m_rowCount = boundedRowCount(files);
    m_checkedCount = -1;
    endResetModel();
    emit checkMarksChanged();
}

void FileTableModel::reload() {
    setFiles(m_files);
}

bool FileTableModel::hasList() const {
    return m_files && m_files->has_value();
}

FilePtr FileTableModel::fileAt(qsizetype row) const {
    if (!hasList() || row < 0 || row >= m_rowCount || row >= (*m_files)->size())
        return nullptr;
    return (**m_files).at(row);
}

qsizetype FileTableModel::checkedCount() const {
    if (m_checkedCount < 0) {
        m_checkedCount = 0;
        for (qsizetype row = 0; row < m_rowCount; ++row) {
            const FilePtr file = fileAt(row);
            if (file && file->willUpload)
                ++m_checkedCount;
        }
    }
    return m_checkedCount;
}

void FileTableModel::rowRangeChanged(qsizetype first, qsizetype last, const QList<int>& roles) {
    emit dataChanged(index(static_cast<int>(first), UploadColumn),
                     index(static_cast<int>(last), UploadColumn), roles);
}

void FileTableModel::fileStatusDidChange(qsizetype row) {
    if (row < 0 || row >= m_rowCount)
        return;
    const QModelIndex cell = index(static_cast<int>(row), StatusColumn);
    emit dataChanged(cell, cell, {Qt::DisplayRole, Qt::ForegroundRole, Qt::ToolTipRole});
}

void FileTableModel::checkMarksDidChange(const QList<qsizetype>& rows) {
    if (rows.isEmpty())
        return;
    m_checkedCount = -1;
    const auto [low, high] = std::minmax_element(rows.begin(), rows.end());
    const qsizetype first = std::max<qsizetype>(*low, 0);
    const qsizetype last = std::min<qsizetype>(*high, m_rowCount - 1);
    if (first <= last)
        rowRangeChanged(first, last, {Qt::CheckStateRole});
    emit checkMarksChanged();
}

void FileTableModel::setWillUpload(const QList<qsizetype>& rows, bool willUpload) {
    for (const qsizetype row : rows) {
        if (const FilePtr file = fileAt(row))
            file->willUpload = willUpload;
    }
    checkMarksDidChange(rows);
}

void FileTableModel::showFullPathChanged() {
    if (m_rowCount == 0)
        return;
    emit dataChanged(index(0, NameColumn), index(m_rowCount - 1, NameColumn), {Qt::DisplayRole});
}

int FileTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : m_rowCount;
}

int FileTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant FileTableModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return QVariant();
    const FilePtr file = fileAt(index.row());
    if (!file)
        return QVariant();

    if (role == PathRole)
        return file->pathWithFilename.value_or(QString());
    if (role == GitStatusRole)
        return file->gitStatus ? QVariant(*file->gitStatus) : QVariant();

    switch (index.column()) {
    case UploadColumn:
        if (role == Qt::CheckStateRole)
            return file->willUpload ? Qt::Checked : Qt::Unchecked;
        if (role == Qt::ToolTipRole)
            return file->willUpload ? tr("Deployed with the next deployment")
                                    : tr("Left out of the next deployment");
        break;
    case ChangeColumn:
        if (role == Qt::DisplayRole)
            return file->gitStatus.value_or(QString());
        if (role == Qt::ToolTipRole && file->gitStatus)
            return changeDescription(*file->gitStatus);
        if (role == Qt::TextAlignmentRole)
            return Qt::AlignCenter;
        break;
    case NameColumn:
        if (role == Qt::DisplayRole)
            return file->nameOrPath();
        if (role == Qt::ToolTipRole)
            return file->pathWithFilename.value_or(QString());
        break;
    case StatusColumn:
        if (role == Qt::DisplayRole || role == Qt::ToolTipRole)
            return file->status.value_or(QString());
        if (role == Qt::ForegroundRole && file->status == u"ERROR")
            return QBrush(ThemeColors::errorText(QGuiApplication::palette()));
        if (role == Qt::TextAlignmentRole)
            return QVariant(Qt::AlignRight | Qt::AlignVCenter);
        break;
    default:
        break;
    }
    return QVariant();
}

bool FileTableModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return false;
    if (index.column() != UploadColumn || role != Qt::CheckStateRole)
        return false;
    const FilePtr file = fileAt(index.row());
    if (!file)
        return false;
    const bool checked = value.value<Qt::CheckState>() == Qt::Checked;
    if (file->willUpload != checked) {
        file->willUpload = checked;
        if (m_checkedCount >= 0)
            m_checkedCount += checked ? 1 : -1;
    }
    emit dataChanged(index, index, {Qt::CheckStateRole, Qt::ToolTipRole});
    emit checkMarksChanged();
    emit checkToggled(index.row(), checked);
    return true;
}

Qt::ItemFlags FileTableModel::flags(const QModelIndex& index) const {
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags result = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
    if (index.column() == UploadColumn)
        result |= Qt::ItemIsUserCheckable;
    return result;
}

QVariant FileTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case UploadColumn:
        return QString();
    case ChangeColumn:
        return QString();
    case NameColumn:
        return tr("File");
    case StatusColumn:
        return tr("Status");
    default:
        return QVariant();
    }
}

} // namespace tw
