// main() of the test programs. Run by hand, it is GoogleTest's own. CTest runs whole programs, and names in TEST_RESULTS
// a file for what became of each test: the tests then run in a process of their own that is watched. A test that
// crashes or takes too long has failed, and those after it run in the next process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// What a test may take. On a busy machine, under an emulator, the longest takes a tenth of it.
std::chrono::seconds TimeLimit() {
    const char* const setting = std::getenv("TEST_TIME_LIMIT");
    return std::chrono::seconds(setting == nullptr ? 300 : std::strtol(setting, nullptr, 10));
}

/// How often the watcher looks whether the tests' process is still there.
constexpr int kTickMilliseconds = 200;

std::string NameOf(const testing::TestInfo& test) {
    return std::string(test.test_suite_name()) + '.' + test.name();
}

const char* OutcomeOf(const testing::TestResult& result) {
    if (result.Failed()) {
        return "failed";
    }
    return result.Skipped() ? "skipped" : "passed";
}

/// Tells the watcher what the tests do, line by line.
class Reporter : public testing::EmptyTestEventListener {
public:
    explicit Reporter(int fd) : m_fd(fd) {}

    void OnTestProgramStart(const testing::UnitTest& program) override {
        for (int i = 0; i < program.total_test_suite_count(); ++i) {
            const testing::TestSuite& suite = *program.GetTestSuite(i);
            for (int j = 0; j < suite.total_test_count(); ++j) {
                const testing::TestInfo& test = *suite.GetTestInfo(j);
                if (test.should_run()) {
                    Tell("planned\t" + NameOf(test));
                }
            }
        }
    }
    void OnTestStart(const testing::TestInfo& test) override { Tell("started\t" + NameOf(test)); }
    void OnTestEnd(const testing::TestInfo& test) override {
        Tell(std::string(OutcomeOf(*test.result())) + '\t' + NameOf(test));
    }

private:
    void Tell(const std::string& message) const {
        const std::string line = message + '\n';
        if (write(m_fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            std::perror("cannot tell what became of a test");
            std::abort();
        }
    }

    int m_fd;
};

/// @param status as waitpid() tells it
/// @return what is wrong; nothing, if all is well
std::string Describe(int status) {
    if (WIFSIGNALED(status)) {
        return std::string("ended by a signal: ") + strsignal(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? "" : "ended with status " + std::to_string(WEXITSTATUS(status));
}

/// The tests of this program, and what became of them.
class Results {
public:
    explicit Results(const char* path) : m_file(path) {
        if (!m_file) {
            throw std::runtime_error(std::string(path) + ": cannot be written");
        }
    }

    /// Takes a line of the Reporter's.
    void Take(const std::string& line) {
        const size_t tab = line.find('\t');
        const std::string what = line.substr(0, tab);
        const std::string test = line.substr(tab + 1);
        if (what == "planned") {
            Plan(test);
        } else if (what == "started") {
            m_running = test;
        } else {
            End(what, test);
        }
    }

    void Fail(const std::string& test, const std::string& why) {
        std::printf("%s: %s\n", test.c_str(), why.c_str());
        End("failed", test);
    }

    const std::string& Running() const { return m_running; }
    /// Tests that have not run, in their order.
    const std::vector<std::string>& Left() const { return m_left; }
    size_t Failures() const { return m_failures; }

private:
    void Plan(const std::string& test) {
        if (std::find(m_left.begin(), m_left.end(), test) == m_left.end()) { // told by each process
            m_left.push_back(test);
            m_file << "planned\t" << test << std::endl;
        }
    }
    void End(const std::string& outcome, const std::string& test) {
        m_file << outcome << '\t' << test << std::endl;
        m_left.erase(std::remove(m_left.begin(), m_left.end(), test), m_left.end());
        m_running.clear();
        if (outcome == "failed") {
            ++m_failures;
        }
    }

    std::ofstream m_file;
    std::vector<std::string> m_left;
    std::string m_running;
    size_t m_failures = 0;
};

/// A process that runs tests, seen from the one that watches it.
class TestProcess {
public:
    /// @param tests the tests to run; none: those that the command line and the environment choose
    explicit TestProcess(const std::vector<std::string>& tests) {
        int ends[2] = {};
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        std::fflush(nullptr);
        m_pid = fork();
        if (m_pid == 0) {
            close(ends[0]);
            RunTests(tests, ends[1]); // never returns
        }
        close(ends[1]);
        m_messages = ends[0];
        fcntl(m_messages, F_SETFL, O_NONBLOCK);
    }
    ~TestProcess() { close(m_messages); }
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;

    /// Gives the results all that the process tells, until it has ended or a test has taken too long.
    /// @return what is wrong with the process; nothing, if it has ended well
    std::string Watch(Results& results) {
        const std::chrono::seconds limit = TimeLimit();
        Clock::time_point lastMessage = Clock::now();
        int status = 0;
        while (waitpid(m_pid, &status, WNOHANG) == 0) {
            pollfd messages = {m_messages, POLLIN, 0};
            poll(&messages, 1, kTickMilliseconds);
            if (TakeMessages(results)) {
                lastMessage = Clock::now();
            }
            if (Clock::now() - lastMessage > limit) {
                kill(-m_pid, SIGKILL);
                waitpid(m_pid, &status, 0);
                return "took more than " + std::to_string(limit.count()) + " seconds";
            }
        }
        TakeMessages(results); // its last
        return Describe(status);
    }

private:
    [[noreturn]] static void RunTests(const std::vector<std::string>& tests, int messages) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // not to outlive the watcher
        setpgid(0, 0);                    // what the tests start goes with them
        if (!tests.empty()) {
            std::string filter;
            for (const std::string& test : tests) {
                filter += test + ':';
            }
            testing::GTEST_FLAG(filter) = filter;
            unsetenv("GTEST_TOTAL_SHARDS");
            unsetenv("GTEST_SHARD_INDEX");
        }
        testing::UnitTest::GetInstance()->listeners().Append(new Reporter(messages));
        std::exit(RUN_ALL_TESTS());
    }

    /// @return whether there were any
    bool TakeMessages(Results& results) {
        char bytes[4096];
        bool any = false;
        ssize_t count = 0;
        while ((count = read(m_messages, bytes, sizeof bytes)) > 0) {
            any = true;
            m_text.append(bytes, static_cast<size_t>(count));
        }
        size_t end = 0;
        while ((end = m_text.find('\n')) != std::string::npos) {
            results.Take(m_text.substr(0, end));
            m_text.erase(0, end + 1);
        }
        return any;
    }

    pid_t m_pid = -1;
    int m_messages = -1;
    std::string m_text; ///< the beginning of a line
};

/// Runs the tests in as many processes as it takes: each but the last ended in the middle of a test.
int RunWatched(const char* program, const char* resultsPath) {
    Results results(resultsPath);
    std::string wrong;
    size_t failures = 0;
    bool inATest = false;
    do {
        failures = results.Failures();
        wrong = TestProcess(results.Left()).Watch(results);
        inATest = !results.Running().empty();
        if (inATest) {
            results.Fail(results.Running(), wrong.empty() ? "ended the program" : wrong);
        }
    } while (inATest && !results.Left().empty());
    if (!inATest && !wrong.empty() && failures == results.Failures()) {
        results.Fail(program, wrong); // it leaks memory, or does not get as far as its tests
    }
    while (!results.Left().empty()) {
        results.Fail(std::string(results.Left().front()), "did not run");
    }
    return results.Failures() == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const char* const results = std::getenv("TEST_RESULTS");
    return results == nullptr ? RUN_ALL_TESTS() : RunWatched(argv[0], results);
}
