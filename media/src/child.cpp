#include "child.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include "child_process.h"

namespace media {

namespace {

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
    Child child = StartChild([&] { return work(pipe.Writing()); }, {pipe.Writing()}, limits);
    pipe.CloseWriting();
    ChildAnswer answer;
    const bool heard = ReadAnswer(pipe.Reading(), limits, meanwhile, answer.bytes);
    answer.complete = heard && child.Succeeded();
    return answer;
}

} // namespace media
