#include "SiteOptions.h"

#include "SecretStoreCheck.h"
#include "Terminal.h"
#include "keychain/TWPasswords.h"

#include <QDir>
#include <QFileInfo>

namespace tw::cli {

namespace {

QCommandLineOption valued(const QString& name, const QString& description, const QString& valueName) {
    return QCommandLineOption(name, description, valueName);
}

QCommandLineOption flag(const QString& name, const QString& description) {
    return QCommandLineOption(name, description);
}

const QStringList kSettingOptions = {
    QStringLiteral("name"),
    QStringLiteral("folder"),
    QStringLiteral("sync-root"),
    QStringLiteral("protocol"),
    QStringLiteral("host"),
    QStringLiteral("port"),
    QStringLiteral("user"),
    QStringLiteral("key"),
    QStringLiteral("passive"),
    QStringLiteral("active"),
    QStringLiteral("remote-path"),
    QStringLiteral("branch"),
    QStringLiteral("auto-deploy"),
    QStringLiteral("no-auto-deploy"),
    QStringLiteral("always-upload"),
    QStringLiteral("no-always-upload"),
    QStringLiteral("ignore"),
    QStringLiteral("no-ignore"),
    QStringLiteral("pre-deploy-local"),
    QStringLiteral("post-deploy-local"),
    QStringLiteral("pre-deploy-remote"),
    QStringLiteral("post-deploy-remote"),
    QStringLiteral("remote-pre-connection"),
    QStringLiteral("remote-post-connection"),
    QStringLiteral("password-stdin"),
    QStringLiteral("passphrase-stdin"),
    QStringLiteral("ask-password"),
    QStringLiteral("ask-passphrase"),
    QStringLiteral("no-password"),
    QStringLiteral("no-passphrase"),
};

QString absolute(const QString& path) {
    if (path.isEmpty())
        return path;
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

} // namespace

QList<QCommandLineOption> SiteOptions::options() {
    return {
        valued(QStringLiteral("name"), QStringLiteral("The site's name."), QStringLiteral("NAME")),
        valued(QStringLiteral("folder"), QStringLiteral("The folder of the site's git repository."),
               QStringLiteral("DIR")),
        valued(QStringLiteral("sync-root"),
               QStringLiteral("Deploy only this folder of the repository (its content lands in the remote "
                              "path)."),
               QStringLiteral("DIR")),
        valued(QStringLiteral("protocol"),
               QStringLiteral("FTP (the default), \"FTP with implicit SSL\" (ftps), \"FTP with TLS/SSL\" "
                              "(ftp-tls) or SFTP."),
               QStringLiteral("PROTOCOL")),
        valued(QStringLiteral("host"), QStringLiteral("The server's host name or address."),
               QStringLiteral("HOST")),
        valued(QStringLiteral("port"),
               QStringLiteral("The server's port (default: the protocol's usual one)."),
               QStringLiteral("PORT")),
        valued(QStringLiteral("user"), QStringLiteral("The user name on the server."),
               QStringLiteral("USER")),
        valued(QStringLiteral("key"), QStringLiteral("SFTP: the private key file."), QStringLiteral("FILE")),
        flag(QStringLiteral("passive"), QStringLiteral("FTP: passive mode (the default).")),
        flag(QStringLiteral("active"), QStringLiteral("FTP: active mode.")),
        valued(QStringLiteral("remote-path"),
               QStringLiteral("The folder on the server that receives the files (it must exist)."),
               QStringLiteral("PATH")),
        valued(QStringLiteral("branch"),
               QStringLiteral("The branch that is deployed (add: the branch checked out now)."),
               QStringLiteral("BRANCH")),
        flag(QStringLiteral("auto-deploy"),
             QStringLiteral("Deploy automatically on every commit ('watch').")),
        flag(QStringLiteral("no-auto-deploy"), QStringLiteral("No automatic deployment.")),
        valued(QStringLiteral("always-upload"),
               QStringLiteral("A file or folder uploaded with every deployment; repeat for more (edit: "
                              "replaces the list)."),
               QStringLiteral("PATH")),
        flag(QStringLiteral("no-always-upload"), QStringLiteral("Empty the list of always uploaded files.")),
        valued(QStringLiteral("ignore"),
               QStringLiteral("A file or folder never uploaded; repeat for more (edit: replaces the list)."),
               QStringLiteral("PATH")),
        flag(QStringLiteral("no-ignore"), QStringLiteral("Empty the list of ignored files.")),
        valued(QStringLiteral("pre-deploy-local"), QStringLiteral("Script run here before the transfers."),
               QStringLiteral("SCRIPT")),
        valued(QStringLiteral("post-deploy-local"), QStringLiteral("Script run here after the transfers."),
               QStringLiteral("SCRIPT")),
        valued(QStringLiteral("pre-deploy-remote"),
               QStringLiteral("SFTP: script run over ssh before the transfers."), QStringLiteral("SCRIPT")),
        valued(QStringLiteral("post-deploy-remote"),
               QStringLiteral("SFTP: script run over ssh after the transfers."), QStringLiteral("SCRIPT")),
        valued(QStringLiteral("remote-pre-connection"),
               QStringLiteral("SFTP: ssh connection for the remote pre-deploy script (user@host and ssh "
                              "options)."),
               QStringLiteral("TEXT")),
        valued(QStringLiteral("remote-post-connection"),
               QStringLiteral("SFTP: ssh connection for the remote post-deploy script."),
               QStringLiteral("TEXT")),
        flag(QStringLiteral("password-stdin"),
             QStringLiteral("Read the password from the first line of standard input.")),
        flag(QStringLiteral("passphrase-stdin"),
             QStringLiteral("Read the key's pass phrase from standard input (the second line when "
                            "--password-stdin is given too).")),
        flag(QStringLiteral("ask-password"),
             QStringLiteral("Ask for the password on the terminal (no echo).")),
        flag(QStringLiteral("ask-passphrase"),
             QStringLiteral("Ask for the key's pass phrase on the terminal (no echo).")),
        flag(QStringLiteral("no-password"), QStringLiteral("No password (edit: removes the stored one).")),
        flag(QStringLiteral("no-passphrase"),
             QStringLiteral("No pass phrase (edit: removes the stored one).")),
    };
}

bool SiteOptions::anyGiven(const QCommandLineParser& parser) {
    for (const QString& name : parser.optionNames()) {
        if (kSettingOptions.contains(name))
            return true;
    }
    return false;
}

QString SiteOptions::protocolFromText(const QString& text) {
    const QString folded = text.trimmed().toCaseFolded();
    for (const QString& protocol : SiteForm::protocols()) {
        if (protocol.toCaseFolded() == folded)
            return protocol;
    }
    if (folded == u"ftp")
        return QStringLiteral("FTP");
    if (folded == u"sftp")
        return QStringLiteral("SFTP");
    if (folded == u"ftps" || folded == u"ftp-implicit")
        return QStringLiteral("FTP with implicit SSL");
    if (folded == u"ftp-tls" || folded == u"ftpes" || folded == u"ftp-ssl")
        return QStringLiteral("FTP with TLS/SSL");
    return text;
}

std::optional<QString> SiteOptions::apply(const QCommandLineParser& parser, SiteForm& form) {
    auto conflict = [&parser](const char* one, const char* other) -> std::optional<QString> {
        if (parser.isSet(QString::fromLatin1(one)) && parser.isSet(QString::fromLatin1(other)))
            return QStringLiteral("--%1 and --%2 contradict each other.")
                .arg(QString::fromLatin1(one), QString::fromLatin1(other));
        return std::nullopt;
    };
    for (const auto& pair :
         {std::pair{"passive", "active"}, std::pair{"auto-deploy", "no-auto-deploy"},
          std::pair{"always-upload", "no-always-upload"}, std::pair{"ignore", "no-ignore"}}) {
        if (auto problem = conflict(pair.first, pair.second))
            return problem;
    }

    auto text = [&parser](const QString& name, QString& field) {
        if (parser.isSet(name))
            field = parser.value(name);
    };
    text(QStringLiteral("name"), form.name);
    if (parser.isSet(QStringLiteral("folder")))
        form.localPath = absolute(parser.value(QStringLiteral("folder")));
    text(QStringLiteral("sync-root"), form.syncRootPath);
    if (parser.isSet(QStringLiteral("protocol")))
        form.protocol = protocolFromText(parser.value(QStringLiteral("protocol")));
    text(QStringLiteral("host"), form.host);
    text(QStringLiteral("port"), form.port);
    text(QStringLiteral("user"), form.username);
    if (parser.isSet(QStringLiteral("key")))
        form.sshKeyPath = absolute(parser.value(QStringLiteral("key")));
    if (parser.isSet(QStringLiteral("passive")))
        form.passiveMode = true;
    if (parser.isSet(QStringLiteral("active")))
        form.passiveMode = false;
    text(QStringLiteral("remote-path"), form.remotePath);
    text(QStringLiteral("branch"), form.deployBranch);
    if (parser.isSet(QStringLiteral("auto-deploy")))
        form.autoDeploy = true;
    if (parser.isSet(QStringLiteral("no-auto-deploy")))
        form.autoDeploy = false;
    if (parser.isSet(QStringLiteral("always-upload")))
        form.mandatoryFiles = parser.values(QStringLiteral("always-upload"));
    if (parser.isSet(QStringLiteral("no-always-upload")))
        form.mandatoryFiles.clear();
    if (parser.isSet(QStringLiteral("ignore")))
        form.ignoredFiles = parser.values(QStringLiteral("ignore"));
    if (parser.isSet(QStringLiteral("no-ignore")))
        form.ignoredFiles.clear();
    text(QStringLiteral("pre-deploy-local"), form.preDeployScriptLocal);
    text(QStringLiteral("post-deploy-local"), form.postDeployScriptLocal);
    text(QStringLiteral("pre-deploy-remote"), form.preDeployScriptRemote);
    text(QStringLiteral("post-deploy-remote"), form.postDeployScriptRemote);
    text(QStringLiteral("remote-pre-connection"), form.remotePreConnectionString);
    text(QStringLiteral("remote-post-connection"), form.remotePostConnectionString);
    return std::nullopt;
}

SiteOptions::Secrets SiteOptions::readSecrets(const QCommandLineParser& parser, SiteForm& form, bool isNew,
                                              bool mayAsk) {
    Secrets secrets;
    Terminal& terminal = Terminal::instance();
    const bool passwordStdin = parser.isSet(QStringLiteral("password-stdin"));
    const bool passphraseStdin = parser.isSet(QStringLiteral("passphrase-stdin"));
    const bool askPassword = parser.isSet(QStringLiteral("ask-password"));
    const bool askPassphrase = parser.isSet(QStringLiteral("ask-passphrase"));
    const bool noPassword = parser.isSet(QStringLiteral("no-password"));
    const bool noPassphrase = parser.isSet(QStringLiteral("no-passphrase"));

    if (int(passwordStdin) + int(askPassword) + int(noPassword) > 1) {
        secrets.error = QStringLiteral("Give the password one way only: --password-stdin, --ask-password or "
                                       "--no-password.");
        return secrets;
    }
    if (int(passphraseStdin) + int(askPassphrase) + int(noPassphrase) > 1) {
        secrets.error =
            QStringLiteral("Give the pass phrase one way only: --passphrase-stdin, --ask-passphrase "
                           "or --no-passphrase.");
        return secrets;
    }
    if ((askPassword || askPassphrase) && !mayAsk) {
        secrets.error = QStringLiteral("--ask-password and --ask-passphrase need a terminal; use "
                                       "--password-stdin or --passphrase-stdin instead.");
        return secrets;
    }

    if (passwordStdin) {
        const auto line = terminal.readLine();
        if (!line) {
            secrets.error =
                QStringLiteral("--password-stdin: standard input holds no line with the password.");
            return secrets;
        }
        form.password = *line;
        secrets.passwordGiven = true;
    }
    if (passphraseStdin) {
        const auto line = terminal.readLine();
        if (!line) {
            secrets.error = passwordStdin
                                ? QStringLiteral("--passphrase-stdin: standard input holds no second "
                                                 "line with the pass phrase.")
                                : QStringLiteral("--passphrase-stdin: standard input holds no line "
                                                 "with the pass phrase.");
            return secrets;
        }
        form.passphrase = *line;
        secrets.passphraseGiven = true;
    }
    if (noPassword) {
        form.password.clear();
        secrets.passwordGiven = true;
    }
    if (noPassphrase) {
        form.passphrase.clear();
        secrets.passphraseGiven = true;
    }

    const bool usesKey = form.protocol == u"SFTP" && !form.sshKeyPath.isEmpty();
    const bool askForPassword = askPassword || (isNew && !secrets.passwordGiven && mayAsk);
    const bool askForPassphrase = askPassphrase || (isNew && !secrets.passphraseGiven && mayAsk && usesKey);
    if (askForPassword) {
        const QString who =
            form.username.isEmpty() ? form.host : form.username + QLatin1Char('@') + form.host;
        const auto answer =
            terminal.ask(QStringLiteral("Password for %1 (empty for none): ").arg(who), false);
        if (!answer) {
            secrets.error = QStringLiteral("No password was typed.");
            return secrets;
        }
        form.password = *answer;
        secrets.passwordGiven = true;
    }
    if (askForPassphrase) {
        const auto answer = terminal.ask(
            QStringLiteral("Pass phrase of the key %1 (empty for none): ").arg(form.sshKeyPath), false);
        if (!answer) {
            secrets.error = QStringLiteral("No pass phrase was typed.");
            return secrets;
        }
        form.passphrase = *answer;
        secrets.passphraseGiven = true;
    }
    if (isNew && !secrets.passwordGiven && !usesKey)
        terminal.errLine(QStringLiteral("No password given: the site is saved without one (give it with "
                                        "--password-stdin, or later with 'tarnwell-cli edit SITE "
                                        "--ask-password')."));
    return secrets;
}

std::optional<QString> SiteOptions::applyTo(const SiteForm& form, Site& site) {
    const QString id = site.siteId();
    const bool storesSecret = !form.password.isEmpty() || !form.passphrase.isEmpty();
    if (storesSecret) {
        if (const auto problem = SecretStoreCheck::problem(id))
            return QStringLiteral("The password cannot be stored: ") + *problem + QLatin1Char('.');
    }
    form.applyTo(site);
    if (!form.password.isEmpty() && TWPasswords::getPasswordForSite(id) != form.password)
        return QStringLiteral("The secret store did not keep the password (see the system log).");
    if (!form.passphrase.isEmpty() && TWPasswords::getPassphraseForSite(id) != form.passphrase)
        return QStringLiteral("The secret store did not keep the pass phrase (see the system log).");
    // The secret store holds the password; the stored site list keeps none.
    site.password.reset();
    return std::nullopt;
}

} // namespace tw::cli
