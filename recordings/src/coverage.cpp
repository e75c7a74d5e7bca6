#include "recordings/coverage.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace recordings {

namespace {

constexpr uint32_t kLastSecond = 0xFFFFFFFF;

bool Earlier(const Span& a, const Span& b) {
    return a.start < b.start;
}

/// The entry of those that rise, without meeting each other, that a time belongs to; or that is nearest to it.
template <typename Items, typename SpanOfItem>
size_t Nearest(const Items& items, uint32_t time, const SpanOfItem& spanOf) {
    const auto after = std::partition_point(items.begin(), items.end(),
                                            [&](const auto& item) { return spanOf(item).end < time; });
    if (after == items.end() || (after != items.begin() && spanOf(*after).start > time &&
                                 spanOf(*after).start - time > time - spanOf(*std::prev(after)).end)) {
        return static_cast<size_t>(after - items.begin()) - 1;
    }
    return static_cast<size_t>(after - items.begin());
}

std::vector<Span> GapsBetween(const std::vector<Span>& spans) {
    std::vector<Span> gaps;
    for (size_t i = 1; i < spans.size(); ++i) {
        gaps.push_back({spans[i - 1].end + 1, spans[i].start - 1});
    }
    return gaps;
}

/// Alarms that meet are one.
std::vector<AlarmSpan> JoinedAlarms(std::vector<AlarmSpan> alarms) {
    std::sort(alarms.begin(), alarms.end(),
              [](const AlarmSpan& a, const AlarmSpan& b) { return Earlier(a.time, b.time); });
    std::vector<AlarmSpan> joined;
    for (const AlarmSpan& alarm : alarms) {
        if (!joined.empty() && alarm.time.start <= int64_t{joined.back().time.end} + 1) {
            joined.back().time.end = std::max(joined.back().time.end, alarm.time.end);
            joined.back().types |= alarm.types;
        } else {
            joined.push_back(alarm);
        }
    }
    return joined;
}

/// The time of a problem: that of the frames around it, or of its block.
Span TimeOf(const Problem& problem, const BlockList& blocks) {
    Span time = {0, kLastSecond};
    const std::optional<size_t> entry = problem.block ? blocks.Find(*problem.block) : std::nullopt;
    if (entry) {
        const Block& block = blocks.All()[*entry];
        time = {block.start, std::max(block.start, block.end)};
    }
    if (problem.before || problem.after) {
        time.start = problem.before ? SecondOf(*problem.before) : time.start;
        time.end = std::max(time.start, problem.after ? SecondOf(*problem.after) : time.start);
    }
    return time;
}

ChannelSet ChannelsOf(const Problem& problem) {
    ChannelSet channels = {problem.channels};
    if (problem.channel) {
        channels.Add(*problem.channel);
    }
    return channels.Empty() ? ChannelSet::All() : channels;
}

Damage DamageAt(const Span& time, const Problem& problem) {
    return {time, ChannelsOf(problem), problem.kind, problem.severity, problem};
}

/// A problem of the disk as a whole has no place in time.
bool HasTime(const Problem& problem) {
    return problem.block.has_value() || problem.before || problem.after;
}

} // namespace

struct CoverageMaker::State {
    struct Alarm {
        Event event;
        uint32_t before;
        uint32_t after;
    };
    /// What the records of one channel add up to, at their starts.
    struct Amount {
        uint32_t start;
        uint64_t bytes;
    };

    JourneyQuery query;
    SpanList recorded[kChannels];
    SpanList any; ///< of all channels
    std::vector<Amount> amounts;
    std::vector<Alarm> alarms;
    std::vector<Damage> damage;

    static Span TimeOfJourney(const JourneyCoverage& each) { return {each.journey.start, each.journey.end}; }

    /// The journey that a time belongs to.
    static JourneyCoverage& JourneyAt(Coverage& coverage, uint32_t time) {
        return coverage.journeys[Nearest(coverage.journeys, time, TimeOfJourney)];
    }

    /// Journeys of all channels with their times alone: each has one number on a disk, whichever channels are asked for.
    void MakeJourneys(Coverage& coverage) const {
        for (const Span& span : any.Within({}, query.silence)) {
            JourneyCoverage each;
            each.journey.number = static_cast<uint32_t>(coverage.journeys.size()) + 1;
            each.journey.start = span.start;
            each.journey.end = span.end;
            coverage.journeys.push_back(std::move(each));
        }
    }

    /// Shares the spans of a channel out to the journeys that they lie in.
    static void AddChannel(uint32_t channel, const std::vector<Span>& recorded, Coverage& coverage) {
        auto journey = coverage.journeys.begin();
        for (const Span& span : recorded) {
            while (journey->journey.end < span.start) {
                ++journey;
            }
            if (!journey->journey.channels.Has(channel)) {
                journey->journey.channels.Add(channel);
                journey->channels.push_back({channel, {}, {}});
            }
            journey->channels.back().recorded.push_back(span);
        }
    }

    void AddAlarms(Coverage& coverage) const {
        for (const Alarm& alarm : alarms) {
            JourneyCoverage& each = JourneyAt(coverage, alarm.event.time);
            ++each.journey.alarms;
            each.events.push_back(alarm.event);
            const uint32_t time = alarm.event.time;
            each.alarms.push_back(
                {{time - std::min(time, alarm.before), time + std::min(kLastSecond - time, alarm.after)},
                 alarm.event.type});
        }
    }

    void AddDamage(Coverage& coverage) const {
        for (const Damage& each : damage) {
            JourneyCoverage& journey = JourneyAt(coverage, each.time.start);
            journey.journey.losses += each.severity == Severity::Loss ? 1 : 0;
            journey.damage.push_back(each);
        }
    }

    /// Leaves out the journeys without the channels that are asked for.
    static void LeaveOutOthers(Coverage& coverage) {
        auto& journeys = coverage.journeys;
        const auto isOther = [](const JourneyCoverage& each) { return each.journey.channels.Empty(); };
        journeys.erase(std::remove_if(journeys.begin(), journeys.end(), isOther), journeys.end());
    }

    static void Finish(JourneyCoverage& journey) {
        for (ChannelCoverage& channel : journey.channels) {
            channel.gaps = GapsBetween(channel.recorded);
        }
        journey.alarms = JoinedAlarms(std::move(journey.alarms));
        std::stable_sort(journey.events.begin(), journey.events.end(),
                         [](const Event& a, const Event& b) { return a.micros < b.micros; });
        std::stable_sort(journey.damage.begin(), journey.damage.end(),
                         [](const Damage& a, const Damage& b) { return Earlier(a.time, b.time); });
    }
};

Damage DamageOf(const Problem& problem, const BlockList& blocks) {
    return DamageAt(TimeOf(problem, blocks), problem);
}

CoverageMaker::CoverageMaker(const JourneyQuery& query) : m_state(std::make_unique<State>()) {
    m_state->query = query;
}

CoverageMaker::~CoverageMaker() = default;

void CoverageMaker::Add(const Record& record) {
    m_state->any.Add({record.start, record.end});
    if (m_state->query.channels.Has(record.channel)) {
        m_state->recorded[record.channel].Add({record.start, record.end});
        m_state->amounts.push_back({record.start, record.bytes});
    }
}

void CoverageMaker::Add(const Event& event, uint32_t before, uint32_t after) {
    m_state->alarms.push_back({event, before, after});
}

void CoverageMaker::Add(const Problem& problem, const Span& time) {
    m_state->damage.push_back(DamageAt(time, problem));
}

Coverage CoverageMaker::Make() const {
    Coverage coverage;
    m_state->MakeJourneys(coverage);
    if (coverage.journeys.empty()) {
        return coverage; // no journey for anything to belong to
    }
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        State::AddChannel(channel, m_state->recorded[channel].All(), coverage);
    }
    for (const State::Amount& amount : m_state->amounts) {
        Journey& journey = State::JourneyAt(coverage, amount.start).journey;
        ++journey.records;
        journey.bytes += amount.bytes;
    }
    // Of all journeys, as the nearest one may be of other channels.
    m_state->AddAlarms(coverage);
    m_state->AddDamage(coverage);
    State::LeaveOutOthers(coverage);
    for (JourneyCoverage& journey : coverage.journeys) {
        State::Finish(journey);
    }
    return coverage;
}

Coverage ReadCoverage(const Disk& disk, const BlockList& blocks, const JourneyQuery& query,
                      const ProblemSink& problems, const Watch& watch) {
    CoverageMaker maker(query);
    ProblemList seen;
    const ProblemSink note = [&](const Problem& problem) {
        seen.Add(problem);
        if (problems) {
            problems(problem);
        }
    };
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> margins; // of alarms, by block
    RecordsAndEvents take;
    take.record = [&maker](const Record& record) { maker.Add(record); };
    take.event = [&](const Event& event) {
        auto found = margins.find(event.block);
        if (found == margins.end()) {
            const auto identity = ReadIdentity(disk, event.block);
            found = margins
                        .emplace(event.block,
                                 identity ? std::pair(identity->preRecordSeconds, identity->alarmDelaySeconds)
                                          : std::pair(0u, 0u))
                        .first;
        }
        maker.Add(event, found->second.first, found->second.second);
    };
    ForEachRecordAndEvent(disk, blocks, {}, note, watch, take);
    for (const Problem& problem : seen.All()) {
        if (HasTime(problem)) {
            maker.Add(problem, TimeOf(problem, blocks));
        }
    }
    return maker.Make();
}

std::vector<Journey> FindJourneys(const Disk& disk, const BlockList& blocks, const JourneyQuery& query,
                                  const ProblemSink& problems, const Watch& watch) {
    std::vector<Journey> journeys;
    for (const JourneyCoverage& each : ReadCoverage(disk, blocks, query, problems, watch).journeys) {
        journeys.push_back(each.journey);
    }
    return journeys;
}

uint32_t LastSecondOf(const Disk& disk, const Block& block, const ProblemSink& problems) {
    uint32_t last = std::max(block.start, block.end);
    if (!block.closed && !block.unreadable && !block.wiped) {
        for (const Record& record : RecordsOf(disk, block, problems)) {
            last = std::max(last, record.end);
        }
    }
    return last;
}

} // namespace recordings
