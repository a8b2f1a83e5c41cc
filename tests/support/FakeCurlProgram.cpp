// A stand-in for curl in tests of the transfer engine: records its arguments
// and replays a script of output chunks, pauses and an exit status (see
// FakeCurl.h). No Qt, so that it starts in a millisecond or two.

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

char terminatedMarker[4096];
// "trap": a terminating signal is recorded and the script goes on.
volatile sig_atomic_t trapping = 0;
volatile sig_atomic_t terminated = 0;

void writeAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t written = ::write(fd, data.data() + done, data.size() - done);
        if (written < 0 && errno != EINTR)
            return; // the reader has gone (EPIPE): like curl, carry on
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
}

[[noreturn]] void fail(const std::string& message) {
    writeAll(STDERR_FILENO, "fake curl: " + message + "\n");
    ::_exit(98);
}

void sleepMs(long milliseconds) {
    timespec remaining{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

// Waits (up to 3 s) until the reader has taken everything out of the pipe, so
// that the next chunk reaches it through a read of its own.
void drain(int fd) {
    for (int waited = 0; waited < 3000; ++waited) {
        int pending = 0;
        if (::ioctl(fd, FIONREAD, &pending) != 0 || pending == 0)
            return;
        sleepMs(1);
    }
}

bool readFile(const std::string& path, std::string& content) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = ::read(fd, buffer, sizeof buffer)) > 0)
        content.append(buffer, static_cast<size_t>(count));
    ::close(fd);
    return count == 0;
}

// Counts the invocations; runs started at the same time get distinct numbers.
int nextInvocation(const std::string& folder) {
    const std::string path = folder + "/count";
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || ::flock(fd, LOCK_EX) != 0)
        fail("cannot open " + path);
    char buffer[32] = {};
    const int number = (::pread(fd, buffer, sizeof buffer - 1, 0) > 0 ? std::atoi(buffer) : 0) + 1;
    const std::string text = std::to_string(number) + "\n";
    if (::pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        fail("cannot write " + path);
    ::close(fd);
    return number;
}

// Written under a temporary name first, so that a reader sees all or nothing.
void recordArguments(const std::string& path, int argc, char** argv) {
    std::string record;
    for (int index = 1; index < argc; ++index)
        record += std::string(argv[index]) + '\0';
    const std::string temporary = path + ".part";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("cannot write " + temporary);
    writeAll(fd, record);
    ::close(fd);
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        fail("cannot write " + path);
}

void onTerminate(int signalNumber) {
    // Only async-signal-safe calls here.
    const int fd = ::open(terminatedMarker, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (fd >= 0)
        ::close(fd);
    terminated = 1;
    if (trapping)
        return;
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

std::string unescape(const std::string& text, int lineNumber) {
    std::string bytes;
    for (size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '\\') {
            bytes += text[index];
            continue;
        }
        const char escape = index + 1 < text.size() ? text[++index] : '\0';
        if (escape == 'n' || escape == 'r' || escape == '\\') {
            bytes += escape == 'n' ? '\n' : escape == 'r' ? '\r' : '\\';
        } else if (escape == 'x' && index + 2 < text.size()) {
            bytes += static_cast<char>(std::stoi(text.substr(index + 1, 2), nullptr, 16));
            index += 2;
        } else {
            fail("line " + std::to_string(lineNumber) + ": bad escape");
        }
    }
    return bytes;
}

int run(const std::string& script) {
    int lineNumber = 0;
    for (size_t start = 0; start < script.size();) {
        size_t end = script.find('\n', start);
        if (end == std::string::npos)
            end = script.size();
        std::string line = script.substr(start, end - start);
        start = end + 1;
        ++lineNumber;
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos)
            continue;
        line.erase(0, first);
        const size_t blank = line.find(' ');
        const std::string command = line.substr(0, blank);
        const std::string argument = blank == std::string::npos ? std::string() : line.substr(blank + 1);
        if (command == "err" || command == "out") {
            const int fd = command == "err" ? STDERR_FILENO : STDOUT_FILENO;
            writeAll(fd, unescape(argument, lineNumber));
            drain(fd);
        } else if (command == "pause") {
            sleepMs(std::atol(argument.c_str()));
        } else if (command == "exit") {
            return std::atoi(argument.c_str());
        } else if (command == "signal") {
            ::signal(std::atoi(argument.c_str()), SIG_DFL);
            ::raise(std::atoi(argument.c_str()));
            return 99;
        } else if (command == "trap") {
            trapping = 1;
        } else if (command == "wait") {
            ::alarm(120); // a wait that nobody ends does not keep the test busy for ever
            while (!(trapping && terminated))
                sleepMs(5); // a signal between the check and a pause() would be missed
            ::alarm(0);
        } else {
            fail("line " + std::to_string(lineNumber) + ": unknown command " + command);
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_IGN);         // like curl: a reader that has gone is no reason to die
    ::prctl(PR_SET_PDEATHSIG, SIGTERM); // do not outlive a test that crashes
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        writeAll(STDOUT_FILENO,
                 "curl 8.14.1 (x86_64-pc-linux-gnu) libcurl/8.14.1 (fake curl of the tests)\n");
        return 0;
    }
    // The scripts lie beside the program path QProcess started.
    const std::string self = argv[0];
    const std::string folder = self.substr(0, self.rfind('/'));
    const std::string suffix = "." + std::to_string(nextInvocation(folder));
    recordArguments(folder + "/arguments" + suffix, argc, argv);

    const std::string marker = folder + "/terminated" + suffix;
    if (marker.size() >= sizeof terminatedMarker)
        fail("folder path too long");
    std::memcpy(terminatedMarker, marker.c_str(), marker.size() + 1);
    struct sigaction action {};
    action.sa_handler = onTerminate;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);

    std::string script;
    if (!readFile(folder + "/script" + suffix, script) && !readFile(folder + "/script", script))
        return 0;
    return run(script);
}
