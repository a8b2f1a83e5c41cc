#include "TestConnection.h"

#include "app/Logger.h"

#include <QDir>
#include <QFile>
#include <QUuid>

#include <utility>

namespace tw {

TestConnection::TestConnection(std::shared_ptr<Transporter> transporter)
    : m_transporter(std::move(transporter)) {}

TestConnection::~TestConnection() {
    if (m_transporter && m_transporter->delegate() == this)
        m_transporter->setDelegate(nullptr);
    removeTemporaryFile();
}

void TestConnection::removeTemporaryFile() {
    if (m_temporaryFile)
        QFile::remove(*m_temporaryFile);
    m_temporaryFile.reset();
}

std::optional<CheckSumError> TestConnection::checkWithCompletion(Completion completion) {
    m_completion = std::move(completion);
    m_transporter->setDebug(false);
    m_transporter->setDelegate(this);

    const QString folder = QDir::tempPath();
    if (folder.isEmpty())
        return CheckSumError::uploadError; // no path: cannotParseURL
    const QString path =
        folder + QLatin1Char('/') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    QFile local(path);
    const QByteArray content = m_fileContents.toUtf8();
    if (!local.open(QIODevice::WriteOnly | QIODevice::Truncate) || local.write(content) != content.size()) {
        local.close();
        QFile::remove(path);
        Logger::sharedInstance().log(QStringLiteral("Cannot write to file: ") + path);
        return CheckSumError::uploadError; // cannotWriteFile
    }
    local.close();
    removeTemporaryFile();
    m_temporaryFile = path;

    m_transporter->uploadFile(path, file);
    m_transporter->setTag(QStringLiteral("Upload"));
    m_transporter->run();
    return std::nullopt;
}

void TestConnection::didFail(const TransporterFilePtr& item, const QString& error) {
    Q_UNUSED(item);
    m_lastError = error;
    Logger::sharedInstance().log(QStringLiteral("Test Connection Did Fail. Reason: ") + error);
}

void TestConnection::didCompleteAllWithErrors(const QString& tag) {
    Q_UNUSED(tag);
    removeTemporaryFile();
    if (m_completion) {
        const Completion completion = m_completion;
        completion(Error::application(1, m_lastError));
    }
}

void TestConnection::didCompleteAllRequests(const QString& tag) {
    Q_UNUSED(tag);
    removeTemporaryFile();
    if (m_completion) {
        const Completion completion = m_completion;
        completion(std::nullopt);
    }
}

} // namespace tw
