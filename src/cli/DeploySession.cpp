#include "DeploySession.h"

#include "InterruptWatcher.h"
#include "Terminal.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

namespace tw::cli {

DeploySession::DeploySession(const QString& siteId, PresetAnswers answers, bool showProgress)
    : m_interaction(Terminal::instance(), std::move(answers))
    , m_progress(showProgress ? std::make_unique<ProgressPrinter>(Terminal::instance()) : nullptr)
    , m_view(m_interaction, m_progress.get())
    , m_controller(std::make_unique<ViewController>(m_view)) {
    m_controller->pinSite(siteId);
    if (m_progress)
        QObject::connect(m_controller.get(), &ViewController::progressChanged, m_progress.get(),
                         &ProgressPrinter::fileCount);
}

DeploySession::~DeploySession() {
    // The controller goes first: it may still talk to the view.
    m_controller.reset();
}

void DeploySession::load() {
    m_controller->viewDidLoad();
    // The placeholder of a wrong branch comes on the event loop.
    QCoreApplication::processEvents();
}

std::optional<QString> DeploySession::listingProblem() {
    const SitePtr& site = m_controller->currentSite;
    if (!site)
        return QStringLiteral("No sites defined.");
    if (m_controller->files)
        return std::nullopt;
    if (!site->localPath || site->localPath->isEmpty())
        return QStringLiteral("The site has no repository folder; give it one with 'tarnwell-cli edit SITE "
                              "--folder DIR'.");
    const QString deployBranch = site->deployBranch.value_or(QString());
    const std::optional<QString> checkedOut = m_controller->checkOutedBranch();
    switch (m_view.placeholder()) {
    case TerminalDeployView::Placeholder::NotValidRepository:
        if (m_view.placeholderText() == u"No valid git repository")
            return m_view.placeholderText() +
                   QStringLiteral(": the folder \u2018%1\u2019 does not exist.").arg(*site->localPath);
        return m_view.placeholderText();
    case TerminalDeployView::Placeholder::WrongBranch:
        return QStringLiteral(
                   "%1: \u2018%2\u2019 is checked out, and the site deploys branch \u2018%3\u2019. "
                   "Check out branch \u2018%3\u2019 first.")
            .arg(m_view.placeholderText(), checkedOut.value_or(QString()), m_view.correctBranch());
    default:
        break;
    }
    if (checkedOut != deployBranch)
        return QStringLiteral("\u2018%1\u2019 is checked out with uncommitted changes, and the site deploys "
                              "branch \u2018%2\u2019.")
            .arg(checkedOut.value_or(QStringLiteral("(nothing)")), deployBranch);
    return QStringLiteral("The files of the site cannot be listed.");
}

DeploySession::Counts DeploySession::counts() const {
    Counts counts;
    if (!m_controller->files)
        return counts;
    for (const FilePtr& file : *m_controller->files) {
        const bool mandatory = file->gitStatus == u"-";
        if (!file->willUpload) {
            if (!mandatory)
                ++counts.waiting;
        } else if (mandatory) {
            ++counts.alwaysUploaded;
        } else if (file->gitStatus == u"D") {
            ++counts.deletions;
        } else {
            ++counts.uploads;
        }
    }
    return counts;
}

bool DeploySession::isIdle() const {
    return m_controller->isIdle();
}

DeploySession::Result DeploySession::deploy() {
    std::optional<Result> result;
    bool interrupted = InterruptWatcher::wasInterrupted();
    bool done = false;
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(50);

    const auto check = [&] {
        if (done || !result)
            return;
        if (!isIdle()) {
            poll.start();
            return;
        }
        done = true;
        poll.stop();
        loop.quit();
    };
    connect(&poll, &QTimer::timeout, &loop, check);
    connect(m_controller.get(), &ViewController::deploymentEnded, &loop,
            [&](DeployOutcome outcome, const QString& message, const RunSummary& summary) {
                if (!result)
                    result = Result{outcome, message, false, summary};
                check();
            });
    connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &loop, [&] {
        interrupted = true;
        m_controller->abortDeploy();
        check();
    });

    if (interrupted)
        return Result{DeployOutcome::Aborted, QStringLiteral("Deployment aborted"), true, {}};
    m_controller->deployButton();
    check();
    if (!done)
        loop.exec();
    Result ended =
        result.value_or(Result{DeployOutcome::Aborted, QStringLiteral("Deployment aborted"), false, {}});
    ended.interrupted = interrupted || InterruptWatcher::wasInterrupted();
    return ended;
}

} // namespace tw::cli
