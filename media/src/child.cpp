#include "child.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include "media/error.h"
#include "owned_descriptor.h"

namespace media {

namespace {

/// A user and a group that own nothing.
constexpr unsigned kNobody = 65534;

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__i386__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_I386;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_ARM;
#else
constexpr uint32_t kArchitecture = 0; // not filtered
#endif

// ---- in the child

/// The calls that computing takes. Others fail.
constexpr long kAllowed[] = {
    SYS_read,
    SYS_write,
    SYS_close,
    SYS_exit,
    SYS_exit_group,
    SYS_brk,
    SYS_munmap,
    SYS_mremap,
    SYS_madvise,
    SYS_mprotect,
    SYS_futex,
    SYS_rt_sigreturn,
    SYS_rt_sigprocmask,
    SYS_sched_yield,
    SYS_sigaltstack, // sanitizers look at the stack as a process ends
    SYS_clock_gettime,
    SYS_gettimeofday,
    SYS_getpid,
    SYS_gettid,
    SYS_sched_getaffinity,
#ifdef SYS_mmap
    SYS_mmap,
#endif
#ifdef SYS_mmap2
    SYS_mmap2,
#endif
#ifdef SYS_sigreturn
    SYS_sigreturn,
#endif
#ifdef SYS_clock_gettime64
    SYS_clock_gettime64,
#endif
#ifdef SYS_futex_time64
    SYS_futex_time64,
#endif
};

/// Has the kernel refuse every call that is not allowed. The filter reads: the architecture, then the call's number, and
/// jumps to its end for an allowed one.
bool FilterCalls() {
    constexpr size_t kCalls = std::size(kAllowed);
    std::array<sock_filter, kCalls + 6> program = {};
    size_t at = 0;
    program.at(at++) = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
    program.at(at++) = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0);
    program.at(at++) = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
    program.at(at++) = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    for (size_t i = 0; i < kCalls; ++i) {
        program.at(at++) = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(kAllowed[i]),
                                    static_cast<uint8_t>(kCalls - i), 0);
    }
    program.at(at++) = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    program.at(at++) = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const sock_fprog filter = {static_cast<unsigned short>(at), program.data()};
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

bool Limit(int resource, uint64_t value) {
    const rlimit limit = {static_cast<rlim_t>(value), static_cast<rlim_t>(value)};
    return setrlimit(static_cast<__rlimit_resource_t>(resource), &limit) == 0;
}

/// Descriptors that a child keeps, rising.
using Kept = std::vector<int>;

bool CloseOthers(const Kept& kept) {
    unsigned first = 0;
    for (const int descriptor : kept) {
        const auto next = static_cast<unsigned>(descriptor);
        if (first < next && syscall(SYS_close_range, first, next - 1, 0) != 0) {
            return false;
        }
        first = next + 1;
    }
    return syscall(SYS_close_range, first, ~0u, 0) == 0;
}

/// Gives up everything but a few descriptors. Whatever cannot be given up ends the child.
bool GiveUpPrivileges(const Kept& kept, const ChildLimits& limits, uint64_t memory) {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setresgid(kNobody, kNobody, kNobody) != 0 ||
                           setresuid(kNobody, kNobody, kNobody) != 0)) {
        return false;
    }
    const bool inTime = limits.seconds == 0 || Limit(RLIMIT_CPU, limits.seconds);
    return inTime && CloseOthers(kept) && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 &&
           Limit(RLIMIT_AS, memory) && Limit(RLIMIT_FSIZE, 0) && Limit(RLIMIT_NOFILE, 0) &&
           Limit(RLIMIT_NPROC, 0) && Limit(RLIMIT_CORE, 0) && (kArchitecture == 0 || FilterCalls());
}

[[noreturn]] void RunChild(const std::function<bool()>& work, const Kept& kept, const ChildLimits& limits,
                           uint64_t memory) {
    bool done = false;
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXCPU}) {
        std::signal(number, SIG_DFL);
    }
    try {
        done = GiveUpPrivileges(kept, limits, memory) && work();
    } catch (...) { // NOLINT(bugprone-empty-catch): the exit status tells
    }
    _exit(done ? 0 : 1);
}

// ---- in the parent

/// Bytes of memory that this process has mapped.
uint64_t MappedMemory() {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

/// A child that is ended and buried, whatever happens.
class Child {
public:
    explicit Child(pid_t id) : m_id(id) {}
    Child(Child&& other) noexcept : m_id(std::exchange(other.m_id, 0)) {}
    ~Child() {
        if (m_id > 0) {
            kill(m_id, SIGKILL);
            Wait();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool Succeeded() {
        const int status = Wait();
        return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    int Wait() {
        int status = -1;
        while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
        }
        m_id = 0;
        return status;
    }

    pid_t m_id;
};

/// How often a process that waits for its child looks at other things.
constexpr int64_t kLookMillis = 100;

[[noreturn]] void CannotStart(int error) {
    throw Error(ErrorKind::CannotMake, std::string("cannot start a child process: ") + std::strerror(error));
}

class Pipe {
public:
    Pipe() {
        std::array<int, 2> ends = {-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            CannotStart(errno);
        }
        m_reading.emplace(ends[0]);
        m_writing.emplace(ends[1]);
    }
    int Reading() const { return m_reading->Get(); }
    int Writing() const { return m_writing->Get(); }
    void CloseReading() { m_reading.reset(); }
    void CloseWriting() { m_writing.reset(); }

private:
    std::optional<OwnedDescriptor> m_reading;
    std::optional<OwnedDescriptor> m_writing;
};

/// Starts a child, which keeps some descriptors.
Child Start(const std::function<bool()>& work, Kept kept, const ChildLimits& limits) {
    std::sort(kept.begin(), kept.end());
    const uint64_t memory = MappedMemory() + limits.memory;
    const pid_t id = fork();
    if (id == 0) {
        RunChild(work, kept, limits, memory);
    }
    if (id < 0) {
        CannotStart(errno);
    }
    return Child(id);
}

/// Reads until the other end is closed.
/// @return false when that takes too long, or is more than allowed
bool ReadAnswer(int pipe, const ChildLimits& limits, const std::function<void()>& meanwhile,
                std::vector<uint8_t>& answer) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::seconds(limits.seconds);
    Clock::time_point next = Clock::now() + std::chrono::seconds(limits.silence);
    std::array<uint8_t, 0x10000> piece;
    for (;;) {
        if (meanwhile) {
            meanwhile();
        }
        const int64_t left =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::min(end, next) - Clock::now()).count();
        pollfd wait = {pipe, POLLIN, 0};
        const int ready = left <= 0 ? -1 : poll(&wait, 1, static_cast<int>(std::min(left, kLookMillis)));
        if (left > 0 && (ready == 0 || (ready < 0 && errno == EINTR))) {
            continue;
        }
        const ssize_t got = ready <= 0 ? -1 : read(pipe, piece.data(), piece.size());
        if (got == 0) {
            return true;
        }
        if (got < 0 || answer.size() + static_cast<size_t>(got) > limits.answer) {
            return false;
        }
        answer.insert(answer.end(), piece.begin(), piece.begin() + got);
        next = Clock::now() + std::chrono::seconds(limits.silence);
    }
}

} // namespace

std::optional<std::vector<uint8_t>> InChild(const std::function<bool(int answer)>& work,
                                            const ChildLimits& limits,
                                            const std::function<void()>& meanwhile) {
    ChildAnswer answer = HearChild(work, limits, meanwhile);
    return answer.complete ? std::optional(std::move(answer.bytes)) : std::nullopt;
}

ChildAnswer HearChild(const std::function<bool(int answer)>& work, const ChildLimits& limits,
                      const std::function<void()>& meanwhile) {
    Pipe pipe;
    Child child = Start([&] { return work(pipe.Writing()); }, {pipe.Writing()}, limits);
    pipe.CloseWriting();
    ChildAnswer answer;
    const bool heard = ReadAnswer(pipe.Reading(), limits, meanwhile, answer.bytes);
    answer.complete = heard && child.Succeeded();
    return answer;
}

// ---- a child that is asked

namespace {

/// Has writes to a pipe that nobody reads fail, and do nothing else. The thread's signals are as before when it goes.
class WithoutPipeSignal {
public:
    WithoutPipeSignal() {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~WithoutPipeSignal() {
        if (sigismember(&m_before, SIGPIPE) == 0) {
            const timespec atOnce = {};
            sigtimedwait(&m_pipe, nullptr, &atOnce);
            pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        }
    }
    WithoutPipeSignal(const WithoutPipeSignal&) = delete;
    WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;

private:
    sigset_t m_pipe = {};
    sigset_t m_before = {};
};

} // namespace

class AskedChild::Impl {
public:
    Impl(const Work& work, const ChildLimits& limits)
        : m_silence(limits.silence),
          m_child(Start([&] { return work(m_questions.Reading(), m_answers.Writing()); },
                        {m_questions.Reading(), m_answers.Writing()}, limits)) {
        m_questions.CloseReading();
        m_answers.CloseWriting();
        fcntl(m_questions.Writing(), F_SETFL, O_NONBLOCK);
    }

    bool Send(const void* data, size_t size) {
        const WithoutPipeSignal without;
        const auto* at = static_cast<const uint8_t*>(data);
        return Move(m_questions.Writing(), POLLOUT, size, [&](size_t left) {
            const ssize_t put = write(m_questions.Writing(), at, left);
            at += std::max<ssize_t>(put, 0);
            return put;
        });
    }

    bool Receive(void* data, size_t size) {
        auto* at = static_cast<uint8_t*>(data);
        return Move(m_answers.Reading(), POLLIN, size, [&](size_t left) {
            const ssize_t got = read(m_answers.Reading(), at, left);
            at += std::max<ssize_t>(got, 0);
            return got;
        });
    }

private:
    /// @param move moves some of the bytes that are left; returns how many, as the system's calls do
    bool Move(int descriptor, short ready, size_t size, const std::function<ssize_t(size_t)>& move) const {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point end = Clock::now() + std::chrono::seconds(m_silence);
        while (size != 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
            pollfd wait = {descriptor, ready, 0};
            const int polled = left.count() <= 0 ? 0 : poll(&wait, 1, static_cast<int>(left.count()));
            if (polled < 0 && errno == EINTR) {
                continue;
            }
            const ssize_t moved = polled <= 0 ? 0 : move(size);
            if (moved == 0 || (moved < 0 && errno != EINTR && errno != EAGAIN)) {
                return false;
            }
            size -= static_cast<size_t>(std::max<ssize_t>(moved, 0));
        }
        return true;
    }

    uint32_t m_silence;
    Pipe m_questions;
    Pipe m_answers;
    Child m_child;
};

AskedChild::AskedChild(const Work& work, const ChildLimits& limits)
    : m_impl(std::make_unique<Impl>(work, limits)) {}

AskedChild::~AskedChild() = default;

bool AskedChild::Send(const void* data, size_t size) {
    return m_impl->Send(data, size);
}

bool AskedChild::Receive(void* data, size_t size) {
    return m_impl->Receive(data, size);
}

bool ReadAll(int descriptor, void* data, size_t size) {
    auto* at = static_cast<uint8_t*>(data);
    while (size != 0) {
        const ssize_t got = read(descriptor, at, size);
        if (got == 0 || (got < 0 && errno != EINTR)) {
            return false;
        }
        at += std::max<ssize_t>(got, 0);
        size -= static_cast<size_t>(std::max<ssize_t>(got, 0));
    }
    return true;
}

bool WriteAll(int descriptor, const void* data, size_t size) {
    const auto* at = static_cast<const uint8_t*>(data);
    while (size != 0) {
        const ssize_t put = write(descriptor, at, size);
        if (put < 0 && errno != EINTR) {
            return false;
        }
        at += std::max<ssize_t>(put, 0);
        size -= static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
    return true;
}

} // namespace media
