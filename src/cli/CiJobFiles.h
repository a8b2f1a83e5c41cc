#pragma once

#include <QString>
#include <QStringList>

namespace tw::cli {

// The CI job files that 'init-ci' writes: a GitHub Actions workflow or a
// GitLab CI job that installs Tarnwell's package on Debian 12 and deploys the
// site file on every push to the site's branch, with the secrets from the
// CI's secret variables.
class CiJobFiles {
public:
    struct Job {
        QString siteName;
        QString branch;
        QString siteFile; // relative to the repository
        bool password = true;
        bool key = false;
        bool passphrase = false;
    };

    static QString gitHubPath() { return QStringLiteral(".github/workflows/tarnwell-deploy.yml"); }
    static QString gitLabPath() { return QStringLiteral(".gitlab-ci.yml"); }
    // The environment variables the jobs read the secrets from.
    static QString passwordVariable() { return QStringLiteral("TARNWELL_PASSWORD"); }
    static QString keyVariable() { return QStringLiteral("TARNWELL_SSH_KEY"); }
    static QString passphraseVariable() { return QStringLiteral("TARNWELL_PASSPHRASE"); }
    // Where the jobs fetch the package from (the job files name it once, at the top).
    static QString packageUrl();

    // The tarnwell-cli command line of the deployment.
    static QString deployCommand(const Job& job);
    // The job's shell lines around it: "nothing to deploy" (exit code 3)
    // is no failure of the job; every other code is passed on.
    static QStringList deployScript(const Job& job);
    static QString gitHubWorkflow(const Job& job);
    static QString gitLabJob(const Job& job);
    // The secret variables to create, one "NAME: what" line each.
    static QStringList secrets(const Job& job);
};

} // namespace tw::cli
