#include "child_process.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>

#include "media/error.h"

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

[[noreturn]] void CannotStart(int error) {
    throw Error(ErrorKind::CannotMake, std::string("cannot start a child process: ") + std::strerror(error));
}

} // namespace

Child::Child(Child&& other) noexcept : m_id(std::exchange(other.m_id, 0)) {}

Child::~Child() {
    if (m_id > 0) {
        kill(m_id, SIGKILL);
        Wait();
    }
}

bool Child::Succeeded() {
    const int status = Wait();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
        CannotStart(errno);
    }
    m_reading.emplace(ends[0]);
    m_writing.emplace(ends[1]);
}

Child StartChild(const std::function<bool()>& work, Kept kept, const ChildLimits& limits) {
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

} // namespace media
