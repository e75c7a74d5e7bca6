#include "cli/confinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "cli/refused_calls.h"

namespace diskaccess {

namespace {

/// Of the third version, which this machine's headers may be older than.
constexpr uint64_t kTruncate = uint64_t{1} << 14;
constexpr uint64_t kRead = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr uint64_t kWrite =
    LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate | LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_REG;
constexpr uint64_t kOfFiles = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | kTruncate;
/// What is given up unless a rule leaves it; rights after the first versions of Landlock are named with theirs.
constexpr uint64_t kWatched = kRead | kWrite | LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                              LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR |
                              LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                              LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM |
                              LANDLOCK_ACCESS_FS_REFER;

/// The rights that this kernel's Landlock knows; 0 without any.
uint64_t KnownRights() {
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) {
        return 0;
    }
    const uint64_t second = version < 2 ? uint64_t{LANDLOCK_ACCESS_FS_REFER} : 0;
    const uint64_t third = version < 3 ? kTruncate : 0;
    return kWatched & ~second & ~third;
}

/// The rules by which the kernel decides what can be opened.
class Rules {
public:
    Rules() : m_rights(KnownRights()) {
        landlock_ruleset_attr attributes = {};
        attributes.handled_access_fs = m_rights;
        if (m_rights != 0) {
            m_fd = static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
        }
    }
    ~Rules() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Rules(const Rules&) = delete;
    Rules& operator=(const Rules&) = delete;

    /// Leaves rights to what a path leads to, and to what lies in it. What is not there needs none.
    void Leave(const std::string& path, uint64_t rights) const {
        const int place = m_fd < 0 ? -1 : open(path.c_str(), O_PATH | O_CLOEXEC);
        struct stat status = {};
        if (place < 0) {
            return;
        }
        if (fstat(place, &status) == 0) {
            landlock_path_beneath_attr rule = {};
            rule.allowed_access = rights & m_rights & (S_ISDIR(status.st_mode) ? ~uint64_t{0} : kOfFiles);
            rule.parent_fd = place;
            syscall(SYS_landlock_add_rule, m_fd, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
        }
        close(place);
    }

    bool Obey() const {
        return m_fd >= 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
               syscall(SYS_landlock_restrict_self, m_fd, 0) == 0;
    }

private:
    uint64_t m_rights;
    int m_fd = -1;
};

/// What programs as such read: libraries and their settings, zone data, what the kernel says of devices and of itself.
std::vector<std::string> SystemFiles() {
    std::vector<std::string> files = {"/usr",     "/lib",           "/lib64",
                                      "/etc/ssl", "/etc/localtime", "/etc/ld.so.cache",
                                      "/sys",     "/dev/urandom",   "/dev/null"};
    if (const char* const zones = std::getenv("TZDIR")) {
        files.emplace_back(zones);
    }
#if defined(DISKACCESS_LOOKS_FOR_LEAKS)
    files.emplace_back("/proc");
#endif
    return files;
}

} // namespace

std::string Confinement::Text() const {
    const std::string ofFiles =
        files ? "reads no file but the source and the system's, and writes none but its outputs"
              : "is not kept from other files: this kernel has no Landlock";
    const std::string ofCalls = !calls    ? "is not kept from system calls that it does not need"
                                : network ? "starts no program"
                                          : "starts no program, and sends nothing anywhere";
    return "the program " + ofFiles + "; it " + ofCalls;
}

Confinement Confine(const Needs& needs) {
    tzset(); // the zone that TZ names may lie anywhere
    const Rules rules;
    for (const std::string& path : SystemFiles()) {
        rules.Leave(path, kRead);
    }
    for (const std::string& path : needs.readable) {
        rules.Leave(path, kRead);
    }
    for (const std::string& path : needs.listable) {
        rules.Leave(path, LANDLOCK_ACCESS_FS_READ_DIR);
    }
    for (const std::string& path : needs.writable) {
        rules.Leave(path, kRead | kWrite);
    }
#ifdef DISKACCESS_COVERAGE_FOLDER
    rules.Leave(DISKACCESS_COVERAGE_FOLDER, kRead | kWrite); // counters are written there in the end
#endif
    Confinement confinement;
    confinement.files = rules.Obey();
    confinement.calls = RefuseCalls(needs.network);
    confinement.network = needs.network;
    return confinement;
}

std::vector<std::string> WithPartsBeside(const std::string& path) {
    namespace fs = std::filesystem;
    std::vector<std::string> paths = {path};
    std::error_code failed;
    const fs::path file = path;
    if (!fs::is_regular_file(file, failed)) {
        return paths;
    }
    const fs::path folder = file.has_parent_path() ? file.parent_path() : fs::path(".");
    for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        if (entry->path().stem() == file.stem() && entry->path().filename() != file.filename()) {
            paths.push_back(entry->path().string());
        }
    }
    return paths;
}

} // namespace diskaccess
