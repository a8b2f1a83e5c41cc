#pragma once

#include "app/Error.h"
#include "transfer/CheckSumError.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterDelegate.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace tw {

// The small record of the last deployment that the server keeps: a file
// ".tarnwell" at the remote base path holding "commit,time,branch" (UTF-8,
// no line break; the time in seconds since 1970 as the shortest decimal that
// reads back to the same double, always with a fraction: "86400.0").
//
// The manager writes and reads the record through the transporter it is
// given, in single mode, acting as that transporter's delegate while it
// works (upload() and check() make it so; the destructor lets go of the role
// if it still has it). Keep the manager alive while a check or an upload
// runs.
//
// Errors of making the record file are returned, not thrown. Errors of
// reading it reach the check callback in the application's error domain:
// code 1 with curl's cleaned-up text when the read failed ("(78) ..." when
// there is no record yet), code 2 "Could not parse checksum. Unknown server
// response." when the read ended without a usable record (the time-out, an
// empty record).
class CheckSumManager : public QObject, public TransporterDelegate {
    Q_OBJECT

public:
    using Completion = std::function<void(std::optional<QString> commit, std::optional<QDateTime> date,
                                          std::optional<QString> branch, std::optional<Error> error)>;

    // One record as read back. Further pieces of the text are ignored.
    struct Record {
        QString commit;
        QDateTime date;
        QString branch; // empty when the record has none
    };

    // Lives on the main thread (moved there if made elsewhere): the read
    // time-out runs on its event loop.
    explicit CheckSumManager(std::shared_ptr<Transporter> transporter);
    ~CheckSumManager() override;

    const QString gitCommitFile = QStringLiteral(".tarnwell");

    const std::shared_ptr<Transporter>& transporter() const { return m_transporter; }
    // The last error text the transporter reported.
    const QString& lastError() const { return m_lastError; }
    // A read result has been delivered. Never reset: later time-outs of this
    // manager do nothing.
    bool isFinished() const { return m_isFinished; }

    // The interval of the repeating read time-out (8 s); tests shorten it.
    std::chrono::milliseconds readTimeout() const { return m_readTimeout; }
    void setReadTimeout(std::chrono::milliseconds interval) { m_readTimeout = interval; }
    bool isTimerActive() const { return m_timer.isActive(); }

    // Writes the record to a new file in the temporary folder named by a
    // fresh UUID and answers its path; nothing with *error set (and a log
    // line) when it cannot be written.
    std::optional<QString> createDeployDataFile(const QString& commit, const QDateTime& when,
                                                const QString& branch,
                                                std::optional<CheckSumError>* error = nullptr);
    // Writes the record and uploads it as ".tarnwell". Answers uploadError
    // when the file could not be made. The temporary file is removed when the
    // upload is over. When a completion is given, it is called once the
    // upload has ended: with nothing when the record is on the server, with
    // an error (curl's text) when it is not. A record that was not written is
    // never a deployment's success.
    using UploadCompletion = std::function<void(std::optional<Error> error)>;
    std::optional<CheckSumError> upload(const QString& commit, const QDateTime& when, const QString& branch,
                                        UploadCompletion completion = nullptr);
    // Reads ".tarnwell" from the server. The completion is called at most
    // once per check, on the thread that delivered the result (the content,
    // the error or the time-out): with the commit, the date and the branch,
    // or with an error. A new check replaces the completion of the last one.
    void check(Completion completion);
    // The repeating timer's action.
    void timeOutForReading();

    // The record's text.
    static QString recordText(const QString& commit, const QDateTime& when, const QString& branch);
    // Seconds as written in the record.
    static QString formatSeconds(double seconds);
    // The record read from text: split at every ",", empty pieces dropped;
    // the first piece is the commit, the second the time (read leniently; no
    // second piece: now), the third the branch. Nothing when no piece is left.
    static std::optional<Record> parseRecord(const QString& content);
    // Leading white space skipped, then as much of a decimal number as there
    // is ("12.5abc" is 12.5); no number at all is 0.
    static double readLenientNumber(QStringView text);

    // TransporterDelegate
    void didCompleteReadingFile(const TransporterFilePtr& file, const QString& content) override;
    void didCompleteAllRequests(const QString& tag) override;
    void didCompleteAllWithErrors(const QString& tag) override;
    void didFail(const TransporterFilePtr& file, const QString& error) override;

    static constexpr qint64 readErrorCode = 1;
    static constexpr qint64 unknownResponseCode = 2;
    static QString unknownResponseText() {
        return QStringLiteral("Could not parse checksum. Unknown server response.");
    }

private:
    void deliver(const std::optional<QString>& commit, const std::optional<QDateTime>& date,
                 const std::optional<QString>& branch, const std::optional<Error>& error);
    void onMainThread(std::function<void()> work);
    void removeTemporaryFiles();

    std::shared_ptr<Transporter> m_transporter;
    QString m_lastError;
    Completion m_completion;
    UploadCompletion m_uploadCompletion;
    QTimer m_timer;
    bool m_isFinished = false;
    bool m_delivered = false; // the current check has called its completion
    std::chrono::milliseconds m_readTimeout{8000};
    // The record files made for uploads: removed once the upload is over
    // (or with the manager), so the temporary folder keeps no litter.
    QStringList m_temporaryFiles;
};

} // namespace tw
