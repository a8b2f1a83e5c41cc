#pragma once

#include "app/Error.h"
#include "transfer/CheckSumError.h"
#include "transfer/Transporter.h"
#include "transfer/TransporterDelegate.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace tw {

// Tries a site's server settings by uploading one small file, ".test", to the
// remote base path through the transporter it is given (single mode, tag
// "Upload"). The file stays on the server. The completion hears nothing when
// the upload worked, or the error (application domain, code 1) whose text is
// curl's cleaned-up message ("(67) Access denied: 530").
//
// The tester is the transporter's delegate while the test runs: keep it
// alive until the completion has been called. Its destructor lets go of the
// delegate role if it still has it.
class TestConnection : public TransporterDelegate {
public:
    using Completion = std::function<void(std::optional<Error> error)>;

    explicit TestConnection(std::shared_ptr<Transporter> transporter);
    ~TestConnection() override;
    TestConnection(const TestConnection&) = delete;
    TestConnection& operator=(const TestConnection&) = delete;

    const QString file = QStringLiteral(".test");

    const std::shared_ptr<Transporter>& transporter() const { return m_transporter; }
    const QString& lastError() const { return m_lastError; }
    // What the test file holds (empty unless set).
    const QString& fileContents() const { return m_fileContents; }
    void setFileContents(const QString& contents) { m_fileContents = contents; }

    // Starts the test. Answers uploadError (and calls nothing) when the local
    // test file could not be made. The local temporary file is removed when
    // the upload is over.
    std::optional<CheckSumError> checkWithCompletion(Completion completion);

    // TransporterDelegate
    void didCompleteAllRequests(const QString& tag) override;
    void didCompleteAllWithErrors(const QString& tag) override;
    void didFail(const TransporterFilePtr& file, const QString& error) override;

private:
    void removeTemporaryFile();

    std::shared_ptr<Transporter> m_transporter;
    QString m_lastError;
    QString m_fileContents;
    Completion m_completion;
    std::optional<QString> m_temporaryFile;
};

} // namespace tw
