#include "WidgetInteraction.h"

#include "app/AppInfo.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>

#include <algorithm>
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

QString logFolderTitle() {
    return QCoreApplication::translate("WidgetInteraction", "Open Log Folder");
}

// Keeps the box within the screen it shows on.
void keepOnScreen(QMessageBox* box) {
    QScreen* screen = box->screen();
    if (!screen)
        return;
    const QRect available = screen->availableGeometry();
    box->setMaximumHeight(available.height());
    if (box->height() > available.height())
        box->resize(box->width(), available.height());
}

QMessageBox* makeBox(const AlertRequest& request, QWidget* parent, QList<QAbstractButton*>* buttons,
                     QAbstractButton** logButton, bool offerLogFolder) {
    const AlertRequest alert = WidgetInteraction::fitted(request);
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
    box->setTextFormat(Qt::PlainText);
    if (!alert.detailedText.isEmpty())
        box->setDetailedText(alert.detailedText);
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
    const bool mentionsLog = std::any_of(titles.begin(), titles.end(), [](const QString& title) {
        return title.contains(QStringLiteral("log"), Qt::CaseInsensitive);
    });
    if (offerLogFolder && WidgetInteraction::isFailure(alert) && !mentionsLog)
        *logButton = box->addButton(logFolderTitle(), QMessageBox::HelpRole);
    QTimer::singleShot(0, box, [box] { keepOnScreen(box); });
    return box;
}

int indexOf(const QList<QAbstractButton*>& buttons, QAbstractButton* clicked, qsizetype escape) {
    const qsizetype index = buttons.indexOf(clicked);
    return static_cast<int>(index >= 0 ? index : escape);
}

} // namespace

bool WidgetInteraction::isFailure(const AlertRequest& alert) {
    return !alert.detailedText.isEmpty() || alert.message.startsWith(QStringLiteral("An error occured")) ||
           alert.message.startsWith(QStringLiteral("Could not "));
}

AlertRequest WidgetInteraction::fitted(const AlertRequest& alert) {
    AlertRequest shown = alert;
    const QString text = alert.informativeText.trimmed();
    if (text.size() <= maximumInformativeLength && text.count(QLatin1Char('\n')) < maximumInformativeLines)
        return shown;
    QString first = text.section(QLatin1Char('\n'), 0, 0).trimmed();
    if (first.size() > maximumInformativeLength / 2) {
        const qsizetype cut = first.lastIndexOf(QLatin1Char(' '), maximumInformativeLength / 2);
        first = first.left(cut > 0 ? cut : maximumInformativeLength / 2) + QChar(0x2026);
    }
    shown.informativeText = first;
    shown.detailedText =
        alert.detailedText.isEmpty() ? text : text + QStringLiteral("\n\n") + alert.detailedText;
    return shown;
}

int WidgetInteraction::runModal(const AlertRequest& alert) {
    QList<QAbstractButton*> buttons;
    QAbstractButton* logButton = nullptr;
    std::unique_ptr<QMessageBox> box(
        makeBox(alert, m_window, &buttons, &logButton, static_cast<bool>(m_openLogFolder)));
    box->exec();
    if (logButton && box->clickedButton() == logButton)
        m_openLogFolder();
    return indexOf(buttons, box->clickedButton(), escapeIndex(titlesOf(alert)));
}

void WidgetInteraction::beginSheet(const AlertRequest& alert, std::function<void(int button)> completion) {
    auto buttons = std::make_shared<QList<QAbstractButton*>>();
    QAbstractButton* logButton = nullptr;
    QMessageBox* box =
        makeBox(alert, m_window, buttons.get(), &logButton, static_cast<bool>(m_openLogFolder));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(m_window ? Qt::WindowModal : Qt::ApplicationModal);
    const qsizetype escape = escapeIndex(titlesOf(alert));
    QObject::connect(
        box, &QMessageBox::finished, box,
        [box, buttons, escape, logButton, opener = m_openLogFolder, completion = std::move(completion)] {
            if (logButton && box->clickedButton() == logButton && opener)
                opener();
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
