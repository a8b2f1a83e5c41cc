#pragma once

#include "model/File.h"

#include <QAbstractTableModel>

#include <optional>

namespace tw {

// The file table's model over the deploy controller's list of files, which
// it does not own and never rebuilds: the controller tells it when the list
// was built anew (reload) and when one row's transfer status changed
// (fileStatusDidChange). Rows are the list's rows, in its order.
//
// Columns: the check box (File::willUpload, the only thing the table
// writes), the change letter, the file's name or full path (the preference
// "showFullPath") and the transfer status.
class FileTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { UploadColumn, ChangeColumn, NameColumn, StatusColumn, ColumnCount };
    enum Role {
        // The change letter as text, or an invalid value when the file has none.
        GitStatusRole = Qt::UserRole + 1,
        // The repository-relative path.
        PathRole,
    };

    // files may be null (no list); it must outlive the model or be replaced.
    explicit FileTableModel(const std::optional<FileList>* files = nullptr, QObject* parent = nullptr);

    void setFiles(const std::optional<FileList>* files);
    // The list was built anew (or is gone): a reset.
    void reload();
    // Row n's status changed: one dataChanged for that row's status.
    void fileStatusDidChange(qsizetype row);
    // The check marks of these rows were changed elsewhere.
    void checkMarksDidChange(const QList<qsizetype>& rows);
    // Sets willUpload of the rows (the check box above the list).
    void setWillUpload(const QList<qsizetype>& rows, bool willUpload);

    bool hasList() const;
    FilePtr fileAt(qsizetype row) const;
    // Rows whose willUpload is set.
    qsizetype checkedCount() const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

signals:
    // The number of checked rows may have changed.
    void checkMarksChanged();
    // The person clicked one row's own check box.
    void checkToggled(qsizetype row, bool checked);

private:
    void showFullPathChanged();
    void rowRangeChanged(qsizetype first, qsizetype last, const QList<int>& roles);

    const std::optional<FileList>* m_files = nullptr;
    int m_rowCount = 0;                    // as the views were told at the last reset
    mutable qsizetype m_checkedCount = -1; // -1: count again
};

} // namespace tw
