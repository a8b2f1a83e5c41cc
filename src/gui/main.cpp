// tarnwell: the desktop application.
#include "ImageResources.h"
#include "MainWindow.h"
#include "SingleInstance.h"
#include "ThemeColors.h"
#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "app/SystemLog.h"
#include "app/ToolPaths.h"
#include "deploy/ViewController.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>
#include <QWindow>

#include <cstdio>

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
    // Screenshots at several scales and palettes run side by side.
    const QCommandLineOption dark(QStringLiteral("dark"),
                                  QStringLiteral("Use a dark palette (for screenshots)."));
    parser.addOption(dark);
    parser.process(app);

    // One window per person: a second start brings the first to the front.
    SingleInstance instance;
    if (!parser.isSet(screenshot)) {
        switch (instance.claim()) {
        case SingleInstance::Claim::AnotherAnswered:
            return 0;
        case SingleInstance::Claim::Unavailable: {
            const QString why =
                QStringLiteral("could not listen on %1 (%2): a later start opens another window")
                    .arg(instance.name(), instance.errorString());
            SystemLog::write(QStringLiteral("TARNWELL - ") + why);
            std::fprintf(stderr, "tarnwell: %s\n", qPrintable(why));
            break;
        }
        case SingleInstance::Claim::Listening:
            break;
        }
    }
    if (parser.isSet(dark)) {
        QApplication::setStyle(QStringLiteral("Fusion"));
        QApplication::setPalette(ThemeColors::darkPalette());
    }

    Preferences& preferences = Preferences::instance();
    preferences.registerDefaultsFromResource();
    // No editor is open at start, whatever the last run left behind.
    preferences.setBool(QStringLiteral("editing"), false);
    preferences.synchronize();
    ToolPaths::logCurlVersion();

    MainWindow window;
    QObject::connect(&instance, &SingleInstance::activationRequested, &window, &MainWindow::activate);
    window.show();
    window.load();

    if (parser.isSet(screenshot)) {
        const QString file = parser.value(screenshot);
        // Taken once the window is on the screen and its pending events
        // are handled, however long a busy machine takes for that.
        auto* poll = new QTimer(&window);
        poll->setInterval(50);
        QObject::connect(poll, &QTimer::timeout, &window, [&window, file, poll] {
            if (!window.windowHandle() || !window.windowHandle()->isExposed())
                return;
            poll->stop();
            QCoreApplication::processEvents();
            const QPixmap picture = window.grab();
            const bool saved = picture.save(file);
            // What a smoke test checks beside the picture.
            const qsizetype files = window.controller().files ? window.controller().files->size() : 0;
            std::printf("title: %s\nfiles listed: %lld\npicture: %dx%d\n", qPrintable(window.windowTitle()),
                        static_cast<long long>(files), picture.width(), picture.height());
            std::fflush(stdout);
            QCoreApplication::exit(saved ? 0 : 1);
        });
        poll->start();
    }
    return app.exec();
}
