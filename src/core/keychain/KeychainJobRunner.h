#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace tw {

// Runs the secret store's jobs (QtKeychain, which talks to the desktop's
// Secret Service) on a thread of their own and waits for each with a time
// limit. The jobs are asynchronous while the callers want an answer at once;
// waiting on another thread keeps the caller's event loop from running other
// work in between, and the time limit keeps a keyring that prompts, or a
// service that never answers, from hanging the program.
class KeychainJobRunner {
public:
    enum class Outcome { Success, NotFound, AccessDenied, NoBackend, TimedOut, OtherError };

    struct Result {
        Outcome outcome = Outcome::OtherError;
        QByteArray data;     // the item's data for a successful read
        QString errorString; // the store's own explanation, when it failed
    };

    static Result read(const QString& service, const QString& key);
    static Result write(const QString& service, const QString& key, const QByteArray& data);
    static Result remove(const QString& service, const QString& key);

    // How long one job may take; 5 seconds unless changed.
    static void setTimeout(int milliseconds);
    static int timeout();
};

} // namespace tw
