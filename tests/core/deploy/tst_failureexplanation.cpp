#include "deploy/FailureExplanation.h"

#include <QTest>

using namespace tw;
using namespace Qt::StringLiterals;

// The sentences people read after a failed transfer or connection test, from
// the texts curl and the servers of the tests really print.
class TestFailureExplanation : public QObject {
    Q_OBJECT

private slots:
    void sentences_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("summary");
        QTest::addColumn<int>("curlCode");
        QTest::addColumn<int>("reply");

        QTest::newRow("wrong FTP password, only the reply")
            << u"Access denied: 530"_s << u"The server refused the user name or password."_s << -1 << 530;
        QTest::newRow("pure-ftpd refusing root, reported as a time-out")
            << u"< 421 Sorry, but I can't trust you\ncurl: (28) Connection timed out after 8000 ms"_s
            << u"The server turned the connection away: \u201cSorry, but I can't trust you\u201d."_s << 28
            << 421;
        QTest::newRow("nothing listening")
            << u"curl: (7) Failed to connect to 127.0.0.1 port 2121 after 0 ms: Couldn't connect to server"_s
            << u"Nothing answers at 127.0.0.1 port 2121."_s << 7 << -1;
        QTest::newRow("missing folder, from curl's number")
            << u"curl: (9) Server denied you to change to the given directory"_s
            << u"The server has no folder www/ and would not create it."_s << 9 << -1;
        QTest::newRow("missing folder, from the trace")
            << u"> CWD htdocs\n< 550 Can't change directory to htdocs: No such file or directory\n"
               "> MKD htdocs\n< 550 Can't create directory: Permission denied\n"
               "curl: (9) Server denied you to change to the given directory"_s
            << u"The server has no folder htdocs/ and would not create it."_s << 9 << 550;
    }
    void sentences() {
        QFETCH(QString, text);
        QFETCH(QString, summary);
        QFETCH(int, curlCode);
        QFETCH(int, reply);
        const FailureExplanation explained =
            FailureExplanation::explain(text, {u"ftp.example.org"_s, u"21"_s, u"www"_s});
        QCOMPARE(explained.summary(), summary);
        QVERIFY(explained.isRecognised());
        QCOMPARE(explained.curlCode().value_or(-1), curlCode);
        QCOMPARE(explained.serverReply().value_or(-1), reply);
        // curl's own words are kept for the details.
        QCOMPARE(explained.details(), text.trimmed());
    }

    // A whole trace, as the batch upload reports it: the sentence comes from
    // the error line at its end, the details keep the trace, and a trace of
    // any length gives a short sentence.
    void wholeTrace() {
        QString trace;
        for (int i = 0; i < 3000; ++i)
            trace +=
                u"* Connected to 127.0.0.1 (127.0.0.1) port 2121\n> STOR file%1.html\n< 150 Accepted\n"_s.arg(
                    i);
        trace +=
            u"  0  12  0  0  0  0  0  0 --:--:-- --:--:-- --:--:--  0curl: (55) Send failure: Broken pipe\n"_s;
        const FailureExplanation explained = FailureExplanation::explain(trace, {u"127.0.0.1"_s, {}, {}});
        QCOMPARE(explained.summary(), u"The connection to 127.0.0.1 broke off."_s);
        QVERIFY(explained.details().endsWith(u"Broken pipe"_s));
        QVERIFY(explained.details().size() <= 20010);
    }

    // What is not recognised keeps curl's line, or the text cut after a word
    // when long.
    void unrecognised() {
        const FailureExplanation numbered =
            FailureExplanation::explain(u"curl: (92) Stream error in the HTTP/2 framing layer"_s);
        QVERIFY(!numbered.isRecognised());
        QCOMPARE(numbered.summary(), u"Stream error in the HTTP/2 framing layer (curl error 92)"_s);

        const QString words = u"word "_s.repeated(200);
        const FailureExplanation longText = FailureExplanation::explain(words);
        QVERIFY(longText.summary().size() <= FailureExplanation::maximumSummaryLength);
        QVERIFY(longText.summary().endsWith(u"word\u2026"_s));
        QCOMPARE(longText.details(), words.trimmed());
    }
};

QTEST_GUILESS_MAIN(TestFailureExplanation)
#include "tst_failureexplanation.moc"
