#ifndef RECORDINGS_COVERAGE_H
#define RECORDINGS_COVERAGE_H

/// @file coverage.h
/// What a timeline draws: when each channel was recorded, and when not, with alarms and damage, journey by journey.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recordings/export.h"
#include "recordings/journeys.h"
#include "recordings/records.h"
#include "recordings/spans.h"

namespace recordings {

/// A time with alarms: from the recorder's pre-record time before an event to its delay after it, joined with those that it
/// meets.
struct AlarmSpan {
    Span time;
    uint64_t types = 0; ///< type bits of its events
};

/// Something that is damaged or missing, and when it was recorded.
struct Damage {
    Span time;
    ChannelSet channels; ///< those that it concerns; all where that is not known
    ProblemKind kind = ProblemKind::BytesDamaged;
    Severity severity = Severity::Loss;
    Problem problem;
};

/// A problem with the time of the frames around it, or of its block; all time for one of the disk as a whole.
RECORDINGS_API Damage DamageOf(const Problem& problem, const BlockList& blocks);

/// One channel in one journey.
struct ChannelCoverage {
    uint32_t channel = 0;
    std::vector<Span> recorded; ///< rising, apart from each other
    std::vector<Span> gaps;     ///< between them
};

/// One journey.
struct JourneyCoverage {
    Journey journey;
    std::vector<ChannelCoverage> channels; ///< those with a recording in it, rising
    std::vector<AlarmSpan> alarms;         ///< rising, apart from each other
    std::vector<Event> events;             ///< by time
    std::vector<Damage> damage;            ///< by time
};

/// All journeys of a disk, rising.
struct Coverage {
    std::vector<JourneyCoverage> journeys;
};

/// Merges recordings, events and problems, which come in any order.
class RECORDINGS_API CoverageMaker {
public:
    explicit CoverageMaker(const JourneyQuery& query);
    ~CoverageMaker();
    CoverageMaker(const CoverageMaker&) = delete;
    CoverageMaker& operator=(const CoverageMaker&) = delete;

    void Add(const Record& record);
    /// @param before, after seconds around the event that belong to its alarm
    void Add(const Event& event, uint32_t before, uint32_t after);
    void Add(const Problem& problem, const Span& time);
    Coverage Make() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// Reads the indexes of all blocks once, and merges what they say.
/// @throws Error (Cancelled)
RECORDINGS_API Coverage ReadCoverage(const Disk& disk, const BlockList& blocks, const JourneyQuery& query,
                                     const ProblemSink& problems, const Watch& watch = {});

} // namespace recordings

#endif // RECORDINGS_COVERAGE_H
