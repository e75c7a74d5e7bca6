#ifndef BENCH_PLAYBACK_IN_CHILD_H
#define BENCH_PLAYBACK_IN_CHILD_H

#include <cstddef>
#include <functional>
#include <type_traits>

namespace playback_bench {

/// Runs @p action in a process of its own, with standard output thrown away: every measurement begins with
/// the same heap, and leaves nothing behind.
/// @param result filled in there by @p action, and brought back
/// @return the process's peak memory, in KiB
/// @throws sample_recorder::Error when it failed; it has said why on standard error
long RunInChild(const std::function<void()>& action, void* result, size_t size);

/// The same, with a plain structure that @p action returns.
template <typename Action>
auto InChild(const Action& action, long* peakKiB = nullptr) {
    using Result = decltype(action());
    static_assert(std::is_trivially_copyable<Result>::value, "results come through a pipe");
    Result result = {};
    const long peak = RunInChild([&] { result = action(); }, &result, sizeof result);
    if (peakKiB != nullptr) {
        *peakKiB = peak;
    }
    return result;
}

} // namespace playback_bench

#endif // BENCH_PLAYBACK_IN_CHILD_H
