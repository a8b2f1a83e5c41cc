#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <memory>

namespace tw::test {

// Makes sure a test never touches the preferences, logs or secrets of the
// person running it. Under run-isolated.sh the home is already a throw-away
// folder; run by hand, the test gets one here. Call first in initTestCase.
class TestEnvironment {
public:
    static void isolate();
    // A fresh preferences file for one test function; defaults registered.
    static void resetPreferences();
    // The source tree's tests/ folder and the build's bin/ folder.
    static QString sourceDirectory();
    static QString binaryDirectory();
};

// Collects the system-log lines written while it lives.
class SystemLogCapture {
public:
    SystemLogCapture();
    ~SystemLogCapture();
    QStringList lines() const;
    bool contains(const QString& fragment) const;

private:
    std::shared_ptr<QStringList> m_lines;
};

// Runs a program to its end; answers its standard output, or fails the test
// helper by returning an empty text and printing the error.
QString runProgram(const QString& program, const QStringList& arguments, const QString& folder = QString(),
                   int* exitCode = nullptr);

} // namespace tw::test
