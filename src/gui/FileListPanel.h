#pragma once

#include "FileTableModel.h"

#include <QWidget>

#include <functional>

class QCheckBox;
class QLabel;
class QTableView;

namespace tw {

// The file table with what belongs to it: the check box above the list that
// sets the check mark of every selected row, the table (multiple selection)
// and the label that counts the checked files.
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
    void setCheckboxHandler(CheckboxHandler handler) { m_handler = std::move(handler); }

    // The selected rows, ascending.
    QList<qsizetype> selectedRows() const;
    // The check box was clicked: selected rows take the new state.
    void updateCheckboxes(bool checked);

private:
    void refreshCheckbox();
    void refreshSelectedLabel();

    FileTableModel* m_model;
    QCheckBox* m_checkbox;
    QTableView* m_table;
    QLabel* m_selectedLabel;
    CheckboxHandler m_handler;
};

} // namespace tw
