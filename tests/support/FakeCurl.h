#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace tw::test {

// A tools folder whose "curl" is a fake that records its arguments and
// replays scripted output, for tests of how the transfer engine reads curl's
// output chunk by chunk:
//
//     FakeCurl fake;
//     QVERIFY(fake.setScript(u"err   45.3%\\r\nerr curl: (67) Access denied: 530\\n\nexit 67"_s));
//     ToolPaths::setToolsDirectory(fake.folder());
//
// Script format: one command per line; leading blanks are ignored, as are
// empty lines. A command word is followed by one blank and its argument.
//
//     err TEXT   write TEXT to standard error in one write(2)
//     out TEXT   write TEXT to standard output in one write(2)
//     pause MS   sleep MS milliseconds
//     exit N     end now with exit status N
//     signal N   die by signal N now
//     trap       from here on SIGTERM and SIGINT are recorded but do not end
//                the fake, as a curl's last output is still on its way after
//                it was told to stop
//     wait       block until terminated (after trap: until told to stop);
//                ends by itself after 120 s
//
// The end of the script is exit status 0. TEXT takes the escapes \n, \r, \\,
// and \xHH (any byte, so invalid UTF-8 can be written). After each err/out
// the fake waits (up to 3 s) until the reader has emptied the pipe, so every
// chunk arrives through a read of its own.
//
// Invocations are numbered from 1 in the order they start. Invocation n runs
// the script set for n, else the script set for all; with neither it exits
// with 0. "curl --version" alone is neither counted nor recorded. A script
// error makes the fake print "fake curl: ..." and exit with 98.
class FakeCurl {
public:
    FakeCurl();

    bool isValid() const { return m_folder.isValid(); }
    // The tools folder, for ToolPaths::setToolsDirectory.
    QString folder() const { return m_folder.path(); }

    // The script of every invocation that has none of its own.
    bool setScript(const QString& script) const { return writeScript(QStringLiteral("script"), script); }
    // The script of invocation number invocation (1 is the first run).
    bool setScript(int invocation, const QString& script) const {
        return writeScript(QStringLiteral("script.%1").arg(invocation), script);
    }

    int invocationCount() const;
    // The arguments of invocation number invocation, without the program.
    QStringList arguments(int invocation) const;
    // Whether invocation number invocation was sent SIGTERM (or SIGINT).
    bool wasTerminated(int invocation) const;

private:
    bool writeScript(const QString& name, const QString& script) const;

    QTemporaryDir m_folder;
};

} // namespace tw::test
