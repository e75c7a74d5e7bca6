/* Preloaded into a program under test: writes the flags of every open() of a file whose path contains
   $OPEN_WATCH_NAME to the file $OPEN_WATCH_LOG, one "PATH FLAGS" line each. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

typedef int (*open_function)(const char*, int, ...);

static void note(const char* path, int flags) {
    const char* const name = getenv("OPEN_WATCH_NAME");
    const char* const log = getenv("OPEN_WATCH_LOG");
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
