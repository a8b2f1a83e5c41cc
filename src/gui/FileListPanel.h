#pragma once

#include "FileTableModel.h"

#include <QWidget>

#include <functional>

class QCheckBox;
class QLabel;
class QLineEdit;
class QTableView;

namespace tw {

class FileSortFilterModel;

// The file table with what belongs to it: the check box above the list that
// sets the check mark of every selected row, the filter field, the table
// (multiple selection, sorted by a click on a column's header) and the label
// that counts the checked files. Space toggles the selected rows; Tab leaves
// the table rather than walking its cells.
class FileListPanel : public QWidget {
    Q_OBJECT

public:
    // Sets willUpload of the selected rows. By default the panel sets them
    // through the model; the main window hands them to the deploy controller.
    using CheckboxHandler = std::function<void(bool checked, const QList<qsizetype>& rows)>;

    explicit FileListPanel(FileTableModel* model, QWidget* parent = nullptr);

    FileTableModel* model() const { return m_model; }
    QTableView* tableView() const { return m_table; }
    QCheckBox* checkbox() const { return m_checkbox; }
    QLabel* selectedLabel() const { return m_selectedLabel; }
    QLineEdit* filterField() const { return m_filter; }
    FileSortFilterModel* sortModel() const { return m_sort; }
    void setCheckboxHandler(CheckboxHandler handler) { m_handler = std::move(handler); }

    // The selected rows, ascending, as rows of the file list (not of the
    // sorted view).
    QList<qsizetype> selectedRows() const;
    // The check box was clicked: selected rows take the new state.
    void updateCheckboxes(bool checked);
    // Space: checks the selected rows, or unchecks them when all are checked.
    void toggleSelected();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void refreshCheckbox();
    void refreshSelectedLabel();

    FileTableModel* m_model;
    FileSortFilterModel* m_sort;
    QCheckBox* m_checkbox;
    QLineEdit* m_filter;
    QTableView* m_table;
    QLabel* m_selectedLabel;
    CheckboxHandler m_handler;
};

} // namespace tw
