#include "ConnectionTestRow.h"

#include "ThemeColors.h"
#include "deploy/FailureExplanation.h"
#include "keychain/TWPasswords.h"
#include "model/TWUtilities.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>

namespace tw {

namespace {

enum Kind { Neutral, Failure, Success };

std::optional<QString> nonEmpty(const QString& text) {
    return text.isEmpty() ? std::nullopt : std::optional<QString>(text);
}

} // namespace

ConnectionTestRow::ConnectionTestRow(QWidget* parent)
    : QWidget(parent) {
    m_button = new QPushButton(tr("Test Connection"), this);
    m_button->setObjectName(QStringLiteral("testConnectionButton"));
    m_button->setAutoDefault(false);
    connect(m_button, &QPushButton::clicked, this, &ConnectionTestRow::clicked);
    m_result = new QLabel(this);
    m_result->setObjectName(QStringLiteral("connectionTestResult"));
    m_result->setWordWrap(true);
    m_result->setTextFormat(Qt::PlainText);
    m_result->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 6, 0, 0);
    layout->addWidget(m_button, 0, Qt::AlignTop);
    layout->addWidget(m_result, 1);
    setTester(nullptr);
}

SitePtr ConnectionTestRow::probeFor(Site& site, const SiteForm& form) {
    SitePtr probe = site.copy();
    probe->generateSiteId();
    probe->protocol = form.protocol;
    probe->host = form.host.trimmed();
    probe->port = nonEmpty(form.port);
    probe->username = form.username;
    probe->sshKeyPath = nonEmpty(form.sshKeyPath);
    probe->passiveMode = form.passiveMode;
    probe->remotePath = TWUtilities::fixSlashes(form.remotePath);
    return probe;
}

void ConnectionTestRow::setTester(Tester tester) {
    m_tester = std::move(tester);
    m_button->setEnabled(static_cast<bool>(m_tester) && !m_testing);
    m_button->setToolTip(m_tester ? tr("Uploads a small file named .test to the remote path")
                                  : tr("The connection test is not available"));
}

void ConnectionTestRow::setResult(const QString& text, const QString& details, int kind) {
    m_result->setText(text);
    m_result->setToolTip(details.isEmpty() ? QString() : text + QStringLiteral("\n\n") + details);
    m_result->setStyleSheet(kind == Neutral ? QString()
                                            : ThemeColors::styleSheetColor(
                                                  kind == Failure ? ThemeColors::errorText(palette())
                                                                  : ThemeColors::successText(palette())));
}

void ConnectionTestRow::showRefusal(const QString& text) {
    setResult(text, QString(), Failure);
}

void ConnectionTestRow::clearResult() {
    // A test under way was for the old settings: its answer is dropped when
    // it comes, and a test of the new ones may start now.
    ++m_generation;
    m_testing = false;
    m_button->setEnabled(static_cast<bool>(m_tester));
    setResult(QString(), QString(), Neutral);
}

QString ConnectionTestRow::resultText() const {
    return m_result->text();
}

void ConnectionTestRow::run(const SitePtr& probe, const QString& password, const QString& passphrase) {
    if (!m_tester || m_testing)
        return;
    const QString probeId = probe->siteId();
    // The probe's id is new: an empty secret has nothing to remove.
    if ((!password.isEmpty() && !TWPasswords::setPassword(password, probeId)) ||
        (!passphrase.isEmpty() && !TWPasswords::setPassphrase(passphrase, probeId))) {
        TWPasswords::setPassword(std::nullopt, probeId);
        showRefusal(tr("The test cannot use the password: the secret store did not answer or is locked."));
        return;
    }
    m_testing = true;
    const quint64 generation = ++m_generation;
    m_button->setEnabled(false);
    const QString host = probe->host.value_or(QString());
    setResult(tr("Connecting to %1\u2026").arg(host), QString(), Neutral);
    const FailureExplanation::Context context = FailureExplanation::Context::of(*probe);
    QPointer<ConnectionTestRow> self(this);
    m_tester(probe, [self, probeId, context, generation](const std::optional<QString>& error) {
        TWPasswords::setPassword(std::nullopt, probeId);
        TWPasswords::setPassphrase(std::nullopt, probeId);
        if (!self || self->m_generation != generation)
            return;
        self->m_testing = false;
        self->m_button->setEnabled(static_cast<bool>(self->m_tester));
        QString message;
        if (error) {
            const FailureExplanation explained = FailureExplanation::explain(*error, context);
            message = tr("The connection failed: %1")
                          .arg(error->isEmpty() ? tr("no reason given") : explained.summary());
            self->setResult(message, explained.details(), Failure);
        } else {
            message = tr("The connection works: the server took a test file.");
            self->setResult(message, QString(), Success);
        }
        emit self->finished(!error.has_value(), message);
    });
}

} // namespace tw
