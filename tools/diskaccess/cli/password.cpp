#include "cli/password.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

#include "cli/failure.h"

namespace diskaccess {

namespace {

/// A disk holds far shorter ones; it keeps a file without end from being read.
constexpr size_t kLongestPassword = 1024;

/// The signals that end a program, or stop it, from the keyboard and from outside.
constexpr std::array<int, 5> kEndingSignals = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};

volatile std::sig_atomic_t g_signal = 0;

/// Notes such signals, for as long as it lives, instead of obeying them, and lets them come only while it waits.
class HeldSignals {
public:
    HeldSignals() {
        g_signal = 0;
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : kEndingSignals) {
            sigaddset(&held, signal);
        }
        pthread_sigmask(SIG_BLOCK, &held, &m_maskBefore);
        struct sigaction note = {};
        note.sa_handler = [](int signal) { g_signal = signal; };
        for (size_t i = 0; i < kEndingSignals.size(); ++i) {
            sigaction(kEndingSignals[i], nullptr, &m_before[i]);
            if (m_before[i].sa_handler != SIG_IGN) {
                sigaction(kEndingSignals[i], &note, nullptr);
            }
        }
    }
    ~HeldSignals() {
        for (size_t i = 0; i < kEndingSignals.size(); ++i) {
            sigaction(kEndingSignals[i], &m_before[i], nullptr);
        }
        pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// Waits for something to read.
    /// @return whether it came, rather than a signal
    bool AwaitInput(int fd) const {
        pollfd ready = {fd, POLLIN, 0};
        return g_signal == 0 && ppoll(&ready, 1, nullptr, &m_maskBefore) == 1;
    }

private:
    std::array<struct sigaction, kEndingSignals.size()> m_before = {};
    sigset_t m_maskBefore = {};
};

/// Keeps what is typed at a terminal from being shown, for as long as it lives.
class SilentTerminal {
public:
    explicit SilentTerminal(int terminal) : m_terminal(terminal) {
        if (tcgetattr(terminal, &m_before) == 0) {
            termios silent = m_before;
            silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            m_changed = tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
        }
    }
    ~SilentTerminal() {
        if (m_changed) {
            tcsetattr(m_terminal, TCSAFLUSH, &m_before);
        }
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    int m_terminal;
    termios m_before = {};
    bool m_changed = false;
};

void Say(int terminal, const std::string& text) {
    // The answer is read even if the prompt cannot be shown.
    [[maybe_unused]] const ssize_t ignored = write(terminal, text.data(), text.size());
}

/// Reads up to the end of a line, of the file, or of the longest password.
/// @return nothing when not even the end of a line was there
std::optional<std::string> ReadLine(int fd) {
    std::string line;
    char c = 0;
    ssize_t got = 0;
    while (line.size() <= kLongestPassword && (got = read(fd, &c, 1)) == 1 && c != '\n') {
        line += c;
    }
    return got != 1 && line.empty() ? std::nullopt : std::optional(line);
}

/// @return nothing when a signal came meanwhile
std::optional<std::string> AskOnce(int terminal) {
    const HeldSignals held;
    const SilentTerminal silent(terminal);
    Say(terminal, "Password of the disk: ");
    std::optional<std::string> password;
    if (held.AwaitInput(terminal)) {
        password = ReadLine(terminal).value_or(""); // a terminal gives whole lines
    }
    Say(terminal, "\n");
    return password;
}

std::string AskAtTerminal() {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal < 0) {
        throw Failure(
            "--ask-password: there is no terminal to ask at; use --password-file or DISKACCESS_PASSWORD");
    }
    std::optional<std::string> password;
    while (!(password = AskOnce(terminal))) {
        raise(g_signal); // the terminal is as it was; who comes back from being stopped is asked again
    }
    close(terminal);
    return *password;
}

std::string ReadFirstLine(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::optional<std::string> line;
    if (fd >= 0) {
        line = ReadLine(fd);
        close(fd);
    }
    if (!line) {
        throw Failure(path + ": no password can be read from it; put it on the first line");
    }
    if (line->size() > kLongestPassword) {
        throw Failure(path + ": its first line is longer than " + std::to_string(kLongestPassword) +
                      " bytes, and no password is; put the password there");
    }
    if (!line->empty() && line->back() == '\r') {
        line->pop_back();
    }
    return *line;
}

} // namespace

std::optional<std::string> GivenPassword(const std::string& file, bool ask) {
    if (ask) {
        return AskAtTerminal();
    }
    if (!file.empty()) {
        return ReadFirstLine(file);
    }
    const char* const variable = std::getenv("DISKACCESS_PASSWORD");
    return variable != nullptr ? std::optional<std::string>(variable) : std::nullopt;
}

} // namespace diskaccess
