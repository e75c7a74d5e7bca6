#include "cli/refused_calls.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace diskaccess {

namespace {

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr uint32_t kArchitecture = 0; // not watched: numbers of calls differ from one to the next
#endif

constexpr uint32_t kRefuse = SECCOMP_RET_ERRNO | EPERM;

const std::vector<uint32_t>& Calls() {
    static const std::vector<uint32_t> calls = {
        // starts other programs
        SYS_execve,
        SYS_execveat,
#if !defined(DISKACCESS_LOOKS_FOR_LEAKS)
        // looks into other processes, as the search for leaks does into its own
        SYS_ptrace,
#endif
        SYS_process_vm_readv,
        SYS_process_vm_writev,
        SYS_perf_event_open,
        // changes what files there are
        SYS_mount,
        SYS_umount2,
        SYS_pivot_root,
        SYS_chroot,
        SYS_unshare,
        SYS_setns,
        SYS_swapon,
        SYS_swapoff,
        SYS_open_by_handle_at,
        SYS_fanotify_init,
        SYS_quotactl,
        // changes the kernel and the machine
        SYS_init_module,
        SYS_finit_module,
        SYS_delete_module,
        SYS_kexec_load,
        SYS_bpf,
        SYS_reboot,
        SYS_acct,
        SYS_settimeofday,
        SYS_clock_settime,
        SYS_sethostname,
        // keys of other programs
        SYS_keyctl,
        SYS_add_key,
        SYS_request_key,
        // does other calls' work unseen
        SYS_io_uring_setup,
        SYS_userfaultfd,
    };
    return calls;
}

const std::vector<uint32_t>& NetworkCalls() {
    static const std::vector<uint32_t> calls = {SYS_socket, SYS_socketpair, SYS_connect,
                                                SYS_bind,   SYS_listen,     SYS_sendto};
    return calls;
}

/// Device commands that a descriptor which is only for reading does not stop, at least not root's.
const std::vector<uint32_t>& DeviceCommands() {
    static const std::vector<uint32_t> commands = {
        0x2285,     // SG_IO: any command to a disk
        0x0001,     // SCSI_IOCTL_SEND_COMMAND
        0x031F,     // HDIO_DRIVE_CMD
        0x031E,     // HDIO_DRIVE_TASK
        0x031D,     // HDIO_DRIVE_TASKFILE
        0xC0484E41, // NVME_IOCTL_ADMIN_CMD
        0xC0484E43, // NVME_IOCTL_IO_CMD
        0x125D,     // BLKROSET
        0x1277,     // BLKDISCARD
        0x127D,     // BLKSECDISCARD
        0x127F,     // BLKZEROOUT
        0x5412,     // TIOCSTI: types at the terminal
        0x541C,     // TIOCLINUX
    };
    return commands;
}

/// A program for the kernel, which looks at each system call.
class Filter {
public:
    Filter() {
        Load(offsetof(seccomp_data, arch));
        RefuseUnless(kArchitecture); // numbers of calls would mean others
        Load(offsetof(seccomp_data, nr));
#if defined(__x86_64__)
        constexpr uint32_t kOtherNumbers = 0x40000000; // the same calls once more, for 32-bit pointers
        Add(BPF_JMP | BPF_JGE | BPF_K, kOtherNumbers, 0, 1);
        Add(BPF_RET | BPF_K, kRefuse);
#endif
    }

    void Refuse(const std::vector<uint32_t>& values) {
        for (const uint32_t value : values) {
            Add(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
            Add(BPF_RET | BPF_K, kRefuse);
        }
    }
    void RefuseCommands(const std::vector<uint32_t>& commands) {
        Add(BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, 1, 0);
        Add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
        Load(offsetof(seccomp_data, args) +
             sizeof(uint64_t)); // little-endian: the lower half, which the kernel takes
        Refuse(commands);
    }
    bool Install() {
        Add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
        const sock_fprog program = {static_cast<unsigned short>(m_steps.size()), m_steps.data()};
        return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0;
    }

private:
    void Load(size_t offset) {
        Add(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
    }
    void RefuseUnless(uint32_t value) {
        Add(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0);
        Add(BPF_RET | BPF_K, kRefuse);
    }
    void Add(unsigned int code, uint32_t value, uint8_t ifTrue = 0, uint8_t ifFalse = 0) {
        m_steps.push_back({static_cast<uint16_t>(code), ifTrue, ifFalse, value});
    }

    std::vector<sock_filter> m_steps;
};

} // namespace

bool RefuseCalls(bool network) {
    if (kArchitecture == 0 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return false;
    }
    Filter filter;
    filter.Refuse(Calls());
    if (!network) {
        filter.Refuse(NetworkCalls());
    }
    filter.RefuseCommands(DeviceCommands());
    return filter.Install();
}

} // namespace diskaccess
