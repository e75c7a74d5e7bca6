/* Preloaded into a program under test.

   Writes every open() and openat() of a file whose path contains $SHIM_WATCH, or leads to the file of that name, to the file
   $SHIM_LOG, one line "PATH FLAGS" each.
   Makes every read() and pread() fail that touches bytes $SHIM_BAD_FROM to $SHIM_BAD_TO of the file $SHIM_BAD_FILE, as a worn disk
   would.
   Makes renameat2() fail if $SHIM_NO_RENAMEAT2 is set, and linkat() if $SHIM_NO_LINKAT is, as on file systems without them.
   Runs the shell command $SHIM_AFTER_MAKE after the first openat() that makes a file, $SHIM_BEFORE_RENAME before the first
   renameat2(), and $SHIM_BEFORE_EXCHANGE before the first one that exchanges names; $SHIM_PROGRAM is the process.
   Has the disk under the folder $SHIM_FULL_FOLDER be full from the call with number $SHIM_FULL_AT on, of those that take space
   there: files that are made, named or grow, and writes that are sent to the medium.
   Writes each fsync() and renameat2() to $SHIM_LOG too if $SHIM_SYNCS is set: "sync PATH", "name NAME".

   The program may confine itself: the log is open, and what runs commands is started, before its main function begins. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

typedef int (*open_function)(const char*, int, ...);
typedef int (*openat_function)(int, const char*, int, ...);
typedef int (*linkat_function)(int, const char*, int, const char*, int);
typedef int (*renameat2_function)(int, const char*, int, const char*, unsigned int);
typedef int (*fsync_function)(int);
typedef ssize_t (*write_function)(int, const void*, size_t);
typedef ssize_t (*pwrite_function)(int, const void*, size_t, off_t);
typedef ssize_t (*pwrite64_function)(int, const void*, size_t, off64_t);
typedef int (*ftruncate_function)(int, off_t);
typedef int (*ftruncate64_function)(int, off64_t);
typedef ssize_t (*read_function)(int, void*, size_t);
typedef ssize_t (*pread_function)(int, void*, size_t, off_t);
typedef ssize_t (*pread64_function)(int, void*, size_t, off64_t);

static int leads_to(const char* path, const char* name) {
    struct stat named, found;
    return stat(name, &named) == 0 && stat(path, &found) == 0 && named.st_ino == found.st_ino &&
           named.st_dev == found.st_dev;
}

static int log_file = -1;
static int to_runner = -1;
static int from_runner = -1;

/* Runs the commands in the environment variables that are named, each with its end, until nobody is left to name any. */
static void serve(int requests, int answers) {
    char variable[64];
    unsetenv("LD_PRELOAD");
    const read_function real = (read_function)dlsym(RTLD_NEXT, "read");
    while (real(requests, variable, sizeof variable) == (ssize_t)sizeof variable) {
        const char status = system(getenv(variable)) == 0 ? 0 : 1;
        if (write(answers, &status, 1) != 1) {
            break;
        }
    }
    _exit(0);
}

static void start_runner(void) {
    int requests[2], answers[2];
    if (pipe2(requests, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0) {
        abort();
    }
    char program[16];
    snprintf(program, sizeof program, "%d", (int)getpid());
    setenv("SHIM_PROGRAM", program, 1);
    const pid_t child = fork();
    if (child < 0) {
        abort();
    }
    if (child == 0) {
        close(requests[1]);
        close(answers[0]);
        serve(requests[0], answers[1]);
    }
    close(requests[0]);
    close(answers[1]);
    to_runner = requests[1];
    from_runner = answers[0];
}

static dev_t full_device;
static long full_at = -1;
static long calls_for_space;

/* Whether a call for space on a file system finds none. */
static int is_full(dev_t device) {
    return full_at >= 0 && device == full_device && __sync_fetch_and_add(&calls_for_space, 1) >= full_at;
}

/* The same of a file that is to end there or further. */
static int is_full_at(int fd, long long end) {
    struct stat status;
    if (full_at < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) ||
        end <= (long long)status.st_size || !is_full(status.st_dev)) {
        return 0;
    }
    errno = ENOSPC;
    return 1;
}

__attribute__((constructor)) static void begin(void) {
    struct stat folder;
    if (getenv("SHIM_FULL_AT") != NULL && stat(getenv("SHIM_FULL_FOLDER"), &folder) == 0) {
        full_device = folder.st_dev;
        full_at = atol(getenv("SHIM_FULL_AT"));
    }
    const char* const log = getenv("SHIM_LOG");
    if (log != NULL) {
        const open_function real = (open_function)dlsym(RTLD_NEXT, "open");
        log_file = real(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    }
    if (getenv("SHIM_AFTER_MAKE") != NULL || getenv("SHIM_BEFORE_RENAME") != NULL ||
        getenv("SHIM_BEFORE_EXCHANGE") != NULL) {
        start_runner();
    }
}

static void note(const char* path, int flags) {
    const char* const name = getenv("SHIM_WATCH");
    if (name != NULL && log_file >= 0 && (strstr(path, name) != NULL || leads_to(path, name))) {
        char line[4096];
        const int length = snprintf(line, sizeof line, "%s %d\n", path, flags);
        if (write(log_file, line, (size_t)length) < 0) {
            abort();
        }
    }
}

static void note_step(const char* step, const char* name) {
    if (getenv("SHIM_SYNCS") != NULL && log_file >= 0) {
        char line[4096];
        const int length = snprintf(line, sizeof line, "%s %s\n", step, name);
        if (write(log_file, line, (size_t)length) < 0) {
            abort();
        }
    }
}

int fsync(int fd) {
    char link[32];
    char path[4096] = {0};
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    if (readlink(link, path, sizeof path - 1) > 0) {
        note_step("sync", path);
    }
    struct stat status;
    if (fstat(fd, &status) == 0 && is_full(status.st_dev)) {
        errno = ENOSPC;
        return -1;
    }
    return ((fsync_function)dlsym(RTLD_NEXT, "fsync"))(fd);
}

static int pass_on(const char* function, const char* path, int flags, va_list arguments) {
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    note(path, flags);
    struct stat status;
    if ((flags & O_CREAT) != 0 && stat(path, &status) != 0 && is_full(full_device)) {
        errno = ENOSPC;
        return -1;
    }
    return ((open_function)dlsym(RTLD_NEXT, function))(path, flags, mode);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int fd = pass_on("open", path, flags, arguments);
    va_end(arguments);
    return fd;
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int fd = pass_on("open64", path, flags, arguments);
    va_end(arguments);
    return fd;
}

/* Has the command in an environment variable run, once. */
static void run(const char* variable) {
    if (getenv(variable) == NULL) {
        return;
    }
    char request[64] = {0};
    strcpy(request, variable);
    const read_function real = (read_function)dlsym(RTLD_NEXT, "read");
    char status = 1;
    ssize_t got = -1;
    if (write(to_runner, request, sizeof request) != (ssize_t)sizeof request) {
        abort();
    }
    do { // the command may send a signal
        got = real(from_runner, &status, 1);
    } while (got < 0 && errno == EINTR);
    if (got != 1 || status != 0) {
        abort();
    }
    unsetenv(variable);
}

static int pass_on_at(const char* function, int folder, const char* path, int flags, va_list arguments) {
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    note(path, flags);
    if ((flags & O_EXCL) != 0 && is_full(full_device)) {
        errno = ENOSPC;
        return -1;
    }
    const int fd = ((openat_function)dlsym(RTLD_NEXT, function))(folder, path, flags, mode);
    if (fd >= 0 && (flags & O_EXCL) != 0) {
        run("SHIM_AFTER_MAKE");
    }
    return fd;
}

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int fd = pass_on_at("openat", folder, path, flags, arguments);
    va_end(arguments);
    return fd;
}

int openat64(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const int fd = pass_on_at("openat64", folder, path, flags, arguments);
    va_end(arguments);
    return fd;
}

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags) {
    if (getenv("SHIM_NO_LINKAT") != NULL) {
        errno = EPERM;
        return -1;
    }
    if (is_full(full_device)) {
        errno = ENOSPC;
        return -1;
    }
    return ((linkat_function)dlsym(RTLD_NEXT, "linkat"))(from_folder, from, to_folder, to, flags);
}

int renameat2(int from_folder, const char* from, int to_folder, const char* to, unsigned int flags) {
    note_step("name", to);
    run("SHIM_BEFORE_RENAME");
    if (getenv("SHIM_NO_RENAMEAT2") != NULL) {
        errno = EINVAL;
        return -1;
    }
    if ((flags & RENAME_EXCHANGE) == 0 && is_full(full_device)) {
        errno = ENOSPC;
        return -1;
    }
    if ((flags & RENAME_EXCHANGE) != 0) {
        run("SHIM_BEFORE_EXCHANGE");
    }
    return ((renameat2_function)dlsym(RTLD_NEXT, "renameat2"))(from_folder, from, to_folder, to, flags);
}

/* Whether a descriptor is open on the file that an environment variable names. */
static int is_file_of(const char* variable, int fd) {
    const char* const name = getenv(variable);
    struct stat named, own;
    return name != NULL && stat(name, &named) == 0 && fstat(fd, &own) == 0 && named.st_ino == own.st_ino &&
           named.st_dev == own.st_dev;
}

static int lies_on_bad_bytes(int fd, long long position, size_t size) {
    const char* const from = getenv("SHIM_BAD_FROM");
    const char* const to = getenv("SHIM_BAD_TO");
    return from != NULL && to != NULL && is_file_of("SHIM_BAD_FILE", fd) && position < atoll(to) &&
           position + (long long)size > atoll(from);
}

ssize_t read(int fd, void* data, size_t size) {
    if (lies_on_bad_bytes(fd, lseek(fd, 0, SEEK_CUR), size)) {
        errno = EIO;
        return -1;
    }
    return ((read_function)dlsym(RTLD_NEXT, "read"))(fd, data, size);
}

ssize_t pread(int fd, void* data, size_t size, off_t offset) {
    if (lies_on_bad_bytes(fd, offset, size)) {
        errno = EIO;
        return -1;
    }
    return ((pread_function)dlsym(RTLD_NEXT, "pread"))(fd, data, size, offset);
}

ssize_t pread64(int fd, void* data, size_t size, off64_t offset) {
    if (lies_on_bad_bytes(fd, offset, size)) {
        errno = EIO;
        return -1;
    }
    return ((pread64_function)dlsym(RTLD_NEXT, "pread64"))(fd, data, size, offset);
}

ssize_t write(int fd, const void* data, size_t size) {
    if (is_full_at(fd, lseek(fd, 0, SEEK_CUR) + (long long)size)) {
        return -1;
    }
    return ((write_function)dlsym(RTLD_NEXT, "write"))(fd, data, size);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    if (is_full_at(fd, offset + (long long)size)) {
        return -1;
    }
    return ((pwrite_function)dlsym(RTLD_NEXT, "pwrite"))(fd, data, size, offset);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    if (is_full_at(fd, offset + (long long)size)) {
        return -1;
    }
    return ((pwrite64_function)dlsym(RTLD_NEXT, "pwrite64"))(fd, data, size, offset);
}

int ftruncate(int fd, off_t size) {
    if (is_full_at(fd, size)) {
        return -1;
    }
    return ((ftruncate_function)dlsym(RTLD_NEXT, "ftruncate"))(fd, size);
}

int ftruncate64(int fd, off64_t size) {
    if (is_full_at(fd, size)) {
        return -1;
    }
    return ((ftruncate64_function)dlsym(RTLD_NEXT, "ftruncate64"))(fd, size);
}
