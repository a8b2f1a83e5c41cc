#include "deploy/PreflightDecision.h"

#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(tw::ServerRecord)

// The check of the server's record before a run, without servers: every row
// of the decision and the meaning of every answer.
class TestPreflightDecision : public QObject {
    Q_OBJECT

    // Newest first.
    const QStringList commits{u"ccc3333"_s, u"bbb2222"_s, u"aaa1111"_s};

private slots:
    void decisions_data() {
        QTest::addColumn<ServerRecord>("record");
        QTest::addColumn<QString>("local"); // empty: never deployed
        QTest::addColumn<int>("action");
        QTest::addColumn<int>("question");
        QTest::addColumn<QString>("message");

        const int deploy = int(PreflightDecision::Action::Deploy);
        const int fail = int(PreflightDecision::Action::Fail);
        const int ask = int(PreflightDecision::Action::Ask);
        const int none = -1;
        const QString branch = u"Target site was last deployed with a different branch"_s;
        const QString unknown =
            u"Last deployed commit on target site is unknown. Are you sure to continue?"_s;
        const QString later = u"Last deployed commit on target site is later. Are you sure to continue?"_s;
        const QString earlier = u"Last commit on target site is earlier"_s;

        QTest::newRow("no record: first deployment here")
            << ServerRecord::fromReadError(Error::application(1, u"(78) The file does not exist"_s))
            << u"bbb2222"_s << deploy << none << QString();
        QTest::newRow("no remote folder yet: first deployment")
            << ServerRecord::fromReadError(
                   Error::application(1, u"(9) Server denied you to change to the given directory"_s))
            << QString() << deploy << none << QString();
        QTest::newRow("login refused: fails")
            << ServerRecord::fromReadError(Error::application(1, u"(67) Access denied: 530"_s))
            << u"bbb2222"_s << fail << none << QString();
        QTest::newRow("same commit: no question")
            << ServerRecord::found(u"bbb2222"_s, u"main"_s) << u"bbb2222"_s << deploy << none << QString();
        QTest::newRow("other branch, same commit: no question")
            << ServerRecord::found(u"bbb2222"_s, u"other"_s) << u"bbb2222"_s << deploy << none << QString();
        QTest::newRow("other branch comes before the commit")
            << ServerRecord::found(u"ccc3333"_s, u"other"_s) << u"bbb2222"_s << ask
            << int(PreflightQuestion::WrongBranch) << branch;
        QTest::newRow("record without branch counts as another branch")
            << ServerRecord::found(u"ccc3333"_s, QString()) << u"bbb2222"_s << ask
            << int(PreflightQuestion::WrongBranch) << branch;
        QTest::newRow("unknown commit") << ServerRecord::found(u"deadbee"_s, u"main"_s) << u"bbb2222"_s << ask
                                        << int(PreflightQuestion::UnknownCommit) << unknown;
        QTest::newRow("later commit") << ServerRecord::found(u"ccc3333"_s, u"main"_s) << u"bbb2222"_s << ask
                                      << int(PreflightQuestion::LaterCommit) << later;
        QTest::newRow("earlier commit") << ServerRecord::found(u"aaa1111"_s, u"main"_s) << u"bbb2222"_s << ask
                                        << int(PreflightQuestion::EarlierCommit) << earlier;
        QTest::newRow("never deployed here, record of a known commit: later")
            << ServerRecord::found(u"aaa1111"_s, u"main"_s) << QString() << ask
            << int(PreflightQuestion::LaterCommit) << later;
        QTest::newRow("local commit gone from the history: server's counts as later")
            << ServerRecord::found(u"aaa1111"_s, u"main"_s) << u"0ld0ld0"_s << ask
            << int(PreflightQuestion::LaterCommit) << later;
    }

    void decisions() {
        QFETCH(ServerRecord, record);
        QFETCH(QString, local);
        QFETCH(int, action);
        QFETCH(int, question);
        QFETCH(QString, message);
        const PreflightDecision decision = PreflightDecision::decide(
            record, local.isEmpty() ? std::nullopt : std::optional<QString>(local), u"main"_s, commits);
        QCOMPARE(int(decision.action), action);
        if (action == int(PreflightDecision::Action::Fail))
            QCOMPARE(decision.error.localizedDescription, u"(67) Access denied: 530"_s);
        if (question >= 0) {
            QCOMPARE(int(decision.question), question);
            QCOMPARE(decision.alert.message, message);
            QCOMPARE(decision.serverCommit, record.commit);
        }
    }

    // The informative texts name the server's branch or commit, and the
    // site's branch where asked; the three-button questions put Cancel first.
    void texts() {
        const AlertRequest branch =
            PreflightDecision::alertFor(PreflightQuestion::WrongBranch, u"dev"_s, u"main"_s);
        QCOMPARE(branch.informativeText,
                 u"Last target site deployment was done using branch \"dev\". Change your settings before "
                 u"deploying or force deployment with your current branch main (not recommended)."_s);
        QCOMPARE(branch.buttons, (QStringList{u"Force deploy"_s, u"Cancel"_s}));
        const AlertRequest earlier =
            PreflightDecision::alertFor(PreflightQuestion::EarlierCommit, u"aaa1111"_s, u"main"_s);
        QCOMPARE(earlier.informativeText,
                 u"The last deployed commit target site is a earlier commit (aaa1111). Would you like to "
                 u"deploy from this commit instead?"_s);
        QCOMPARE(earlier.buttons, (QStringList{u"Cancel"_s, u"Yes"_s, u"No, use mine"_s}));
        const AlertRequest unknown =
            PreflightDecision::alertFor(PreflightQuestion::UnknownCommit, u"deadbee"_s, u"main"_s);
        QCOMPARE(unknown.informativeText,
                 u"Be sure you have pulled all resources if you have any remote repositories."_s);
    }

    void answers() {
        using A = PreflightDecision::Answer;
        for (const PreflightQuestion q : {PreflightQuestion::WrongBranch, PreflightQuestion::UnknownCommit}) {
            QCOMPARE(int(PreflightDecision::answer(q, 0)), int(A::ForceDeploy));
            QCOMPARE(int(PreflightDecision::answer(q, 1)), int(A::Cancel));
            QCOMPARE(int(PreflightDecision::answer(q, -1)), int(A::Cancel)); // dismissed
        }
        for (const PreflightQuestion q : {PreflightQuestion::LaterCommit, PreflightQuestion::EarlierCommit}) {
            QCOMPARE(int(PreflightDecision::answer(q, 0)), int(A::Cancel));
            QCOMPARE(int(PreflightDecision::answer(q, 1)), int(A::UseServerCommit));
            QCOMPARE(int(PreflightDecision::answer(q, 2)), int(A::ForceDeploy));
        }
    }
};

QTEST_GUILESS_MAIN(TestPreflightDecision)
#include "tst_preflightdecision.moc"
