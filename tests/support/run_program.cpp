#include "support/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <regex>
#include <stdexcept>

namespace test_support {

namespace {

int MemoryFile(const std::string& contents) {
    const int fd = memfd_create("program", MFD_CLOEXEC);
    if (fd < 0 || write(fd, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size()) ||
        lseek(fd, 0, SEEK_SET) < 0) {
        throw std::runtime_error("cannot set a program's files up");
    }
    return fd;
}

std::string TakeContents(int fd) {
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    const ssize_t got = pread(fd, text.data(), text.size(), 0);
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    close(fd);
    return text;
}

/// The writing end of a pipe whose reading end is closed.
int BrokenPipe() {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    close(ends[0]);
    return ends[1];
}

[[noreturn]] void Execute(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

int ExitCodeOf(pid_t child, uint64_t* memoryPeak = nullptr) {
    int status = 0;
    rusage usage = {};
    wait4(child, &status, 0, &usage);
    if (memoryPeak != nullptr) {
        *memoryPeak = static_cast<uint64_t>(usage.ru_maxrss) * 1024;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

[[noreturn]] void BecomeProgram(const std::vector<std::string>& command, const ProgramSetting& setting,
                                int input, int out, int err) {
    dup2(input, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (setting.closeStandardInput) {
        close(STDIN_FILENO);
    }
    std::signal(SIGPIPE, SIG_DFL);
    for (const std::string& variable : setting.environment) {
        const size_t equals = variable.find('=');
        setenv(variable.substr(0, equals).c_str(), variable.substr(equals + 1).c_str(), 1);
    }
    if (setting.userId != 0 && (setgid(setting.userId) != 0 || setuid(setting.userId) != 0)) {
        _exit(127);
    }
    Execute(command);
}

bool ShowsTyping(int terminal) {
    termios settings = {};
    return tcgetattr(terminal, &settings) == 0 && (settings.c_lflag & tcflag_t{ECHO}) != 0;
}

/// Waits, for a minute at most, until a terminal has shown @p text.
bool AwaitText(int terminal, const std::string& text) {
    std::string shown;
    char buffer[4096];
    pollfd ready = {terminal, POLLIN, 0};
    while (shown.find(text) == std::string::npos && poll(&ready, 1, 60000) == 1) {
        const ssize_t got = read(terminal, buffer, sizeof buffer);
        if (got <= 0) {
            return false;
        }
        shown.append(buffer, static_cast<size_t>(got));
    }
    return shown.find(text) != std::string::npos;
}

} // namespace

TerminalEnd EndAtTerminal(const std::vector<std::string>& command, const std::string& prompt,
                          const std::string& keys, int signal) {
    int terminal = -1;
    char name[256] = {};
    const pid_t child = forkpty(&terminal, name, nullptr, nullptr);
    if (child < 0) {
        throw std::runtime_error("cannot make a terminal");
    }
    if (child == 0) {
        Execute(command);
    }
    // Held open so that its settings outlive the program.
    const int held = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    TerminalEnd end;
    if (AwaitText(terminal, prompt)) {
        end.echoWasOff = !ShowsTyping(held);
        if (write(terminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
            throw std::runtime_error("cannot type");
        }
    }
    if (signal != 0) {
        kill(child, signal);
    }
    end.exitCode = ExitCodeOf(child);
    end.echoIsOn = ShowsTyping(held);
    close(held);
    close(terminal);
    return end;
}

ProgramResult RunProgram(const std::vector<std::string>& command, const ProgramSetting& setting) {
    const int input = MemoryFile(setting.input);
    const int out = setting.closedPipe ? BrokenPipe() : MemoryFile("");
    const int err = MemoryFile("");
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("cannot start " + command[0]);
    }
    if (child == 0) {
        BecomeProgram(command, setting, input, out, err);
    }
    ProgramResult result;
    result.exitCode = ExitCodeOf(child, &result.memoryPeak);
    close(input);
    if (setting.closedPipe) {
        close(out);
    } else {
        result.out = TakeContents(out);
    }
    result.err = TakeContents(err);
    if (setting.userId != 0) {
        result.err = std::regex_replace(result.err, std::regex("profiling:[^\n]*\n"), "");
    }
    return result;
}

ProgramResult RunAtTerminal(const std::vector<std::string>& command, const std::string& prompt,
                            const std::string& answer) {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) {
        throw std::runtime_error("cannot make a terminal");
    }
    if (child == 0) {
        Execute(command);
    }
    ProgramResult result;
    bool answered = false;
    char buffer[4096];
    // Reading fails once the program has closed its side.
    for (ssize_t got = 0; (got = read(terminal, buffer, sizeof buffer)) > 0;) {
        result.out.append(buffer, static_cast<size_t>(got));
        if (!answered && result.out.find(prompt) != std::string::npos) {
            answered = write(terminal, answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
        }
    }
    close(terminal);
    result.exitCode = ExitCodeOf(child, &result.memoryPeak);
    return result;
}

} // namespace test_support
