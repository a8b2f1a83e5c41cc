#include "WidgetInteraction.h"

#include "app/AppInfo.h"

#include <QAbstractButton>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

#include <memory>

namespace tw {

namespace {

// The button Escape (and closing the box) stands for: "Cancel" when the
// alert has one, else the first, default button. Never a button that goes on
// with something ("Force deploy", "No, use mine").
qsizetype escapeIndex(const QStringList& titles) {
    const qsizetype cancel = titles.indexOf(QStringLiteral("Cancel"));
    return cancel >= 0 ? cancel : 0;
}

QStringList titlesOf(const AlertRequest& alert) {
    return alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
}

QMessageBox* makeBox(const AlertRequest& alert, QWidget* parent, QList<QAbstractButton*>* buttons) {
    auto* box = new QMessageBox(parent);
    box->setWindowTitle(AppInfo::productName());
    switch (alert.style) {
    case AlertStyle::Warning:
        box->setIcon(QMessageBox::Warning);
        break;
    case AlertStyle::Informational:
        box->setIcon(QMessageBox::Information);
        break;
    case AlertStyle::Critical:
        box->setIcon(QMessageBox::Critical);
        break;
    }
    box->setText(alert.message);
    box->setInformativeText(alert.informativeText);
    const QStringList titles = titlesOf(alert);
    const qsizetype escape = escapeIndex(titles);
    for (qsizetype i = 0; i < titles.size(); ++i) {
        const QMessageBox::ButtonRole role = i == escape ? QMessageBox::RejectRole
                                             : i == 0    ? QMessageBox::AcceptRole
                                                         : QMessageBox::ActionRole;
        QPushButton* button = box->addButton(titles.at(i), role);
        buttons->append(button);
        if (i == 0)
            box->setDefaultButton(button);
    }
    box->setEscapeButton(buttons->at(escape));
    return box;
}

int indexOf(const QList<QAbstractButton*>& buttons, QAbstractButton* clicked, qsizetype escape) {
    const qsizetype index = buttons.indexOf(clicked);
    return static_cast<int>(index >= 0 ? index : escape);
}

} // namespace

int WidgetInteraction::runModal(const AlertRequest& alert) {
    QList<QAbstractButton*> buttons;
    std::unique_ptr<QMessageBox> box(makeBox(alert, m_window, &buttons));
    box->exec();
    return indexOf(buttons, box->clickedButton(), escapeIndex(titlesOf(alert)));
}

void WidgetInteraction::beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) {
    auto buttons = std::make_shared<QList<QAbstractButton*>>();
    QMessageBox* box = makeBox(alert, m_window, buttons.get());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(m_window ? Qt::WindowModal : Qt::ApplicationModal);
    const qsizetype escape = escapeIndex(titlesOf(alert));
    QObject::connect(box, &QMessageBox::finished, box,
                     [box, buttons, escape, completion = std::move(completion)] {
                         if (completion)
                             completion(indexOf(*buttons, box->clickedButton(), escape));
                     });
    box->open();
}

std::optional<QString> WidgetInteraction::runSavePanel(const SavePanelRequest& panel) {
    QFileDialog dialog(m_window, panel.title);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDirectory(panel.directory.isEmpty() ? QDir::homePath() : panel.directory);
    dialog.selectFile(panel.nameFieldValue);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

std::optional<QString> WidgetInteraction::runOpenPanel(const OpenPanelRequest& panel) {
    QFileDialog dialog(m_window, panel.title.isEmpty() ? panel.message : panel.title);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (panel.canChooseDirectories && !panel.canChooseFiles) {
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly, true);
    } else {
        dialog.setFileMode(QFileDialog::ExistingFile);
    }
    if (!panel.canCreateDirectories)
        dialog.setOption(QFileDialog::ReadOnly, true);
    if (panel.showsHiddenFiles) {
        // Only the dialog of our own toolkit can be told to show hidden files.
        dialog.setOption(QFileDialog::DontUseNativeDialog, true);
        dialog.setFilter(dialog.filter() | QDir::Hidden);
    }
    if (!panel.allowedFileTypes.isEmpty()) {
        QStringList patterns;
        for (const QString& type : panel.allowedFileTypes)
            patterns.append(QStringLiteral("*.") + type);
        dialog.setNameFilter(patterns.join(QLatin1Char(' ')));
    }
    dialog.setDirectory(panel.directory.isEmpty() ? QDir::homePath() : panel.directory);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

} // namespace tw
