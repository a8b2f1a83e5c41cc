#include "PathListEditor.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace tw {

PathListEditor::PathListEditor(const QString& title, const QString& help, const QString& objectName,
                               const std::function<QWidget*(QWidget*)>& wrap, QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* heading = new QLabel(title, this);
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    auto* note = new QLabel(help, this);
    note->setWordWrap(true);
    m_list = new QListWidget(this);
    m_list->setObjectName(objectName);
    m_list->setAccessibleName(title);
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setMinimumHeight(90);
    auto* addFile = new QPushButton(tr("Add File\u2026"), this);
    auto* addFolder = new QPushButton(tr("Add Folder\u2026"), this);
    auto* remove = new QPushButton(tr("Remove"), this);
    remove->setEnabled(false);
    connect(addFile, &QPushButton::clicked, this, [this] { emit chooseRequested(false); });
    connect(addFolder, &QPushButton::clicked, this, [this] { emit chooseRequested(true); });
    connect(remove, &QPushButton::clicked, this, &PathListEditor::removeSelected);
    connect(m_list, &QListWidget::itemSelectionChanged, remove,
            [this, remove] { remove->setEnabled(!m_list->selectedItems().isEmpty()); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(addFile);
    buttons->addWidget(addFolder);
    buttons->addWidget(remove);
    buttons->addStretch();
    layout->addWidget(heading);
    layout->addWidget(note);
    layout->addWidget(wrap(m_list));
    layout->addLayout(buttons);
}

QStringList PathListEditor::entries() const {
    QStringList entries;
    for (int i = 0; i < m_list->count(); ++i)
        entries.append(m_list->item(i)->text());
    return entries;
}

void PathListEditor::setEntries(const QStringList& entries) {
    m_list->clear();
    m_list->addItems(entries);
}

void PathListEditor::addEntry(const QString& relativePath) {
    if (!entries().contains(relativePath))
        m_list->addItem(relativePath);
}

void PathListEditor::removeSelected() {
    const QList<QListWidgetItem*> selected = m_list->selectedItems();
    for (QListWidgetItem* item : selected)
        delete m_list->takeItem(m_list->row(item));
}

} // namespace tw
