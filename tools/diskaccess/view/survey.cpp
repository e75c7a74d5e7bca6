#include "view/survey.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "cli/failure.h"
#include "recordings/error.h"

namespace diskaccess::view {

namespace {

using recordings::Damage;
using recordings::Event;
using recordings::Problem;
using recordings::Span;
using recordings::TimeRange;

/// The most problems that are kept: a forged disk can have one in every frame.
constexpr size_t kMostDamages = 10000;

bool Earlier(const Event& a, const Event& b) {
    return a.micros < b.micros;
}

} // namespace

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
    m_channels.at(record.channel).Add({record.start, record.end});
    m_any.Add({record.start, record.end});
}

void Survey::Keep(const Problem& problem) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const size_t known = m_problems.All().size();
    if (known < kMostDamages) {
        m_problems.Add(problem);
    }
    if (m_problems.All().size() > known) {
        m_damages.push_back(DamageOf(problem, *m_blocks));
    }
}

recordings::Watch Survey::WatchFrom(double begin, double share) {
    return [this, begin, share](const recordings::Progress& progress) {
        const auto total = static_cast<double>(std::max<uint64_t>(progress.total, 1));
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

Survey::Picture Survey::Recorded(const TimeRange& range, uint32_t silence) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Picture picture;
    picture.complete = m_complete;
    picture.progress = m_progress;
    picture.failure = m_failure;
    for (size_t channel = 0; channel < m_channels.size(); ++channel) {
        picture.channels.at(channel) = m_channels.at(channel).Within(range, silence);
    }
    picture.journeys = m_any.Within(range, std::max(silence, recordings::JourneyQuery().silence));
    return picture;
}

std::vector<Event> Survey::Events(const TimeRange& range, size_t most) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    Event begin;
    begin.micros = int64_t{range.first} * recordings::kMicros;
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
        if (found.size() < most && range.Meets(damage.time.start, damage.time.end)) {
            found.push_back(damage);
        }
    }
    return found;
}

std::optional<Span> Survey::Whole() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_any.All().empty()) {
        return std::nullopt;
    }
    return Span{m_any.All().front().start, m_any.All().back().end};
}

bool Survey::Complete() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_complete;
}

} // namespace diskaccess::view
