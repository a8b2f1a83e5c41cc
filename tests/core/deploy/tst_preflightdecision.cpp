#include "deploy/PreflightDecision.h"

#include <QMap>
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

        const int deploy = int(PreflightDecision::Action::Deploy);
        const int ask = int(PreflightDecision::Action::Ask);
        const int none = -1;
        const auto readError = [](const QString& text) {
            return ServerRecord::fromReadError(Error::application(1, text));
        };
        QTest::newRow("no record: first deployment here")
            << readError(u"(78) The file does not exist"_s) << u"bbb2222"_s << deploy << none;
        QTest::newRow("no remote folder yet: first deployment")
            << readError(u"(9) Server denied you to change to the given directory"_s) << QString() << deploy
            << none;
        QTest::newRow("login refused: fails") << readError(u"(67) Access denied: 530"_s) << u"bbb2222"_s
                                              << int(PreflightDecision::Action::Fail) << none;
        QTest::newRow("same commit: no question")
            << ServerRecord::found(u"bbb2222"_s, u"main"_s) << u"bbb2222"_s << deploy << none;
        QTest::newRow("other branch, same commit: no question")
            << ServerRecord::found(u"bbb2222"_s, u"other"_s) << u"bbb2222"_s << deploy << none;
        QTest::newRow("other branch comes before the commit")
            << ServerRecord::found(u"ccc3333"_s, u"other"_s) << u"bbb2222"_s << ask
            << int(PreflightQuestion::WrongBranch);
        QTest::newRow("record without branch counts as another branch")
            << ServerRecord::found(u"ccc3333"_s, QString()) << u"bbb2222"_s << ask
            << int(PreflightQuestion::WrongBranch);
        QTest::newRow("unknown commit") << ServerRecord::found(u"deadbee"_s, u"main"_s) << u"bbb2222"_s << ask
                                        << int(PreflightQuestion::UnknownCommit);
        QTest::newRow("later commit") << ServerRecord::found(u"ccc3333"_s, u"main"_s) << u"bbb2222"_s << ask
                                      << int(PreflightQuestion::LaterCommit);
        QTest::newRow("earlier commit") << ServerRecord::found(u"aaa1111"_s, u"main"_s) << u"bbb2222"_s << ask
                                        << int(PreflightQuestion::EarlierCommit);
        QTest::newRow("never deployed here, record of a known commit: later")
            << ServerRecord::found(u"aaa1111"_s, u"main"_s) << QString() << ask
            << int(PreflightQuestion::LaterCommit);
        QTest::newRow("local commit gone from the history: server's counts as later")
            << ServerRecord::found(u"aaa1111"_s, u"main"_s) << u"0ld0ld0"_s << ask
            << int(PreflightQuestion::LaterCommit);
    }

    void decisions() {
        QFETCH(ServerRecord, record);
        QFETCH(QString, local);
        QFETCH(int, action);
        QFETCH(int, question);
        const PreflightDecision decision = PreflightDecision::decide(
            record, local.isEmpty() ? std::nullopt : std::optional<QString>(local), u"main"_s, commits);
        QCOMPARE(int(decision.action), action);
        if (action == int(PreflightDecision::Action::Fail))
            QCOMPARE(decision.error.localizedDescription, u"(67) Access denied: 530"_s);
        if (question >= 0) {
            QCOMPARE(int(decision.question), question);
            QVERIFY(!decision.alert.message.isEmpty());
            QCOMPARE(decision.serverCommit, record.commit);
        }
    }

    // Each button of each question means what its label says; a dismissed
    // question cancels.
    void answersMatchTheButtons() {
        using A = PreflightDecision::Answer;
        const QMap<QString, A> meaning{{u"Force deploy"_s, A::ForceDeploy},
                                       {u"Cancel"_s, A::Cancel},
                                       {u"Yes"_s, A::UseServerCommit},
                                       {u"No, use mine"_s, A::ForceDeploy}};
        for (const PreflightQuestion q : {PreflightQuestion::WrongBranch, PreflightQuestion::UnknownCommit,
                                          PreflightQuestion::LaterCommit, PreflightQuestion::EarlierCommit}) {
            const QStringList buttons = PreflightDecision::alertFor(q, u"aaa1111"_s, u"main"_s).buttons;
            QVERIFY(buttons.size() >= 2);
            for (int i = 0; i < buttons.size(); ++i)
                QCOMPARE(int(PreflightDecision::answer(q, i)), int(meaning.value(buttons.at(i), A(-1))));
            QCOMPARE(int(PreflightDecision::answer(q, -1)), int(A::Cancel));
        }
    }
};

QTEST_GUILESS_MAIN(TestPreflightDecision)
#include "tst_preflightdecision.moc"
