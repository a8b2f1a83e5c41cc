#include "app/AppInfo.h"
#include "app/Preferences.h"
#include "app/ToolPaths.h"
#include "git/TWGit.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace tw;
using namespace Qt::StringLiterals;

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(AppInfo::folderName());
    QCoreApplication::setApplicationVersion(AppInfo::version());
    Preferences::instance().registerDefaultsFromResource();

    QTextStream out(stdout);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.value(0) == u"version") {
        out << AppInfo::productName() << ' ' << AppInfo::version() << '\n';
        out << "git:  " << TWGit().getGitVersion().value_or(u"not found"_s) << " (" << TWGit::gitPath()
            << ")\n";
        out << "curl: " << ToolPaths::curlVersion().value_or(u"not found"_s) << " (" << ToolPaths::curlPath()
            << ")\n";
        return 0;
    }
    QTextStream(stderr) << "usage: tarnwell-cli version\n";
    return 2;
}
