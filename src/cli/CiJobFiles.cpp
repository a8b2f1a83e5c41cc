#include "CiJobFiles.h"

#include "app/AppInfo.h"

namespace tw::cli {

namespace {

// Characters that end a line in YAML (or in an editor showing it), or that
// a YAML file may not hold raw.
bool breaksYaml(QChar c) {
    const char16_t code = c.unicode();
    return code < 0x20 || code == 0x7f || code == 0x85 || code == 0x2028 || code == 0x2029;
}

// A text as a YAML double-quoted scalar.
QString yamlQuoted(const QString& text) {
    QString quoted;
    for (const QChar c : text) {
        if (c == u'\\' || c == u'"')
            quoted += QLatin1Char('\\') + c;
        else if (breaksYaml(c))
            quoted += QStringLiteral("\\u%1").arg(static_cast<uint>(c.unicode()), 4, 16, QLatin1Char('0'));
        else
            quoted += c;
    }
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

// A text for a YAML comment: all on its one line.
QString commentText(const QString& text) {
    QString line = text;
    for (QChar& c : line) {
        if (breaksYaml(c))
            c = QLatin1Char(' ');
    }
    return line;
}

// Lines of a shell script, each indented for a YAML literal block.
QString indented(const QStringList& lines, int blanks) {
    QString text;
    for (const QString& line : lines)
        text += QString(blanks, QLatin1Char(' ')) + line + QLatin1Char('\n');
    return text;
}

// A word for a POSIX shell, quoted when it needs it.
QString shellWord(const QString& word) {
    static const QString plain =
        QStringLiteral("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./");
    bool needsQuotes = word.isEmpty();
    for (const QChar c : word)
        needsQuotes = needsQuotes || !plain.contains(c);
    if (!needsQuotes)
        return word;
    QString quoted = word;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

} // namespace

QString CiJobFiles::packageUrl() {
    return QStringLiteral("https://tarnwell.dev/download/tarnwell_%1_amd64.deb").arg(AppInfo::version());
}

QString CiJobFiles::deployCommand(const Job& job) {
    QString command = QStringLiteral("tarnwell-cli --no-input deploy --site-file ") + shellWord(job.siteFile);
    if (job.password)
        command += QStringLiteral(" --password-env ") + passwordVariable();
    if (job.key)
        command += QStringLiteral(" --key-env ") + keyVariable();
    if (job.passphrase)
        command += QStringLiteral(" --passphrase-env ") + passphraseVariable();
    return command;
}

QStringList CiJobFiles::deployScript(const Job& job) {
    return {
        QStringLiteral("status=0"),
        deployCommand(job) + QStringLiteral(" || status=$?"),
        QStringLiteral("# 3: nothing to deploy (a push that changed only ignored files, such as this job)."),
        QStringLiteral(
            "if [ \"$status\" -eq 3 ]; then echo \"Nothing to deploy: the server is up to date.\"; "
            "status=0; fi"),
        QStringLiteral("exit \"$status\""),
    };
}

QStringList CiJobFiles::secrets(const Job& job) {
    QStringList lines;
    if (job.password)
        lines.append(passwordVariable() + QStringLiteral(": the site's login password"));
    if (job.key)
        lines.append(keyVariable() + QStringLiteral(": the private SSH key, the whole text of the key file"));
    if (job.passphrase)
        lines.append(passphraseVariable() + QStringLiteral(": the key's pass phrase"));
    return lines;
}

QString CiJobFiles::gitHubWorkflow(const Job& job) {
    QString secretLines;
    for (const QString& name : {passwordVariable(), keyVariable(), passphraseVariable()}) {
        const bool used = (name == passwordVariable() && job.password) ||
                          (name == keyVariable() && job.key) ||
                          (name == passphraseVariable() && job.passphrase);
        if (used)
            secretLines += QStringLiteral("          %1: ${{ secrets.%1 }}\n").arg(name);
    }
    return QStringLiteral(
               "# Deploys the site %1 with Tarnwell on every push to %2: only what changed since the\n"
               "# commit the server's record names is sent, and the record is written afterwards.\n"
               "# The secrets come from Settings > Secrets and variables > Actions.\n"
               "name: Deploy with Tarnwell\n"
               "on:\n"
               "  push:\n"
               "    branches: [%3]\n"
               "concurrency:\n"
               "  group: tarnwell-deploy\n"
               "  cancel-in-progress: false\n"
               "jobs:\n"
               "  deploy:\n"
               "    runs-on: ubuntu-latest\n"
               "    container: debian:12\n"
               "    env:\n"
               "      TARNWELL_PACKAGE: %4\n"
               "    steps:\n"
               "      - name: Install Tarnwell\n"
               "        run: |\n"
               "          apt-get update -qq\n"
               "          apt-get install -y -qq ca-certificates curl git >/dev/null\n"
               "          curl -fsSL -o /tmp/tarnwell.deb \"$TARNWELL_PACKAGE\"\n"
               "          apt-get install -y -qq /tmp/tarnwell.deb >/dev/null\n"
               "      - uses: actions/checkout@v4\n"
               "        with:\n"
               "          fetch-depth: 0 # the history back to the deployed commit\n"
               "      - name: Deploy\n"
               "        run: |\n"
               "          git config --global --add safe.directory \"$GITHUB_WORKSPACE\"\n"
               "          git checkout -q -B \"$GITHUB_REF_NAME\" \"$GITHUB_SHA\"\n"
               "%5"
               "        env:\n"
               "%6")
        .arg(commentText(job.siteName), commentText(job.branch), yamlQuoted(job.branch), packageUrl(),
             indented(deployScript(job), 10), secretLines);
}

QString CiJobFiles::gitLabJob(const Job& job) {
    return QStringLiteral(
               "# Deploys the site %1 with Tarnwell on every push to %2: only what changed since the\n"
               "# commit the server's record names is sent, and the record is written afterwards.\n"
               "# The secrets come from Settings > CI/CD > Variables (protected).\n"
               "tarnwell-deploy:\n"
               "  stage: deploy\n"
               "  image: debian:12\n"
               "  resource_group: tarnwell-deploy\n"
               "  rules:\n"
               "    - if: $CI_COMMIT_BRANCH == %3\n"
               "  variables:\n"
               "    GIT_DEPTH: \"0\" # the history back to the deployed commit\n"
               "    TARNWELL_PACKAGE: %4\n"
               "  before_script:\n"
               "    - apt-get update -qq\n"
               "    - apt-get install -y -qq ca-certificates curl git >/dev/null\n"
               "    - curl -fsSL -o /tmp/tarnwell.deb \"$TARNWELL_PACKAGE\"\n"
               "    - apt-get install -y -qq /tmp/tarnwell.deb >/dev/null\n"
               "  script:\n"
               "    - |\n"
               "      git checkout -q -B \"$CI_COMMIT_BRANCH\" \"$CI_COMMIT_SHA\"\n"
               "%5")
        .arg(commentText(job.siteName), commentText(job.branch), yamlQuoted(job.branch), packageUrl(),
             indented(deployScript(job), 6));
}

} // namespace tw::cli
