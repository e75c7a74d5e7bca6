/* Preloaded into a program under test.

   Writes every open() of a file whose path contains $SHIM_WATCH to the file $SHIM_LOG, one line "PATH FLAGS" each.
   Makes every read() and pread() fail that touches bytes $SHIM_BAD_FROM to $SHIM_BAD_TO of the file $SHIM_BAD_FILE, as a worn disk
   would. */
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
typedef ssize_t (*read_function)(int, void*, size_t);
typedef ssize_t (*pread_function)(int, void*, size_t, off_t);

static void note(const char* path, int flags) {
    const char* const name = getenv("SHIM_WATCH");
    const char* const log = getenv("SHIM_LOG");
    if (name != NULL && log != NULL && strstr(path, name) != NULL) {
        char line[4096];
        const int length = snprintf(line, sizeof line, "%s %d\n", path, flags);
        const open_function real = (open_function)dlsym(RTLD_NEXT, "open");
        const int fd = real(log, O_WRONLY | O_APPEND | O_CREAT, 0600);
        if (fd >= 0) {
            if (write(fd, line, (size_t)length) < 0) {
                abort();
            }
            close(fd);
        }
    }
}

static int pass_on(const char* function, const char* path, int flags, va_list arguments) {
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    note(path, flags);
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

static int lies_on_bad_bytes(int fd, long long position, size_t size) {
    const char* const name = getenv("SHIM_BAD_FILE");
    const char* const from = getenv("SHIM_BAD_FROM");
    const char* const to = getenv("SHIM_BAD_TO");
    struct stat bad, own;
    if (name == NULL || from == NULL || to == NULL || stat(name, &bad) != 0 || fstat(fd, &own) != 0 ||
        bad.st_ino != own.st_ino || bad.st_dev != own.st_dev) {
        return 0;
    }
    return position < atoll(to) && position + (long long)size > atoll(from);
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
