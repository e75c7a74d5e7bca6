// Stands in for the child process: it gives up nothing, so that counters and sanitizers hear of its work.

#include "child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>

#ifdef COUNTED
extern "C" void __gcov_dump(); // NOLINT(bugprone-reserved-identifier): the compiler's
#endif

namespace media {

namespace {

[[noreturn]] void End(int status) {
#ifdef COUNTED
    __gcov_dump(); // _exit() leaves it out
#endif
    _exit(status);
}

} // namespace

Child::Child(Child&& other) noexcept : m_id(std::exchange(other.m_id, 0)) {}

Child::~Child() {
    if (m_id > 0) {
        kill(m_id, SIGTERM);
        Wait();
    }
}

bool Child::Succeeded() {
    return Wait() == 0;
}

int Child::Wait() {
    int status = -1;
    while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
    }
    m_id = 0;
    return status;
}

Pipe::Pipe() {
    std::array<int, 2> ends = {-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    m_reading.emplace(ends[0]);
    m_writing.emplace(ends[1]);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): as where it is declared
Child StartChild(const std::function<bool()>& work, Kept /*kept*/, const ChildLimits& /*limits*/) {
    const pid_t id = fork();
    if (id == 0) {
        // It waits for questions when it is ended: nothing is half done.
        std::signal(SIGTERM, [](int /*number*/) { End(0); });
        End(work() ? 0 : 1);
    }
    return Child(id);
}

} // namespace media
