#include "SiteConnectionTester.h"

#include "transfer/Deployer.h"
#include "transfer/DeployerDelegate.h"
#include "transfer/TestConnection.h"

#include <QCoreApplication>
#include <QSet>

#include <memory>

namespace tw {

namespace {

// One test under way: the engine, the tester (the engine's delegate) and
// whom to tell.
struct RunningTest : DeployerDelegate {
    std::optional<QString> setupError;
    std::shared_ptr<Transporter> transporter;
    std::unique_ptr<TestConnection> test;
    SiteConnectionTester::Done done;

    void setupTransporterDidFailWithError(const Error& error) override {
        setupError = error.localizedDescription;
    }
};

// Tests are kept here until their answer has been given.
QSet<std::shared_ptr<RunningTest>>& runningTests() {
    static QSet<std::shared_ptr<RunningTest>> tests;
    return tests;
}

// Answers on the event loop, after the engine's own callback has returned;
// only then the test and its engine go.
void finish(const std::shared_ptr<RunningTest>& running, const std::optional<QString>& error) {
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [running, error] {
            if (!runningTests().remove(running))
                return; // answered already
            if (running->done)
                running->done(error);
        },
        Qt::QueuedConnection);
}

} // namespace

void SiteConnectionTester::start(const SitePtr& site, Done done) {
    auto running = std::make_shared<RunningTest>();
    running->done = std::move(done);
    runningTests().insert(running);

    Deployer deployer(site);
    deployer.setDelegate(running.get());
    deployer.setupTransporter();
    running->transporter = deployer.getTransporter();
    if (!running->transporter) {
        finish(running,
               running->setupError.value_or(QStringLiteral("No connection could be set up for the site.")));
        return;
    }
    running->test = std::make_unique<TestConnection>(running->transporter);
    std::weak_ptr<RunningTest> weak = running;
    const std::optional<CheckSumError> failed =
        running->test->checkWithCompletion([weak](const std::optional<Error>& error) {
            if (const std::shared_ptr<RunningTest> test = weak.lock())
                finish(test, error ? std::optional<QString>(error->localizedDescription) : std::nullopt);
        });
    if (failed)
        finish(running, QStringLiteral("The test file could not be written to the temporary folder."));
}

SiteEditorDialog::ConnectionTester SiteConnectionTester::tester() {
    return [](const SitePtr& site, std::function<void(const std::optional<QString>&)> done) {
        start(site, std::move(done));
    };
}

int SiteConnectionTester::running() {
    return static_cast<int>(runningTests().size());
}

} // namespace tw
