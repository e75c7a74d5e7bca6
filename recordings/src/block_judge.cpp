#include "block_judge.h"

#include <algorithm>
#include <map>
#include <optional>

#include "block_facts.h"
#include "event_payload.h"
#include "frame_walk.h"
#include "hidden_frames.h"
#include "index_check.h"
#include "index_totals.h"
#include "key_frame_check.h"
#include "key_frame_grid.h"
#include "pace_check.h"
#include "picture_kind.h"
#include "time_check.h"

namespace recordings {

namespace {

bool IndexIsUseless(FoundFrames& found, const BlockFacts& facts, FrameArea& area) {
    IndexTotals totals(found, facts);
    return IndexCheck(found, facts, area, totals).Useless();
}

/// Says that the index was of no use. An end mark right after the last frame tells that nothing is missing.
void NoteIndexLost(FoundFrames& found) {
    Problem problem;
    problem.kind = ProblemKind::IndexDamaged;
    problem.severity = found.marked && found.Unbroken() ? Severity::Note : Severity::Loss;
    found.problems.push_back(problem);
}

/// Recorders use few types. One far above them is damaged, unless several frames have it.
void CheckTypes(FoundFrames& found) {
    std::map<uint32_t, size_t> count;
    for (const FoundFrame& frame : found.frames) {
        ++count[frame.type];
    }
    for (FoundFrame& frame : found.frames) {
        if (frame.type >= kFrameTypes && count[frame.type] == 1) {
            found.NoteDamaged(frame);
        }
    }
}

/// The tracks of a block, made again when its frames have changed: then there are fewer, or a problem says so.
class CurrentTracks {
public:
    explicit CurrentTracks(const FoundFrames& found) : m_found(found) {}

    const Tracks& Get() {
        if (!m_tracks || m_problems != m_found.problems.size() || m_frames != m_found.frames.size()) {
            m_problems = m_found.problems.size();
            m_frames = m_found.frames.size();
            m_tracks.emplace(m_found.frames);
        }
        return *m_tracks;
    }

private:
    const FoundFrames& m_found;
    std::optional<Tracks> m_tracks;
    size_t m_problems = 0;
    size_t m_frames = 0;
};

/// Without an index, and where it does not agree with the frames though nothing is damaged, any length may be wrong. In
/// payloads that were not read the pace alone tells.
void FindHidden(FoundFrames& found, const BlockFacts& facts, FrameArea& area, CurrentTracks& tracks) {
    HiddenFrames hidden(found, facts, area);
    const bool agrees = facts.Index() != nullptr
                            ? !found.Unbroken() || IndexTotals(found, facts).AllComplete()
                            : !area.IsKept();
    if (agrees) {
        hidden.Find(tracks.Get());
    } else {
        hidden.FindAll();
    }
}

void CheckIndexed(FoundFrames& found, const BlockFacts& facts, FrameArea& area, CurrentTracks& tracks) {
    IndexTotals totals(found, facts);
    totals.Run();
    TimeCheck(found, facts, tracks.Get()).Run();
    IndexCheck(found, facts, area, totals).Run();
    PaceCheck(found, facts, area, tracks.Get()).Run();
}

/// Events of which no index knows may be other frames whose type was changed: such are too short, or begin as video does,
/// or have more kinds at once than there may be.
void CheckEvents(FoundFrames& found, const BlockFacts& facts, FrameArea& area) {
    for (FoundFrame& frame : found.frames) {
        if (frame.type != kEventFrame || facts.ListsEvent(frame.offset, frame.time)) {
            continue;
        }
        const std::optional<EventHead_t> event = EventAt(area, frame);
        const bool other =
            event && event->Indexed > 1 &&
            (CountKinds(*event) > kMostKindsAtOnce || PictureKindAt(area, frame) != PictureKind::Unknown);
        if (other || frame.size < sizeof(EventHead_t)) {
            found.NoteDamaged(frame);
        }
    }
}

void CheckOpen(const Disk& disk, FoundFrames& found, const BlockFacts& facts, FrameArea& area,
               CurrentTracks& tracks) {
    TimeCheck(found, facts, tracks.Get()).Run();
    PaceCheck(found, facts, area, tracks.Get()).Run();
    const KeyFrameGrids grids = ReadKeyFrameGrids(disk, facts.Of());
    KeyFrameCheck(found, area, grids).Run(tracks.Get());
    if (facts.Of().closed) {
        NoteIndexLost(found);
    }
}

/// Whether head and frames are of an earlier turn than the tail, which has the second of the last frame: the disk lost what
/// was written over them.
bool IsOfEarlierTurn(const FoundFrames& found, const Block& block) {
    const bool named = std::any_of(found.problems.begin(), found.problems.end(),
                                   [](const Problem& each) { return each.severity == Severity::Loss; });
    return !block.headSound && !named &&
           std::none_of(found.frames.begin(), found.frames.end(),
                        [&block](const FoundFrame& frame) { return frame.Seconds() == block.end; });
}

/// A block is opened for a frame: one that was closed has held some.
void CheckForNothing(FoundFrames& found, const Block& block) {
    const bool empty = found.frames.empty() && found.problems.empty();
    if (block.closed && (empty || IsOfEarlierTurn(found, block))) {
        Problem problem;
        problem.kind = ProblemKind::BlockWiped;
        found.problems.push_back(problem);
        found.lostAtEnd = true;
    }
}

} // namespace

FoundFrames JudgeBlock(const Disk& disk, const Block& block, FrameArea& area) {
    BlockFacts facts(disk, block);
    FoundFrames found = FrameWalk(area, facts).Run();
    if (facts.Headless()) {
        found.problems.clear();
        return found;
    }
    if (facts.Index() != nullptr && IndexIsUseless(found, facts, area)) {
        facts.DropIndex();
        found = FrameWalk(area, facts).Run();
    }
    DropLeftOver(found, facts);
    CurrentTracks tracks(found);
    FindHidden(found, facts, area, tracks);
    if (facts.Index() != nullptr) {
        CheckIndexed(found, facts, area, tracks);
    } else {
        CheckOpen(disk, found, facts, area, tracks);
    }
    CheckTypes(found);
    CheckEvents(found, facts, area);
    CheckForNothing(found, block);
    return found;
}

} // namespace recordings
