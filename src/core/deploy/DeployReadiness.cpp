#include "DeployReadiness.h"

#include <QCoreApplication>

namespace tw {

QString describe(DeployReadiness readiness) {
    switch (readiness) {
    case DeployReadiness::Ready:
        return QCoreApplication::translate("DeployReadiness", "Ready to deploy.");
    case DeployReadiness::NoSite:
        return QCoreApplication::translate("DeployReadiness", "No site is selected.");
    case DeployReadiness::NoHost:
        return QCoreApplication::translate("DeployReadiness", "The site names no server.");
    case DeployReadiness::NoFolder:
        return QCoreApplication::translate("DeployReadiness", "The site's repository folder is missing.");
    case DeployReadiness::NotARepository:
        return QCoreApplication::translate("DeployReadiness", "The site's folder is not a git repository.");
    case DeployReadiness::OtherBranch:
        return QCoreApplication::translate("DeployReadiness",
                                           "Another branch than the site's branch is checked out.");
    case DeployReadiness::NothingToDeploy:
        return QCoreApplication::translate("DeployReadiness", "Nothing to deploy.");
    case DeployReadiness::QuestionPending:
        return QCoreApplication::translate("DeployReadiness",
                                           "A question about the server waits for an answer.");
    case DeployReadiness::Deploying:
        return QCoreApplication::translate("DeployReadiness", "A deployment is under way.");
    }
    return QString();
}

} // namespace tw
