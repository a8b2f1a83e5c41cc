#include "MainMenus.h"

#include "ImageResources.h"
#include "MainWindow.h"
#include "SitesSidebar.h"
#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "deploy/ViewController.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>
#include <QStyle>
#include <QToolBar>

namespace tw {

namespace {

QAction* makeAction(QWidget* owner, const QString& name, const QString& text, const QKeySequence& shortcut,
                    std::function<void()> handler) {
    auto* action = new QAction(text, owner);
    action->setObjectName(name);
    if (!shortcut.isEmpty())
        action->setShortcut(shortcut);
    QObject::connect(action, &QAction::triggered, owner, [handler] { handler(); });
    owner->addAction(action);
    return action;
}

} // namespace

void MainMenus::build(MainWindow& window) {
    MainWindow* w = &window;
    QMenu* file = w->menuBar()->addMenu(MainWindow::tr("&Site"));
    file->addAction(makeAction(w, QStringLiteral("newSite"), MainWindow::tr("&New Site…"), QKeySequence::New,
                               [w] { w->newSite(); }));
    file->addAction(makeAction(w, QStringLiteral("editSite"), MainWindow::tr("&Edit Site…"),
                               QKeySequence(MainWindow::tr("Ctrl+E")),
                               [w] { w->editSite(w->sidebar()->currentRow()); }));
    file->addAction(makeAction(w, QStringLiteral("editScripts"), MainWindow::tr("Scr&ipts…"),
                               QKeySequence(MainWindow::tr("Ctrl+Shift+E")),
                               [w] { w->editScripts(w->sidebar()->currentRow()); }));
    file->addAction(makeAction(w, QStringLiteral("duplicateSite"), MainWindow::tr("D&uplicate Site"),
                               QKeySequence(MainWindow::tr("Ctrl+D")), [w] { w->duplicateSite(); }));
    file->addAction(makeAction(w, QStringLiteral("deleteSite"), MainWindow::tr("De&lete Site…"),
                               QKeySequence(MainWindow::tr("Ctrl+Backspace")), [w] { w->deleteSite(); }));
    file->addSeparator();
    file->addAction(makeAction(w, QStringLiteral("importSites"), MainWindow::tr("&Import Sites…"),
                               QKeySequence(MainWindow::tr("Ctrl+I")), [w] { w->importSites(); }));
    file->addAction(makeAction(w, QStringLiteral("exportSites"), MainWindow::tr("E&xport Sites…"),
                               QKeySequence(MainWindow::tr("Ctrl+Shift+S")), [w] { w->exportSites(); }));
    file->addSeparator();
    file->addAction(makeAction(w, QStringLiteral("quit"), MainWindow::tr("&Quit"),
                               QKeySequence(MainWindow::tr("Ctrl+Q")), [w] { w->close(); }));

    QMenu* deploy = w->menuBar()->addMenu(MainWindow::tr("&Deploy"));
    QAction* deployAction = makeAction(w, QStringLiteral("deploy"), MainWindow::tr("&Deploy"),
                                       QKeySequence(MainWindow::tr("Ctrl+Return")), [w] {
                                           if (w->deployButton()->isEnabled())
                                               w->controller().deployButton();
                                       });
    deploy->addAction(deployAction);
    QAction* testAction = makeAction(w, QStringLiteral("testConnection"), MainWindow::tr("&Test Connection"),
                                     QKeySequence(MainWindow::tr("Ctrl+T")), [w] { w->testConnection(); });
    testAction->setIcon(QIcon::fromTheme(QStringLiteral("network-server"),
                                         w->style()->standardIcon(QStyle::SP_DriveNetIcon)));
    deploy->addAction(testAction);
    QAction* refreshAction = makeAction(w, QStringLiteral("refresh"), MainWindow::tr("&Refresh"),
                                        QKeySequence::Refresh, [w] { w->refresh(); });
    refreshAction->setIcon(
        QIcon::fromTheme(QStringLiteral("view-refresh"), w->style()->standardIcon(QStyle::SP_BrowserReload)));
    deploy->addAction(refreshAction);
    deploy->addSeparator();
    deploy->addAction(makeAction(w, QStringLiteral("showLogFolder"), MainWindow::tr("Open &Log Folder"),
                                 QKeySequence(MainWindow::tr("Ctrl+L")), [w] { w->showLogFolder(); }));

    QMenu* view = w->menuBar()->addMenu(MainWindow::tr("&View"));
    QAction* toggle = w->sidebar()->toggleAction();
    toggle->setObjectName(QStringLiteral("toggleSidebar"));
    toggle->setShortcut(QKeySequence(MainWindow::tr("Ctrl+0")));
    w->addAction(toggle);
    view->addAction(toggle);
    QAction* fullPath = makeAction(w, QStringLiteral("showFullPath"), MainWindow::tr("Show &Full Paths"),
                                   QKeySequence(MainWindow::tr("Ctrl+Shift+F")), [] {
                                       Preferences& p = Preferences::instance();
                                       p.setBool(QStringLiteral("showFullPath"),
                                                 !p.boolValue(QStringLiteral("showFullPath")));
                                       p.synchronize();
                                   });
    fullPath->setCheckable(true);
    fullPath->setChecked(Preferences::instance().boolValue(QStringLiteral("showFullPath")));
    QObject::connect(&Preferences::instance(), &Preferences::valueChanged, fullPath,
                     [fullPath](const QString& key) {
                         if (key == u"showFullPath")
                             fullPath->setChecked(Preferences::instance().boolValue(key));
                     });
    view->addAction(fullPath);

    // Where people on Linux look for them: Preferences under Edit, Quit
    // under the first menu.
    QMenu* edit = w->menuBar()->addMenu(MainWindow::tr("&Edit"));
    edit->addAction(makeAction(w, QStringLiteral("preferences"), MainWindow::tr("&Preferences\u2026"),
                               QKeySequence::keyBindings(QKeySequence::Preferences).isEmpty()
                                   ? QKeySequence(MainWindow::tr("Ctrl+,"))
                                   : QKeySequence(QKeySequence::Preferences),
                               [w] { w->showPreferences(); }));
    w->menuBar()->insertMenu(deploy->menuAction(), edit);

    QMenu* help = w->menuBar()->addMenu(MainWindow::tr("&Help"));
    help->addAction(makeAction(w, QStringLiteral("documentation"), MainWindow::tr("&Documentation"),
                               QKeySequence::HelpContents, [w] { w->showDocumentation(); }));
    help->addAction(makeAction(w, QStringLiteral("about"),
                               MainWindow::tr("&About %1").arg(AppInfo::productName()), QKeySequence(),
                               [w] { w->showAbout(); }));

    QToolBar* bar = w->addToolBar(MainWindow::tr("Main"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    bar->addAction(toggle);
    bar->addSeparator();
    bar->addAction(deployAction);
    bar->addAction(w->action(QStringLiteral("refresh")));
    bar->addAction(w->action(QStringLiteral("testConnection")));
    applyIcons(window);
}

void MainMenus::applyIcons(MainWindow& window) {
    const QIcon deploy = ImageResources::themedIcon(QStringLiteral("cloud_tick"), window.palette());
    window.deployButton()->setIcon(deploy);
    if (QAction* action = window.action(QStringLiteral("deploy")))
        action->setIcon(deploy);
}

} // namespace tw
