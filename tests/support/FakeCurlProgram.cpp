// A stand-in for curl in tests of the transfer engine: records its arguments
// and replays a script of output chunks, pauses and an exit status. The
// script format and the files it reads and writes are described in
// FakeCurl.h, the test-side helper that sets it up. No Qt, so that it starts
// in a millisecond or two.

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
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// How long a written chunk may wait in the pipe for the reader before the
// script goes on regardless.
constexpr long drainTimeoutMs = 3000;
// A "wait" that nobody ends does not keep the test busy for ever.
constexpr unsigned waitLimitSeconds = 120;

char terminatedMarker[4096];
// "trap": a terminating signal is recorded and the script goes on.
volatile sig_atomic_t trapping = 0;
volatile sig_atomic_t terminated = 0;

void writeAll(int fd, const char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t written = ::write(fd, data + done, size - done);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return; // the reader has gone (EPIPE): like curl, carry on
        }
        done += static_cast<size_t>(written);
    }
}

[[noreturn]] void fail(const std::string& message) {
    const std::string text = "fake curl: " + message + "\n";
    writeAll(STDERR_FILENO, text.data(), text.size());
    ::_exit(98);
}

void sleepMs(long milliseconds) {
    timespec remaining{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

long elapsedMs(const timespec& since) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return (now.tv_sec - since.tv_sec) * 1000 + (now.tv_nsec - since.tv_nsec) / 1000000;
}

// Waits until the reader has taken everything out of the pipe, so that the
// next chunk reaches it through a read of its own.
void drain(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISFIFO(status.st_mode))
        return;
    timespec start{};
    ::clock_gettime(CLOCK_MONOTONIC, &start);
    while (elapsedMs(start) < drainTimeoutMs) {
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

// Counts the invocations of this tools folder; runs started at the same
// time still get distinct numbers.
int nextInvocation(const std::string& folder) {
    const std::string path = folder + "/count";
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || ::flock(fd, LOCK_EX) != 0)
        fail("cannot open " + path);
    char buffer[32] = {};
    const ssize_t count = ::pread(fd, buffer, sizeof buffer - 1, 0);
    const int number = (count > 0 ? std::atoi(buffer) : 0) + 1;
    const std::string text = std::to_string(number) + "\n";
    if (::ftruncate(fd, 0) != 0 ||
        ::pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        fail("cannot write " + path);
    ::close(fd);
    return number;
}

void recordArguments(const std::string& path, int argc, char** argv) {
    std::string record;
    for (int index = 1; index < argc; ++index) {
        record += argv[index];
        record += '\0';
    }
    const std::string temporary = path + ".part";
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("cannot write " + temporary);
    writeAll(fd, record.data(), record.size());
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

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

std::string unescape(const std::string& text, int lineNumber) {
    std::string bytes;
    for (size_t index = 0; index < text.size(); ++index) {
        const char c = text[index];
        if (c != '\\') {
            bytes += c;
            continue;
        }
        if (++index >= text.size())
            fail("line " + std::to_string(lineNumber) + ": a lone \\ at the end");
        switch (text[index]) {
        case '\\':
            bytes += '\\';
            break;
        case 'n':
            bytes += '\n';
            break;
        case 'r':
            bytes += '\r';
            break;
        case 't':
            bytes += '\t';
            break;
        case '0':
            bytes += '\0';
            break;
        case 'x': {
            const int high = index + 1 < text.size() ? hexValue(text[index + 1]) : -1;
            const int low = index + 2 < text.size() ? hexValue(text[index + 2]) : -1;
            if (high < 0 || low < 0)
                fail("line " + std::to_string(lineNumber) + ": \\x needs two hex digits");
            bytes += static_cast<char>(high * 16 + low);
            index += 2;
            break;
        }
        default:
            fail("line " + std::to_string(lineNumber) + ": unknown escape \\" + std::string(1, text[index]));
        }
    }
    return bytes;
}

long number(const std::string& text, int lineNumber) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || value < 0)
        fail("line " + std::to_string(lineNumber) + ": not a number: " + text);
    return value;
}

// With check set, only reads the script: a mistake in it ends the fake with
// its message, as a run would.
int run(const std::string& script, bool check = false) {
    int lineNumber = 0;
    size_t start = 0;
    while (start < script.size()) {
        size_t end = script.find('\n', start);
        if (end == std::string::npos)
            end = script.size();
        std::string line = script.substr(start, end - start);
        start = end + 1;
        ++lineNumber;
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#')
            continue;
        line.erase(0, first);
        const size_t blank = line.find(' ');
        const std::string command = line.substr(0, blank);
        const std::string argument = blank == std::string::npos ? std::string() : line.substr(blank + 1);
        if (command == "err" || command == "out") {
            const int fd = command == "err" ? STDERR_FILENO : STDOUT_FILENO;
            const std::string bytes = unescape(argument, lineNumber);
            if (check)
                continue;
            writeAll(fd, bytes.data(), bytes.size());
            drain(fd);
        } else if (command == "pause" || command == "exit" || command == "signal") {
            const long value = number(argument, lineNumber);
            if (check)
                continue;
            if (command == "pause")
                sleepMs(value);
            else if (command == "exit")
                return static_cast<int>(value);
            // Dies by the signal, as a curl killed from outside does.
            ::signal(static_cast<int>(value), SIG_DFL);
            ::raise(static_cast<int>(value));
            return 99;
        } else if (check && (command == "wait" || command == "trap")) {
            continue;
        } else if (command == "wait") {
            ::alarm(waitLimitSeconds);
            while (!(trapping && terminated))
                sleepMs(5); // a signal between the check and a pause() would be missed
            ::alarm(0);
        } else if (command == "trap") {
            trapping = 1;
        } else {
            fail("line " + std::to_string(lineNumber) + ": unknown command " + command);
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    // Like curl: a reader that has gone away is not a reason to die.
    ::signal(SIGPIPE, SIG_IGN);
    // Do not outlive a test that crashes.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);

    // Start-up asks for the version; that is no transfer and takes no script.
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        const char version[] = "curl 8.14.1 (x86_64-pc-linux-gnu) libcurl/8.14.1 (fake curl of the tests)\n";
        writeAll(STDOUT_FILENO, version, sizeof version - 1);
        return 0;
    }

    // The test's side checks a script before it is run: "--check-script FILE".
    if (argc == 3 && std::strcmp(argv[1], "--check-script") == 0) {
        std::string script;
        if (!readFile(argv[2], script))
            fail(std::string("cannot read ") + argv[2]);
        return run(script, true);
    }

    std::string folder;
    if (const char* state = std::getenv("TARNWELL_FAKE_CURL_STATE"); state && *state) {
        folder = state;
    } else {
        const std::string self = argv[0];
        const size_t slash = self.rfind('/');
        if (slash == std::string::npos)
            fail("started without a path and without TARNWELL_FAKE_CURL_STATE");
        folder = self.substr(0, slash);
    }

    const int invocation = nextInvocation(folder);
    const std::string suffix = "." + std::to_string(invocation);
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
