// Shows the widgets together in one window, to look at them by hand:
//   tarnwell_gui_preview [editor|scripts|preferences|progress]
#include "EmptyTablePlaceholder.h"
#include "FileListPanel.h"
#include "PreferencesDialog.h"
#include "ProgressViewController.h"
#include "ScriptEditorDialog.h"
#include "SiteEditorDialog.h"
#include "SitesSidebar.h"
#include "WidgetInteraction.h"
#include "app/Preferences.h"
#include "deploy/NotificationHub.h"
#include "model/SiteListActions.h"

#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMainWindow>
#include <QSplitter>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>

using namespace tw;

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    Preferences::instance().registerDefaultsFromResource();
    const QString what = app.arguments().value(1);

    if (what == u"sites" && SiteListActions::find(QString()) == std::nullopt) {
        // A few sites to look at (in the preferences of whoever runs it).
        for (const auto& [name, host] : {std::pair{"Company blog", "ftp.example.org"},
                                         std::pair{"Shop", "sftp.shop.example.com"}, std::pair{"Docs", ""}}) {
            SitePtr site = Site::newSite();
            site->name = QString::fromUtf8(name);
            if (*host)
                site->host = QString::fromUtf8(host);
            SiteListActions::add(site);
        }
    }

    QMainWindow window;
    WidgetInteraction interaction(&window);
    auto* sidebar = new SitesSidebar(interaction);
    std::optional<FileList> files = FileList();
    for (int i = 0; i < 200; ++i) {
        FilePtr file = File::initWithPath(QStringLiteral("public/assets/file%1.html").arg(i));
        file->gitStatus =
            QStringList{QStringLiteral("A"), QStringLiteral("M"), QStringLiteral("D"), QStringLiteral("-")}
                .at(i % 4);
        file->willUpload = i % 3 != 0;
        if (i % 7 == 0)
            file->status = QStringLiteral("42.0 %");
        files->append(file);
    }
    auto* model = new FileTableModel(&files, &window);
    auto* panel = new FileListPanel(model);
    auto* placeholder = new EmptyTablePlaceholder;
    placeholder->hide();

    auto* right = new QWidget;
    auto* rightLayout = new QHBoxLayout(right);
    rightLayout->addWidget(panel);
    rightLayout->addWidget(placeholder);
    auto* splitter = new QSplitter;
    splitter->addWidget(sidebar);
    splitter->addWidget(right);
    window.setCentralWidget(splitter);
    window.addToolBar(QStringLiteral("Main"))->addAction(sidebar->toggleAction());
    window.resize(900, 600);
    window.show();

    QObject::connect(sidebar, &SitesSidebar::addSiteRequested, &window, [&] {
        auto* editor = new SiteEditorDialog(nullptr, interaction, &window);
        editor->setAttribute(Qt::WA_DeleteOnClose);
        editor->open();
    });
    QObject::connect(sidebar, &SitesSidebar::editSiteRequested, &window, [&](int row) {
        auto* editor = new SiteEditorDialog(sidebar->model()->siteAt(row), interaction, &window);
        editor->setAttribute(Qt::WA_DeleteOnClose);
        editor->open();
    });
    QObject::connect(sidebar, &SitesSidebar::editScriptsRequested, &window, [&](int row) {
        auto* editor = new ScriptEditorDialog(sidebar->model()->siteAt(row), &window);
        editor->setAttribute(Qt::WA_DeleteOnClose);
        editor->open();
    });

    if (what == u"editor") {
        sidebar->addSiteRequested();
    } else if (what == u"editor-server") {
        // The server page of a half-filled SFTP site after a failed save.
        auto* editor = new SiteEditorDialog(nullptr, interaction, &window);
        editor->nameField()->setText(QStringLiteral("Company blog"));
        editor->protocolField()->setCurrentText(QStringLiteral("SFTP"));
        editor->hostField()->setText(QStringLiteral("sftp://blog.example.org"));
        editor->portField()->setText(QStringLiteral("22x"));
        editor->remotePathField()->setText(QStringLiteral("/var/www/blog"));
        editor->open();
        editor->validate();
        editor->tabs()->setCurrentIndex(1);
    } else if (what == u"scripts") {
        auto* editor = new ScriptEditorDialog(Site::newSite(), &window);
        editor->open();
    } else if (what == u"preferences") {
        auto* preferences = new PreferencesDialog(&window);
        preferences->open();
    } else if (what == u"progress") {
        auto* sheet = new ProgressViewController(&window);
        sheet->present();
        sheet->setTextLabel(QStringLiteral("Uploading files\u2026"));
        QTimer::singleShot(200, &window, [] {
            NotificationHub::instance().postRemainingStatus(40, 100);
            NotificationHub::instance().postCurrentFile(QStringLiteral("public/assets/file12.html"));
        });
    }
    // A second argument: save a picture of the window (and the dialog over it)
    // there, then quit.
    const QString picture = app.arguments().value(2);
    if (!picture.isEmpty()) {
        QTimer::singleShot(700, &app, [&] {
            QWidget* front = QApplication::activeModalWidget();
            if (!front) {
                for (QWidget* widget : QApplication::topLevelWidgets()) {
                    if (widget->isVisible() && widget != &window && qobject_cast<QDialog*>(widget))
                        front = widget;
                }
            }
            window.grab().save(picture);
            if (front)
                front->grab().save(
                    QString(picture).replace(QStringLiteral(".png"), QStringLiteral("-dialog.png")));
            QCoreApplication::exit(0);
        });
    }
    return app.exec();
}
