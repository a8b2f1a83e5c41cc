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
    const QStringList titles = alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
    for (qsizetype i = 0; i < titles.size(); ++i) {
        // The first button is the default one; the last of several ends the
        // box when the person presses Escape.
        const QMessageBox::ButtonRole role = i == 0                     ? QMessageBox::AcceptRole
                                             : (i == titles.size() - 1) ? QMessageBox::RejectRole
                                                                        : QMessageBox::ActionRole;
        QPushButton* button = box->addButton(titles.at(i), role);
        buttons->append(button);
        if (i == 0)
            box->setDefaultButton(button);
    }
    return box;
}

int indexOf(const QList<QAbstractButton*>& buttons, QAbstractButton* clicked) {
    const qsizetype index = buttons.indexOf(clicked);
    // Closed without a button: the last one (Cancel, or the only button).
    return static_cast<int>(index >= 0 ? index : buttons.size() - 1);
}

} // namespace

int WidgetInteraction::runModal(const AlertRequest& alert) {
    QList<QAbstractButton*> buttons;
    std::unique_ptr<QMessageBox> box(makeBox(alert, m_window, &buttons));
    box->exec();
    return indexOf(buttons, box->clickedButton());
}

void WidgetInteraction::beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) {
    auto buttons = std::make_shared<QList<QAbstractButton*>>();
    QMessageBox* box = makeBox(alert, m_window, buttons.get());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(m_window ? Qt::WindowModal : Qt::ApplicationModal);
    QObject::connect(box, &QMessageBox::finished, box, [box, buttons, completion = std::move(completion)] {
        if (completion)
            completion(indexOf(*buttons, box->clickedButton()));
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
