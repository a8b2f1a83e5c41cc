#include "KeychainJobRunner.h"

#include <QCoreApplication>
#include <QPointer>
#include <QThread>
#include <qt6keychain/keychain.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>

namespace tw {

namespace {

std::atomic<int> jobTimeout{5000};

enum class Kind { Read, Write, Remove };

// The thread on which every job is created and finished. It lives until the
// process ends.
QThread* keychainThread() {
    static QThread* thread = [] {
        auto* t = new QThread;
        t->setObjectName(QStringLiteral("keychain"));
        t->start();
        return t;
    }();
    return thread;
}

KeychainJobRunner::Outcome outcomeOf(QKeychain::Error error) {
    switch (error) {
    case QKeychain::NoError:
        return KeychainJobRunner::Outcome::Success;
    case QKeychain::EntryNotFound:
        return KeychainJobRunner::Outcome::NotFound;
    case QKeychain::AccessDenied:
    case QKeychain::AccessDeniedByUser:
        return KeychainJobRunner::Outcome::AccessDenied;
    case QKeychain::NoBackendAvailable:
        return KeychainJobRunner::Outcome::NoBackend;
    default:
        return KeychainJobRunner::Outcome::OtherError;
    }
}

KeychainJobRunner::Result run(Kind kind, const QString& service, const QString& key, const QByteArray& data) {
    auto promise = std::make_shared<std::promise<KeychainJobRunner::Result>>();
    std::future<KeychainJobRunner::Result> future = promise->get_future();

    QThread* thread = keychainThread();
    auto start = [kind, service, key, data, promise] {
        QKeychain::Job* job = nullptr;
        switch (kind) {
        case Kind::Read:
            job = new QKeychain::ReadPasswordJob(service);
            break;
        case Kind::Write: {
            auto* write = new QKeychain::WritePasswordJob(service);
            write->setBinaryData(data);
            job = write;
            break;
        }
        case Kind::Remove:
            job = new QKeychain::DeletePasswordJob(service);
            break;
        }
        // Never the plain-text fallback: it writes secrets to a readable file.
        job->setInsecureFallback(false);
        job->setAutoDelete(true);
        job->setKey(key);
        QObject::connect(job, &QKeychain::Job::finished, job, [kind, promise](QKeychain::Job* finished) {
            KeychainJobRunner::Result result;
            result.outcome = outcomeOf(finished->error());
            result.errorString = finished->errorString();
            if (kind == Kind::Read && result.outcome == KeychainJobRunner::Outcome::Success)
                result.data = static_cast<QKeychain::ReadPasswordJob*>(finished)->binaryData();
            promise->set_value(result);
        });
        job->start();
    };

    if (QThread::currentThread() == thread) {
        // Already on the keychain thread (never expected): cannot wait here.
        return {KeychainJobRunner::Outcome::OtherError, {}, QStringLiteral("nested secret store call")};
    }
    auto* context = new QObject;
    context->moveToThread(thread);
    QMetaObject::invokeMethod(
        context,
        [start, context] {
            start();
            context->deleteLater();
        },
        Qt::QueuedConnection);

    if (future.wait_for(std::chrono::milliseconds(jobTimeout.load())) != std::future_status::ready) {
        // The job finishes later on its own thread and its answer is dropped.
        return {KeychainJobRunner::Outcome::TimedOut,
                {},
                QStringLiteral("the secret store did not answer within %1 ms").arg(jobTimeout.load())};
    }
    return future.get();
}

} // namespace

KeychainJobRunner::Result KeychainJobRunner::read(const QString& service, const QString& key) {
    return run(Kind::Read, service, key, {});
}

KeychainJobRunner::Result KeychainJobRunner::write(const QString& service, const QString& key,
                                                   const QByteArray& data) {
    return run(Kind::Write, service, key, data);
}

KeychainJobRunner::Result KeychainJobRunner::remove(const QString& service, const QString& key) {
    return run(Kind::Remove, service, key, {});
}

void KeychainJobRunner::setTimeout(int milliseconds) {
    jobTimeout = milliseconds;
}

int KeychainJobRunner::timeout() {
    return jobTimeout.load();
}

} // namespace tw
