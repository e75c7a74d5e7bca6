#include "cli/password.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "cli/failure.h"

namespace diskaccess {

namespace {

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

std::string AskAtTerminal() {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal < 0) {
        throw Failure(
            "--ask-password: there is no terminal to ask at; use --password-file or DISKACCESS_PASSWORD");
    }
    std::string password;
    {
        const SilentTerminal silent(terminal);
        Say(terminal, "Password of the disk: ");
        char c = 0;
        while (read(terminal, &c, 1) == 1 && c != '\n') {
            password += c;
        }
        Say(terminal, "\n");
    }
    close(terminal);
    return password;
}

std::string ReadFirstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    if (!file || !std::getline(file, line)) {
        throw Failure(path + ": no password can be read from it; put it on the first line");
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
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
