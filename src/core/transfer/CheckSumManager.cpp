#include "CheckSumManager.h"

#include "app/Logger.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QThread>
#include <QUrl>
#include <QUuid>

#include <charconv>
#include <cmath>
#include <utility>

namespace tw {

namespace {

// The largest time the record may name: QDateTime holds far more, but
// milliseconds must fit comfortably in 64 bits.
constexpr double maximumSeconds = 1e14;

QDateTime dateFromSeconds(double seconds) {
    if (!std::isfinite(seconds) || std::fabs(seconds) > maximumSeconds)
        seconds = 0; // a time no clock can show reads as no time
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::llround(seconds * 1000.0)));
}

} // namespace

CheckSumManager::CheckSumManager(std::shared_ptr<Transporter> transporter)
    : m_transporter(std::move(transporter)) {
    m_timer.setParent(this); // moves with the manager
    m_timer.setSingleShot(false);
    connect(&m_timer, &QTimer::timeout, this, &CheckSumManager::timeOutForReading);
    if (QCoreApplication* application = QCoreApplication::instance();
        application && thread() != application->thread())
        moveToThread(application->thread());
}

CheckSumManager::~CheckSumManager() {
    if (m_transporter && m_transporter->delegate() == this)
        m_transporter->setDelegate(nullptr);
    m_timer.setParent(nullptr);
    removeTemporaryFiles();
}

void CheckSumManager::onMainThread(std::function<void()> work) {
    QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void CheckSumManager::removeTemporaryFiles() {
    for (const QString& path : std::as_const(m_temporaryFiles))
        QFile::remove(path);
    m_temporaryFiles.clear();
}

// ---------------------------------------------------------------------------
// The record's text

QString CheckSumManager::formatSeconds(double seconds) {
    QString text = QString::number(seconds, 'f', QLocale::FloatingPointShortest);
    if (std::isfinite(seconds) && !text.contains(QLatin1Char('.')))
        text += QStringLiteral(".0");
    return text;
}

QString CheckSumManager::recordText(const QString& commit, const QDateTime& when, const QString& branch) {
    const double seconds = static_cast<double>(when.toMSecsSinceEpoch()) / 1000.0;
    return commit + QLatin1Char(',') + formatSeconds(seconds) + QLatin1Char(',') + branch;
}

double CheckSumManager::readLenientNumber(QStringView text) {
    qsizetype index = 0;
    while (index < text.size() && text.at(index).isSpace())
        ++index;
    // [+-]digits[.digits][(e|E)[+-]digits], as much of it as there is.
    QByteArray number;
    auto isDigit = [&](qsizetype at) {
        return at < text.size() && text.at(at) >= u'0' && text.at(at) <= u'9';
    };
    if (index < text.size() && (text.at(index) == u'+' || text.at(index) == u'-')) {
        if (text.at(index) == u'-')
            number.append('-');
        ++index;
    }
    bool hasDigits = false;
    while (isDigit(index)) {
        number.append(static_cast<char>(text.at(index++).unicode()));
        hasDigits = true;
    }
    if (index < text.size() && text.at(index) == u'.') {
        qsizetype after = index + 1;
        QByteArray fraction(".");
        while (isDigit(after)) {
            fraction.append(static_cast<char>(text.at(after++).unicode()));
            hasDigits = true;
        }
        number.append(fraction);
        index = after;
    }
    if (!hasDigits)
        return 0;
    if (index < text.size() && (text.at(index) == u'e' || text.at(index) == u'E')) {
        qsizetype after = index + 1;
        QByteArray exponent("e");
        if (after < text.size() && (text.at(after) == u'+' || text.at(after) == u'-'))
            exponent.append(static_cast<char>(text.at(after++).unicode()));
        if (isDigit(after)) {
            while (isDigit(after))
                exponent.append(static_cast<char>(text.at(after++).unicode()));
            number.append(exponent);
        }
    }
    double value = 0;
    const auto [end, error] = std::from_chars(number.constData(), number.constData() + number.size(), value);
    Q_UNUSED(end);
    if (error == std::errc::result_out_of_range) {
        const bool tiny = number.contains("e-");
        const bool negative = number.startsWith('-');
        if (tiny)
            return negative ? -0.0 : 0.0;
        return negative ? -HUGE_VAL : HUGE_VAL;
    }
    if (error != std::errc())
        return 0;
    return value;
}

std::optional<CheckSumManager::Record> CheckSumManager::parseRecord(const QString& content) {
    const QStringList pieces = content.split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (pieces.isEmpty())
        return std::nullopt;
    Record record;
    record.commit = pieces.at(0);
    record.date =
        pieces.size() > 1 ? dateFromSeconds(readLenientNumber(pieces.at(1))) : QDateTime::currentDateTime();
    if (pieces.size() > 2)
        record.branch = pieces.at(2);
    return record;
}

// ---------------------------------------------------------------------------
// Writing

std::optional<QString> CheckSumManager::createDeployDataFile(const QString& commit, const QDateTime& when,
                                                             const QString& branch,
                                                             std::optional<CheckSumError>* error) {
    // An empty temporary path (TMPDIR names no folder) is no place to write.
    const QString folder = QDir::tempPath();
    const QString path =
        folder + QLatin1Char('/') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    if (folder.isEmpty()) {
        Logger::sharedInstance().log(QStringLiteral("Cannot write: ") + QUrl::fromLocalFile(path).toString());
        if (error)
            *error = CheckSumError::cannotWriteFile;
        return std::nullopt;
    }
    QFile file(path);
    const QByteArray content = recordText(commit, when, branch).toUtf8();
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size()) {
        file.close();
        QFile::remove(path);
        Logger::sharedInstance().log(QStringLiteral("Cannot write: ") + QUrl::fromLocalFile(path).toString());
        if (error)
            *error = CheckSumError::cannotWriteFile;
        return std::nullopt;
    }
    file.close();
    return path;
}

std::optional<CheckSumError> CheckSumManager::upload(const QString& commit, const QDateTime& when,
                                                     const QString& branch, UploadCompletion completion) {
    m_transporter->setDelegate(this);
    m_uploadCompletion = std::move(completion);
    std::optional<CheckSumError> error;
    const std::optional<QString> path = createDeployDataFile(commit, when, branch, &error);
    if (!path) {
        Logger::sharedInstance().log(QStringLiteral("Upload error in Checksum Manager: ") +
                                     describe(error.value_or(CheckSumError::cannotWriteFile)));
        return CheckSumError::uploadError;
    }
    m_temporaryFiles.append(*path);
    m_transporter->uploadFile(*path, gitCommitFile);
    m_transporter->run();
    return std::nullopt;
}

// ---------------------------------------------------------------------------
// Reading

void CheckSumManager::check(Completion completion) {
    m_transporter->setDelegate(this);
    m_completion = std::move(completion);
    m_delivered = false;
    m_transporter->readFile(gitCommitFile);
    m_transporter->run();
}

void CheckSumManager::deliver(const std::optional<QString>& commit, const std::optional<QDateTime>& date,
                              const std::optional<QString>& branch, const std::optional<Error>& error) {
    if (!m_completion || m_delivered)
        return;
    m_delivered = true;
    // The completion may let go of this manager: nothing here is touched after it.
    const Completion completion = m_completion;
    completion(commit, date, branch, error);
}

void CheckSumManager::didCompleteReadingFile(const TransporterFilePtr& file, const QString& content) {
    Q_UNUSED(file);
    const std::optional<Record> record = parseRecord(content);
    onMainThread([this] {
        m_timer.stop();
        m_isFinished = true;
    });
    if (!record) {
        deliver(std::nullopt, std::nullopt, std::nullopt,
                Error::application(unknownResponseCode, unknownResponseText()));
        return;
    }
    deliver(record->commit, record->date, record->branch, std::nullopt);
}

void CheckSumManager::didCompleteAllRequests(const QString& tag) {
    Q_UNUSED(tag);
    removeTemporaryFiles();
    if (UploadCompletion uploaded = std::exchange(m_uploadCompletion, nullptr)) {
        onMainThread([uploaded] { uploaded(std::nullopt); });
        return;
    }
    onMainThread([this] { m_timer.start(m_readTimeout); });
}

void CheckSumManager::timeOutForReading() {
    if (!m_completion)
        return;
    onMainThread([this] {
        m_timer.stop();
        if (!m_isFinished)
            deliver(std::nullopt, std::nullopt, std::nullopt,
                    Error::application(unknownResponseCode, unknownResponseText()));
    });
}

void CheckSumManager::didFail(const TransporterFilePtr& file, const QString& error) {
    Q_UNUSED(file);
    m_lastError = error;
    Logger::sharedInstance().log(QStringLiteral("Checksum Did fail. Reason: ") + error);
}

void CheckSumManager::didCompleteAllWithErrors(const QString& tag) {
    Q_UNUSED(tag);
    removeTemporaryFiles();
    if (UploadCompletion uploaded = std::exchange(m_uploadCompletion, nullptr)) {
        const Error error = Error::application(readErrorCode, m_lastError);
        Logger::sharedInstance().log(QStringLiteral("Checksum Manager: the record was not written: ") +
                                     m_lastError);
        onMainThread([uploaded, error] { uploaded(error); });
        return;
    }
    if (!m_completion)
        return;
    const Error error = Error::application(readErrorCode, m_lastError);
    Logger::sharedInstance().log(QStringLiteral("Checksum Manager: ") + m_lastError);
    deliver(std::nullopt, std::nullopt, std::nullopt, error);
}

} // namespace tw
