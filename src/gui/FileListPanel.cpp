#include "FileListPanel.h"

#include "FileSortFilterModel.h"
#include "StatusTableCell.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>

namespace tw {

FileListPanel::FileListPanel(FileTableModel* model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_sort(new FileSortFilterModel(this))
    , m_checkbox(new QCheckBox(tr("Deploy selected files"), this))
    , m_filter(new QLineEdit(this))
    , m_table(new QTableView(this))
    , m_selectedLabel(new QLabel(this)) {
    m_checkbox->setObjectName(QStringLiteral("updateCheckboxes"));
    m_checkbox->setToolTip(tr("Check or uncheck every selected file at once"));
    m_selectedLabel->setObjectName(QStringLiteral("selectedLabel"));
    m_filter->setObjectName(QStringLiteral("fileFilter"));
    m_filter->setPlaceholderText(tr("Filter files"));
    m_filter->setAccessibleName(tr("Filter files"));
    m_filter->setClearButtonEnabled(true);
    m_filter->setMaximumWidth(260);
    connect(m_filter, &QLineEdit::textChanged, m_sort, &FileSortFilterModel::setFilterText);

    m_sort->setSourceModel(m_model);
    m_table->setObjectName(QStringLiteral("realTableView"));
    m_table->setAccessibleName(tr("Files to deploy"));
    m_table->setModel(m_sort);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(-1, Qt::AscendingOrder); // the list's own order until a header is clicked
    m_table->setTabKeyNavigation(false);
    m_table->installEventFilter(this);
    m_table->setItemDelegateForColumn(FileTableModel::ChangeColumn, new StatusTableCell(m_table));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setShowGrid(false);
    m_table->setAlternatingRowColors(true);
    m_table->setWordWrap(false);
    m_table->setTextElideMode(Qt::ElideMiddle);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    // Every row is one line high: the table never measures 100,000 rows.
    QHeaderView* rows = m_table->verticalHeader();
    rows->hide();
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(m_table->fontMetrics().height() + 8);
    QHeaderView* columns = m_table->horizontalHeader();
    columns->setHighlightSections(false);
    columns->setSectionResizeMode(FileTableModel::UploadColumn, QHeaderView::Fixed);
    columns->setSectionResizeMode(FileTableModel::ChangeColumn, QHeaderView::Fixed);
    columns->setSectionResizeMode(FileTableModel::NameColumn, QHeaderView::Stretch);
    columns->setSectionResizeMode(FileTableModel::StatusColumn, QHeaderView::Interactive);
    const int line = m_table->fontMetrics().height();
    columns->resizeSection(FileTableModel::UploadColumn, line + 14);
    columns->resizeSection(FileTableModel::ChangeColumn, line + 14);
    columns->resizeSection(FileTableModel::StatusColumn,
                           m_table->fontMetrics().horizontalAdvance(QStringLiteral("100.0 %")) + 24);

    auto* top = new QHBoxLayout;
    top->setContentsMargins(4, 0, 4, 0);
    top->addWidget(m_checkbox);
    top->addStretch();
    top->addWidget(m_filter, 1);
    top->addWidget(m_selectedLabel);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addLayout(top);
    layout->addWidget(m_table, 1);

    connect(m_checkbox, &QCheckBox::clicked, this, [this] {
        // The box shows the selected rows' state; a click on a mixed state
        // checks them all.
        updateCheckboxes(m_checkbox->checkState() == Qt::Checked);
    });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &FileListPanel::refreshCheckbox);
    connect(m_model, &FileTableModel::modelReset, this, &FileListPanel::refreshCheckbox);
    // A click on a row's own check box is the check box above the list for that row.
    connect(m_model, &FileTableModel::checkToggled, this, [this](qsizetype row, bool checked) {
        if (m_handler)
            m_handler(checked, {row});
    });
    connect(m_model, &FileTableModel::checkMarksChanged, this, [this] {
        refreshCheckbox();
        refreshSelectedLabel();
    });
    refreshCheckbox();
    refreshSelectedLabel();
}

QList<qsizetype> FileListPanel::selectedRows() const {
    QList<qsizetype> rows;
    const QModelIndexList selected = m_table->selectionModel()->selectedRows();
    for (const QModelIndex& index : selected) {
        const QModelIndex source = m_sort->mapToSource(index);
        if (source.isValid())
            rows.append(source.row());
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    return rows;
}

void FileListPanel::updateCheckboxes(bool checked) {
    const QList<qsizetype> rows = selectedRows();
    if (m_handler) {
        m_handler(checked, rows);
        m_model->checkMarksDidChange(rows);
    } else {
        m_model->setWillUpload(rows, checked);
    }
    refreshCheckbox();
}

void FileListPanel::toggleSelected() {
    const QList<qsizetype> rows = selectedRows();
    if (rows.isEmpty())
        return;
    bool allChecked = true;
    for (const qsizetype row : rows) {
        const FilePtr file = m_model->fileAt(row);
        if (file && !file->willUpload)
            allChecked = false;
    }
    updateCheckboxes(!allChecked);
}

bool FileListPanel::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_table && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Space && key->modifiers() == Qt::NoModifier) {
            toggleSelected();
            return true;
        }
    }
    if (watched == m_table && event->type() == QEvent::FocusIn && !m_table->currentIndex().isValid() &&
        m_sort->rowCount() > 0) {
        // The row that has the focus is always to be seen.
        m_table->setCurrentIndex(m_sort->index(0, FileTableModel::NameColumn));
    }
    return QWidget::eventFilter(watched, event);
}

void FileListPanel::refreshCheckbox() {
    const QList<qsizetype> rows = selectedRows();
    m_checkbox->setEnabled(!rows.isEmpty());
    qsizetype checked = 0;
    for (const qsizetype row : rows) {
        const FilePtr file = m_model->fileAt(row);
        if (file && file->willUpload)
            ++checked;
    }
    const QSignalBlocker quiet(m_checkbox);
    if (checked > 0 && checked < rows.size()) {
        m_checkbox->setTristate(true);
        m_checkbox->setCheckState(Qt::PartiallyChecked);
    } else {
        m_checkbox->setTristate(false);
        m_checkbox->setCheckState(checked > 0 ? Qt::Checked : Qt::Unchecked);
    }
}

void FileListPanel::refreshSelectedLabel() {
    if (!m_model->hasList()) {
        m_selectedLabel->clear();
        return;
    }
    const qsizetype total = m_model->rowCount();
    m_selectedLabel->setText(tr("%1 of %2 files to deploy").arg(m_model->checkedCount()).arg(total));
}

} // namespace tw
