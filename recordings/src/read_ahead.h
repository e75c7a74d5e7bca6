#ifndef RECORDINGS_READ_AHEAD_H
#define RECORDINGS_READ_AHEAD_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <utility>

namespace recordings {

/// Asks for what will be read next while a long row of small things is read one after the other. A disk then has always
/// something to do; without that it waits for each next question.
///
/// Where everything lies in memory already, asking is in vain and takes as long as reading: a group of things that was
/// read quickly is followed by one that is not asked for.
template <typename Ask>
class ReadAhead {
public:
    /// @param ask a function (size_t i) that asks for thing i
    ReadAhead(size_t count, Ask ask) : m_count(count), m_ask(std::move(ask)) {}

    /// To be called before thing @p i is read; in order.
    void Before(size_t i) {
        if (i % kGroup == 0) {
            JudgeGroup();
        }
        if (m_asking) {
            const size_t end = std::min(m_count, i + kAhead);
            for (m_asked = std::max(m_asked, i); m_asked < end; ++m_asked) {
                m_ask(m_asked);
            }
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    /// Enough to keep a disk busy, few enough to stay in memory until they are read.
    static constexpr size_t kAhead = 256;
    static constexpr size_t kGroup = 64;
    /// Longer than reading a group from memory takes, shorter than a disk takes for one thing that it must look for.
    static constexpr std::chrono::microseconds kQuick = std::chrono::microseconds(10 * kGroup);

    void JudgeGroup() {
        const Clock::time_point now = Clock::now();
        m_asking = m_begin == Clock::time_point() || now - m_begin > kQuick;
        m_begin = now;
    }

    size_t m_count;
    Ask m_ask;
    size_t m_asked = 0;
    bool m_asking = true;
    Clock::time_point m_begin;
};

} // namespace recordings

#endif // RECORDINGS_READ_AHEAD_H
