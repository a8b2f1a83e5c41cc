#pragma once

#include "MainWindow.h"
#include "model/Site.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QTimer>

#include <functional>

namespace tw::test {

// The main window, shown and loaded with the stored sites.
class LoadedWindow : public MainWindow {
public:
    LoadedWindow() {
        show();
        load();
    }
};

// A site of the repository folder on 127.0.0.1, branch "main".
inline SitePtr siteFor(const QString& folder, const QString& name) {
    SitePtr site = Site::newSite();
    site->name = name;
    site->localPath = folder;
    site->host = QStringLiteral("127.0.0.1");
    site->username = QStringLiteral("user");
    site->deployBranch = QStringLiteral("main");
    return site;
}

// The alert box that is open now, if any.
inline QMessageBox* openAlert() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}

inline bool clickAlertButton(const QString& text) {
    QMessageBox* box = openAlert();
    for (QAbstractButton* button : box ? box->buttons() : QList<QAbstractButton*>()) {
        if (button->text() == text) {
            button->click();
            return true;
        }
    }
    return false;
}

// Answers the next alert once it shows, from the event loop (a modal one
// answers nothing else).
inline void answerLater(std::function<void(QMessageBox*)> answer) {
    auto* timer = new QTimer;
    QObject::connect(timer, &QTimer::timeout, timer, [timer, answer] {
        if (QMessageBox* box = openAlert()) {
            timer->stop();
            timer->deleteLater();
            answer(box);
        }
    });
    timer->start(50);
}

} // namespace tw::test
