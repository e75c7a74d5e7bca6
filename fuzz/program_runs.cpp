// Runs the whole program on hostile disks, every command and every option in turn:
//
//     program_runs RUNS [FIRST [FOLDER]]
//
// RUNS runs from number FIRST on, which is 0 if it is left out. A run depends on its number alone. What is found is told, and
// its disk is saved in FOLDER. Exit status 1 when there is anything.

#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>

#include "program/runs.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#define FUZZING_WITH_LEAK_CHECK 1
#endif
#endif

namespace {

using fuzzing::Runs;

/// Of one run: more processor time than the slowest takes under sanitizers, and more time on a machine that is busy.
constexpr time_t kMostProcessorSeconds = 40;
constexpr unsigned kMostSeconds = 900;
constexpr uint64_t kRunsBetweenLeakChecks = 500;
constexpr uint64_t kRunsBetweenReports = 10000;
constexpr uint64_t kEnoughFindings = 20;

/// What the process that runs tells the one that waits for it.
struct State {
    std::atomic<uint64_t> current{0};                            ///< number of the run
    std::array<std::array<std::atomic<uint64_t>, 4>, 64> ends{}; ///< runs by command and exit status
};

State& SharedState() {
    void* const memory =
        mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::perror("program_runs");
        std::exit(2);
    }
    return *new (memory) State;
}

void CheckLeaks() {
#ifdef FUZZING_WITH_LEAK_CHECK
    if (__lsan_do_recoverable_leak_check() != 0) {
        std::fputs("FINDING: memory leaks, in this run or one of the last hundreds\n", stderr);
        std::abort();
    }
#endif
}

void SetTimeLimit() {
    itimerval limit = {};
    limit.it_value.tv_sec = kMostProcessorSeconds;
    setitimer(ITIMER_PROF, &limit, nullptr);
    alarm(kMostSeconds);
}

/// A line a command: how its runs ended.
void PrintEnds(const Runs& runs, const State& state, uint64_t count) {
    std::printf("%-10s %8s %8s %8s %8s\n", "COMMAND", "DONE", "FAILED", "MISUSED", "LOSSES");
    for (size_t command = 0; command < runs.Lines().Commands(); ++command) {
        std::printf("%-10s", runs.Lines().CommandName(command).c_str());
        for (const std::atomic<uint64_t>& ends : state.ends.at(command)) {
            std::printf(" %8llu", static_cast<unsigned long long>(ends));
        }
        std::printf("\n");
    }
    std::printf("%llu runs\n", static_cast<unsigned long long>(count));
    std::fflush(stdout);
}

/// The runs from the current one to the end, in a process of their own.
[[noreturn]] void Work(Runs& runs, State& state, uint64_t first, uint64_t end) {
    setsid();                                   // there is no terminal to ask for passwords
    std::signal(SIGINT, [](int /*signal*/) {}); // it ends the viewer, not these runs
    std::signal(SIGPIPE, SIG_IGN);
    for (uint64_t number = state.current; number < end; state.current = ++number) {
        SetTimeLimit();
        const auto exitCode = static_cast<size_t>(runs.Run(number));
        ++state.ends.at(runs.Lines().CommandOf(number)).at(exitCode);
        if ((number + 1) % kRunsBetweenLeakChecks == 0) {
            CheckLeaks();
        }
        if ((number + 1) % kRunsBetweenReports == 0) {
            PrintEnds(runs, state, number + 1 - first);
        }
    }
    CheckLeaks();
    _exit(0);
}

std::string Ending(int status) {
    if (!WIFSIGNALED(status)) {
        return "ended with " + std::to_string(WEXITSTATUS(status));
    }
    const int signal = WTERMSIG(status);
    return signal == SIGPROF || signal == SIGALRM ? "took too long"
                                                  : std::string("died: ") + strsignal(signal);
}

void TellFinding(const Runs& runs, uint64_t number, int status, const std::string& folder) {
    const std::string complaints = runs.Complaints();
    std::printf("\nrun %llu %s\n%s%s\n", static_cast<unsigned long long>(number), Ending(status).c_str(),
                runs.Story(number).c_str(), complaints.substr(0, 4000).c_str());
    std::fflush(stdout);
    if (!folder.empty()) {
        std::filesystem::create_directories(folder);
        runs.Save(number, folder + "/run-" + std::to_string(number) + ".img");
    }
}

int RunAll(uint64_t first, uint64_t count, const std::string& folder) {
    State& state = SharedState();
    state.current = first;
    Runs runs;
    uint64_t findings = 0;
    while (state.current < first + count && findings < kEnoughFindings) {
        const pid_t worker = fork();
        if (worker == 0) {
            Work(runs, state, first, first + count);
        }
        int status = 0;
        if (worker < 0 || waitpid(worker, &status, 0) != worker) {
            std::perror("program_runs");
            return 2;
        }
        if (status != 0) {
            ++findings;
            TellFinding(runs, state.current, status, folder);
            ++state.current;
        }
    }
    PrintEnds(runs, state, state.current - first);
    std::printf("%llu findings\n", static_cast<unsigned long long>(findings));
    return findings == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 4) {
        std::fputs("usage: program_runs RUNS [FIRST [FOLDER]]\n", stderr);
        return 2;
    }
    try {
        return RunAll(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 0, std::strtoull(argv[1], nullptr, 10),
                      argc > 3 ? std::filesystem::absolute(argv[3]).string() : "");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "program_runs: %s\n", error.what());
        return 2;
    }
}
