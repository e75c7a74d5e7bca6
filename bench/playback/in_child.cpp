#include "playback/in_child.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "sample_recorder/partition_image.h"

namespace playback_bench {

namespace {

void ThrowStandardOutputAway() {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    close(null);
}

/// The child's whole life.
[[noreturn]] void Live(const std::function<void()>& action, int pipe, const void* result, size_t size) {
    ThrowStandardOutputAway();
    try {
        action();
        const ssize_t put = write(pipe, result, size);
        _exit(put >= 0 && static_cast<size_t>(put) == size ? 0 : 1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "playback_bench: %s\n", error.what());
        _exit(1);
    }
}

} // namespace

long RunInChild(const std::function<void()>& action, void* result, size_t size) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw sample_recorder::Error("no pipe can be made");
    }
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        Live(action, ends[1], result, size);
    }
    close(ends[1]);
    const ssize_t got = child < 0 ? -1 : read(ends[0], result, size);
    close(ends[0]);
    int status = 1;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0 || got < 0 ||
        static_cast<size_t>(got) != size) {
        throw sample_recorder::Error("a measurement failed");
    }
    return usage.ru_maxrss;
}

} // namespace playback_bench
