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

        QTest::newRow("wrong FTP password, cleaned line")
            << u"(67) Access denied: 530"_s << u"The server refused the user name or password."_s << 67
            << 530;
        QTest::newRow("wrong FTP password, only the reply")
            << u"Access denied: 530"_s << u"The server refused the user name or password."_s << -1 << 530;
        QTest::newRow("wrong SFTP login") << u"curl: (67) Authentication failure"_s
                                          << u"The server refused the user name or password."_s << 67 << -1;
        QTest::newRow("pure-ftpd refusing root, reported as a time-out")
            << u"< 421 Sorry, but I can't trust you\ncurl: (28) Connection timed out after 8000 ms"_s
            << u"The server turned the connection away: \u201cSorry, but I can't trust you\u201d."_s << 28
            << 421;
        QTest::newRow("nothing listening")
            << u"curl: (7) Failed to connect to 127.0.0.1 port 2121 after 0 ms: Couldn't connect to server"_s
            << u"Nothing answers at 127.0.0.1 port 2121."_s << 7 << -1;
        QTest::newRow("unknown host")
            << u"curl: (6) Could not resolve host: ftp.example.invalid"_s
            << u"No server called ftp.example.invalid was found. Check the host."_s << 6 << -1;
        QTest::newRow("time-out without a reply")
            << u"curl: (28) Connection timed out after 10001 milliseconds"_s
            << u"ftp.example.org did not answer in time."_s << 28 << -1;
        QTest::newRow("TLS handshake")
            << u"curl: (35) OpenSSL/3.0.15: error:0A00010B:SSL routines::wrong version number"_s
            << u"The secure connection (TLS) to ftp.example.org could not be set up."_s << 35 << -1;
        QTest::newRow("server without TLS")
            << u"curl: (64) Requested SSL level failed"_s
            << u"The server does not offer FTP with TLS: choose plain FTP, or ask the host."_s << 64 << -1;
        QTest::newRow("missing folder, from curl's number")
            << u"curl: (9) Server denied you to change to the given directory"_s
            << u"The server has no folder www/ and would not create it."_s << 9 << -1;
        QTest::newRow("missing folder, from the trace")
            << u"> CWD htdocs\n< 550 Can't change directory to htdocs: No such file or directory\n"
               "> MKD htdocs\n< 550 Can't create directory: Permission denied\n"
               "curl: (9) Server denied you to change to the given directory"_s
            << u"The server has no folder htdocs/ and would not create it."_s << 9 << 550;
        QTest::newRow("upload into a missing folder without CWD")
            << u"curl: (25) Failed FTP upload: 553"_s
            << u"The server would not store a file there: a folder is missing or the name is not allowed."_s
            << 25 << 553;
        QTest::newRow("full disk")
            << u"< 552 Quota exceeded\ncurl: (25) Failed FTP upload: 552"_s
            << u"The server has no room left for the file (its disk or your quota is full)."_s << 25 << 552;
        QTest::newRow("remote file missing")
            << u"curl: (78) Could not open remote file for reading: No such file or directory"_s
            << u"The server has no such file."_s << 78 << -1;
        QTest::newRow("quote command") << u"curl: (21) Unknown SFTP command"_s
                                       << u"The server refused a command sent after the login."_s << 21 << -1;
        QTest::newRow("blank in the address")
            << u"curl: (3) URL using bad/illegal format or missing URL"_s
            << u"The server address is not valid: check the host and the remote path for blanks or odd characters."_s
            << 3 << -1;
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

    // The sentences name what curl names, and the site where curl names nothing.
    void namesFromTheSite() {
        QCOMPARE(FailureExplanation::explain(u"curl: (7) Couldn't connect to server"_s,
                                             {u"h.test"_s, u"990"_s, {}})
                     .summary(),
                 u"Nothing answers at h.test port 990."_s);
        QCOMPARE(
            FailureExplanation::explain(u"curl: (9) Server denied you to change to the given directory"_s)
                .summary(),
            u"The server has no such folder and would not create it."_s);
        QCOMPARE(FailureExplanation::explain(u"curl: (28) Operation timed out"_s).summary(),
                 u"The server did not answer in time."_s);
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

    // What is not recognised keeps curl's line, or the first line of the
    // text, cut after a word when long.
    void unrecognised() {
        const FailureExplanation numbered =
            FailureExplanation::explain(u"curl: (92) Stream error in the HTTP/2 framing layer"_s);
        QVERIFY(!numbered.isRecognised());
        QCOMPARE(numbered.summary(), u"Stream error in the HTTP/2 framing layer (curl error 92)"_s);

        const FailureExplanation deletion =
            FailureExplanation::explain(u"Failed deleting old.html. File does not exist on server? "_s);
        QVERIFY(!deletion.isRecognised());
        QCOMPARE(deletion.summary(), u"Failed deleting old.html. File does not exist on server?"_s);
        QVERIFY(deletion.details().isEmpty());

        const QString words = u"word "_s.repeated(200);
        const FailureExplanation longText = FailureExplanation::explain(words);
        QVERIFY(longText.summary().size() <= FailureExplanation::maximumSummaryLength);
        QVERIFY(longText.summary().endsWith(u"word\u2026"_s));
        QCOMPARE(longText.details(), words.trimmed());
    }
};

QTEST_GUILESS_MAIN(TestFailureExplanation)
#include "tst_failureexplanation.moc"
