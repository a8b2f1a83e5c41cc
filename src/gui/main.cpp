// tarnwell: the desktop application.
#include "ImageResources.h"
#include "MainWindow.h"
#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "app/ToolPaths.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

using namespace tw;

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(AppInfo::folderName());
    QCoreApplication::setApplicationVersion(AppInfo::version());
    QGuiApplication::setApplicationDisplayName(AppInfo::productName());
    QGuiApplication::setDesktopFileName(AppInfo::identifier());
    QApplication::setWindowIcon(ImageResources::applicationIcon());

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Deploys a website kept in git to a server over FTP or SFTP."));
    parser.addHelpOption();
    parser.addVersionOption();
    // For documentation and smoke tests: save a picture of the window once
    // its files are listed, then quit.
    const QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                        QStringLiteral("Save a picture of the window to <file> and quit."),
                                        QStringLiteral("file"));
    parser.addOption(screenshot);
    parser.process(app);

    Preferences& preferences = Preferences::instance();
    preferences.registerDefaultsFromResource();
    // No editor is open at start, whatever the last run left behind.
    preferences.setBool(QStringLiteral("editing"), false);
    preferences.synchronize();
    ToolPaths::logCurlVersion();

    MainWindow window;
    window.show();
    window.load();

    if (parser.isSet(screenshot)) {
        const QString file = parser.value(screenshot);
        QTimer::singleShot(800, &window, [&window, file] {
            const bool saved = window.grab().save(file);
            QCoreApplication::exit(saved ? 0 : 1);
        });
    }
    return app.exec();
}
