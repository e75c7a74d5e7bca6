#include "block_problems.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace recordings {

namespace {

/// Problems of a kind that are named one by one. What is above that is counted in the last one.
constexpr size_t kMostOfAKind = 1000;

Problem StretchProblem(ProblemKind kind, uint32_t from, uint32_t to) {
    Problem problem;
    problem.kind = kind;
    problem.offset = from;
    problem.bytes = to - from;
    return problem;
}

/// The time stamps of the media on both sides of each place.
class Neighbours {
public:
    explicit Neighbours(const std::vector<FoundFrame>& frames) {
        std::copy_if(frames.begin(), frames.end(), std::back_inserter(m_media),
                     [](const FoundFrame& frame) { return frame.IsMedia(); });
    }

    std::optional<int64_t> Before(uint64_t offset) const {
        const auto at = At(offset);
        return at == m_media.begin() ? std::nullopt : std::optional<int64_t>(std::prev(at)->time);
    }
    std::optional<int64_t> From(uint64_t offset) const {
        const auto at = At(offset);
        return at == m_media.end() ? std::nullopt : std::optional<int64_t>(at->time);
    }

private:
    std::vector<FoundFrame>::const_iterator At(uint64_t offset) const {
        return std::lower_bound(
            m_media.begin(), m_media.end(), offset,
            [](const FoundFrame& frame, uint64_t wanted) { return frame.offset < wanted; });
    }

    std::vector<FoundFrame> m_media;
};

/// Counts together what is too much to be named one by one.
std::vector<Problem> Bounded(const std::vector<Problem>& problems) {
    std::vector<Problem> bounded;
    std::map<ProblemKind, std::pair<size_t, size_t>> kinds; // how many, and the entry of the last
    for (const Problem& problem : problems) {
        auto& [count, last] = kinds[problem.kind];
        if (++count <= kMostOfAKind) {
            last = bounded.size();
            bounded.push_back(problem);
            continue;
        }
        Problem& rest = bounded[last];
        rest.bytes += problem.bytes;
        rest.count += 1 + (rest.count == 0 ? 1 : 0);
        rest.after = problem.after;
    }
    return bounded;
}

/// Where the frames end: what cannot be read after that is nobody's loss.
uint64_t EndOf(const FoundFrames& found) {
    if (found.lostAtEnd) {
        return UINT64_MAX;
    }
    return std::max(found.frames.empty() ? 0 : found.frames.back().End(),
                    found.damaged.empty() ? uint64_t{0} : found.damaged.back().to);
}

} // namespace

void CompleteProblems(FoundFrames& found, uint32_t block, const std::map<uint32_t, uint32_t>& unreadable) {
    auto& problems = found.problems;
    for (const Stretch& stretch : found.damaged) {
        problems.push_back(StretchProblem(ProblemKind::BytesDamaged, stretch.from, stretch.to));
    }
    const uint64_t end = EndOf(found);
    for (const auto& [from, to] : unreadable) {
        if (from < end) {
            problems.push_back(StretchProblem(ProblemKind::BytesUnreadable, from, to));
        }
    }
    std::stable_sort(problems.begin(), problems.end(),
                     [](const Problem& a, const Problem& b) { return a.offset < b.offset; });
    if (problems.empty()) {
        return;
    }
    const Neighbours neighbours(found.frames);
    for (Problem& problem : problems) {
        problem.block = block;
        if (problem.offset) {
            const std::optional<size_t> entry = found.EntryAt(*problem.offset);
            if (problem.kind == ProblemKind::FrameDamaged && entry) {
                // What was wrong may have been mended meanwhile.
                problem.channel = found.frames[*entry].channel;
                problem.bytes = found.frames[*entry].End() - *problem.offset;
            }
            problem.before = neighbours.Before(*problem.offset);
            problem.after = neighbours.From(*problem.offset + std::max<uint64_t>(problem.bytes, 1));
        }
    }
    problems = Bounded(problems);
}

} // namespace recordings
