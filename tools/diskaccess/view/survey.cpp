#include "view/survey.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "cli/failure.h"
#include "recordings/error.h"

namespace diskaccess::view {

namespace {

using recordings::Block;
using recordings::Event;
using recordings::Problem;
using recordings::TimeRange;

/// The most problems that are kept: a forged disk can have one in every frame.
constexpr size_t kMostDamages = 10000;

uint32_t SecondOf(int64_t micros) {
    return static_cast<uint32_t>(std::clamp<int64_t>(micros / 1000000, 0, 0xFFFFFFFF));
}

bool Earlier(const Event& a, const Event& b) {
    return a.micros < b.micros;
}

} // namespace

void SpanList::Add(Span span) {
    span.last = std::max(span.first, span.last);
    const auto touches = [](const Span& one, const Span& other) {
        return int64_t{one.last} + 1 >= other.first && int64_t{other.last} + 1 >= one.first;
    };
    auto from = std::lower_bound(m_spans.begin(), m_spans.end(), span,
                                 [](const Span& a, const Span& b) { return int64_t{a.last} + 1 < b.first; });
    auto to = from;
    for (; to != m_spans.end() && touches(*to, span); ++to) {
        span.first = std::min(span.first, to->first);
        span.last = std::max(span.last, to->last);
    }
    if (from == to) {
        m_spans.insert(from, span);
    } else {
        *from = span;
        m_spans.erase(from + 1, to);
    }
}

std::vector<Span> SpanList::Within(const TimeRange& range, uint32_t resolution) const {
    std::vector<Span> within;
    auto span = std::lower_bound(m_spans.begin(), m_spans.end(), range.first,
                                 [](const Span& each, uint32_t second) { return each.last < second; });
    for (; span != m_spans.end() && span->first <= range.last; ++span) {
        if (!within.empty() && span->first - within.back().last <= resolution) {
            within.back().last = span->last;
        } else {
            within.push_back(*span);
        }
    }
    return within;
}

Survey::Survey(DiskPool& disks) : m_disks(disks), m_thread([this] { Run(); }) {}

Survey::~Survey() {
    m_ended = true;
    m_thread.join();
}

void Survey::Run() {
    std::string failure;
    try {
        m_disk = m_disks.Borrow();
        ReadBlocks();
        ReadRecords();
        ReadEvents();
    } catch (const std::exception& error) {
        failure = error.what();
    }
    m_disk.reset();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failure = failure;
    m_complete = true;
    m_progress = 1;
    m_changed.notify_all();
}

void Survey::ReadBlocks() {
    auto blocks = std::make_shared<const recordings::BlockList>(
        recordings::BlockList::Read(*m_disk, WatchFrom(0, 0.3)));
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_blocks = std::move(blocks);
        m_changed.notify_all();
    }
    for (const Problem& problem : m_disk->OpeningProblems()) {
        Keep(problem);
    }
    m_blocks->Report({}, [this](const Problem& problem) { Keep(problem); });
}

void Survey::ReadRecords() {
    ForEachRecord(
        *m_disk, *m_blocks, {}, [this](const Problem& problem) { Keep(problem); }, WatchFrom(0.3, 0.4),
        [this](const recordings::Record& record) { Keep(record); });
}

void Survey::ReadEvents() {
    std::vector<Event> events = FindEvents(
        *m_disk, *m_blocks, {}, recordings::kAllEvents, [this](const Problem& problem) { Keep(problem); },
        WatchFrom(0.7, 0.3));
    std::stable_sort(events.begin(), events.end(), Earlier);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_events = std::move(events);
}

void Survey::Keep(const recordings::Record& record) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_spans.at(record.channel).Add({record.start, record.end});
}

void Survey::Keep(const Problem& problem) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const size_t known = m_problems.All().size();
    if (known < kMostDamages) {
        m_problems.Add(problem);
    }
    if (m_problems.All().size() > known) {
        m_damages.push_back({TimeOf(problem), problem});
    }
}

/// A problem without times of its own concerns the whole of its block, or all that was recorded.
Span Survey::TimeOf(const Problem& problem) const {
    const auto entry = problem.block ? m_blocks->Find(*problem.block) : std::nullopt;
    if (entry) {
        const Block& block = m_blocks->All()[*entry];
        const Span whole = {block.start, std::max(block.start, block.end)};
        return {problem.before ? SecondOf(*problem.before) : whole.first,
                problem.after ? SecondOf(*problem.after) : whole.last};
    }
    return {problem.before ? SecondOf(*problem.before) : 0,
            problem.after ? SecondOf(*problem.after) : 0xFFFFFFFF};
}

recordings::Watch Survey::WatchFrom(double begin, double share) {
    return [this, begin, share](const recordings::Progress& progress) {
        const double total = static_cast<double>(std::max<uint64_t>(progress.total, 1));
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_progress = begin + share * static_cast<double>(progress.done) / total;
        return !m_ended;
    };
}

std::shared_ptr<const recordings::BlockList> Survey::Blocks() const {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_blocks || m_complete; });
    if (!m_blocks) {
        throw Failure(m_failure);
    }
    return m_blocks;
}

Survey::Picture Survey::Recorded(const TimeRange& range, uint32_t resolution) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Picture picture;
    picture.complete = m_complete;
    picture.progress = m_progress;
    picture.failure = m_failure;
    for (size_t channel = 0; channel < m_spans.size(); ++channel) {
        picture.channels.at(channel) = m_spans.at(channel).Within(range, resolution);
    }
    return picture;
}

std::vector<Event> Survey::Events(const TimeRange& range, size_t most) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Event begin;
    begin.micros = int64_t{range.first} * 1000000;
    std::vector<Event> found;
    for (auto event = std::lower_bound(m_events.begin(), m_events.end(), begin, Earlier);
         event != m_events.end() && event->time <= range.last && found.size() < most; ++event) {
        found.push_back(*event);
    }
    return found;
}

std::vector<Damage> Survey::Damages(const TimeRange& range, size_t most) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Damage> found;
    for (const Damage& damage : m_damages) {
        if (found.size() < most && range.Meets(damage.when.first, damage.when.last)) {
            found.push_back(damage);
        }
    }
    return found;
}

std::optional<Span> Survey::Whole() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::optional<Span> whole;
    for (const SpanList& spans : m_spans) {
        if (!spans.Empty()) {
            const Span span = spans.Whole();
            whole = whole ? Span{std::min(whole->first, span.first), std::max(whole->last, span.last)} : span;
        }
    }
    return whole;
}

bool Survey::Complete() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_complete;
}

} // namespace diskaccess::view
