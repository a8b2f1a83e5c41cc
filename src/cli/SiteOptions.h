#pragma once

#include "editor/SiteForm.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QList>
#include <QString>

#include <optional>

namespace tw::cli {

// The settings of a site as options of 'add' and 'edit', written into the
// site editor's form so that the editor's rules and messages decide what may
// be saved. Secrets never come as arguments: they are read from standard
// input (--password-stdin, --passphrase-stdin) or asked on the terminal
// without echo.
class SiteOptions {
public:
    static QList<QCommandLineOption> options();

    // Writes the options given into the form. Answers a usage problem (such
    // as two options that contradict each other), or nothing.
    static std::optional<QString> apply(const QCommandLineParser& parser, SiteForm& form);

    // Whether any setting or secret option was given.
    static bool anyGiven(const QCommandLineParser& parser);

    struct Secrets {
        bool passwordGiven = false;   // read, asked or removed: the form's password is to be saved
        bool passphraseGiven = false; // the same for the pass phrase
        std::optional<QString> error; // a usage problem, or input that is missing
    };
    // Reads the secrets the options ask for into the form. A new site
    // (isNew) is asked for its password on a terminal when no option says
    // otherwise, and for the pass phrase of an SFTP key.
    static Secrets readSecrets(const QCommandLineParser& parser, SiteForm& form, bool isNew, bool mayAsk);

    // Writes the form into the site, the secrets into the secret store. When
    // a password or pass phrase is to be stored, the store must answer first
    // and must hold the secret afterwards; otherwise the answer says why and
    // the site is not to be saved.
    static std::optional<QString> applyTo(const SiteForm& form, Site& site);

    // "ftp", "sftp", "ftps", "ftp-tls" and the four texts themselves (in any
    // case) become the protocol text a site stores; other text stays as it
    // is, for the form to reject.
    static QString protocolFromText(const QString& text);
};

} // namespace tw::cli
