#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace tw::test {

// A tools folder whose "curl" is a fake that records its arguments and
// replays scripted output, for tests of how the transfer engine reads curl's
// output chunk by chunk. The folder also holds "git" (the build's own) and an
// empty "lib/", so it can stand in for the whole tools folder:
//
//     FakeCurl fake;
//     QVERIFY(fake.setScript(R"(
//         err   0.0%\r
//         err   45.3%\r
//         err curl: (67) Access denied: 530\n
//         exit 67
//     )"));
//     ToolPaths::setToolsDirectory(fake.folder());
//     ... run the engine, with the event loop running (QTRY_*) ...
//     QCOMPARE(fake.invocationCount(), 1);
//     QCOMPARE(fake.arguments(1), expectedArguments);
//     ToolPaths::setToolsDirectory(std::nullopt);
//
// A child process that gets fake.folder() + "/curl" as its program path (as
// QProcess passes it) finds its scripts next to itself. Started any other
// way, it needs TARNWELL_FAKE_CURL_STATE set to folder().
//
// Script format: one command per line; leading blanks and tabs are ignored
// (so raw strings may be indented), as are empty lines and lines starting
// with "#". A command word is followed by one blank and its argument, which
// runs to the end of the line, blanks included.
//
//     err TEXT   write TEXT to standard error in one write(2)
//     out TEXT   write TEXT to standard output in one write(2)
//     pause MS   sleep MS milliseconds
//     exit N     end now with exit status N
//     wait       block until terminated (SIGTERM ends it as a signal would
//                end curl); ends by itself with SIGALRM after 120 s
//     signal N   die by signal N now (9: as if killed from outside)
//     trap       from here on SIGTERM and SIGINT are recorded but do not end
//                the fake, and a later wait ends when one arrives: the
//                script goes on, as a curl's last output is still on its
//                way after it was told to stop
//
// The end of the script is exit status 0. TEXT takes the escapes \n \r \t
// \0 \\ and \xHH (any byte, so invalid UTF-8 can be written); any other
// escape is an error. Write a trailing blank as \x20 so that editors keep it.
//
// Chunk boundaries: after each err/out the fake waits (up to 3 s) until the
// reader has emptied the pipe, so every chunk arrives through a read of its
// own, however busy the machine. Output meant to arrive as one read must be
// one chunk. pause adds real time on top (for stall detection and the like).
//
// Invocations are numbered from 1 in the order they start (concurrent starts
// included). Invocation n runs the script set for n, else the script set for
// all; with neither it writes nothing and exits with 0. "curl --version"
// alone answers a fixed version line and is neither counted nor recorded.
// A script error makes the fake print "fake curl: ..." and exit with 98;
// setScript checks scripts beforehand.
class FakeCurl {
public:
    FakeCurl();

    bool isValid() const { return m_folder.isValid(); }
    // The tools folder, for ToolPaths::setToolsDirectory or TARNWELL_TOOLS_DIR.
    QString folder() const { return m_folder.path(); }
    QString curlPath() const { return folder() + QStringLiteral("/curl"); }

    // The script of every invocation that has none of its own. Answers false
    // (with a warning naming the line) when the script has an error.
    bool setScript(const QString& script) const;
    // The script of invocation number invocation (1 is the first run).
    bool setScript(int invocation, const QString& script) const;

    // How many times the fake has been started.
    int invocationCount() const;
    // The arguments of invocation number invocation, without the program;
    // empty when there was no such invocation.
    QStringList arguments(int invocation) const;
    // Whether invocation number invocation was ended by SIGTERM (or SIGINT).
    bool wasTerminated(int invocation) const;

    // bytes as a script TEXT: printable ASCII stays, everything else escaped.
    static QString escaped(const QByteArray& bytes);
    // The fake program itself.
    static QString programPath();

private:
    bool writeScript(const QString& name, const QString& script) const;

    QTemporaryDir m_folder;
};

} // namespace tw::test
