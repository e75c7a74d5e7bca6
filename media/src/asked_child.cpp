#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <utility>

#include "child.h"
#include "child_process.h"

namespace media {

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
    Impl(const Work& work, const ChildLimits& limits, std::function<void()> meanwhile)
        : m_silence(limits.silence), m_meanwhile(std::move(meanwhile)),
          m_child(StartChild([&] { return work(m_questions.Reading(), m_answers.Writing()); },
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
            const int64_t left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            pollfd wait = {descriptor, ready, 0};
            const int polled = left <= 0 ? -1 : poll(&wait, 1, static_cast<int>(std::min(left, kLookMillis)));
            if (left > 0 && (polled == 0 || (polled < 0 && errno == EINTR))) {
                if (m_meanwhile) {
                    m_meanwhile();
                }
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
    std::function<void()> m_meanwhile;
    Pipe m_questions;
    Pipe m_answers;
    Child m_child;
};

AskedChild::AskedChild(const Work& work, const ChildLimits& limits, std::function<void()> meanwhile)
    : m_impl(std::make_unique<Impl>(work, limits, std::move(meanwhile))) {}

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
