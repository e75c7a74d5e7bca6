#include "recordings/blocks.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "block_ends.h"
#include "format/frames.h"
#include "format/ring.h"

namespace recordings {

namespace {

using disk_access::Ring;

constexpr uint32_t kUnknownEnd = 0xFFFFFFFF;

/// A head's time further than this before or after what its neighbours leave room for is damaged, unless its first frame
/// confirms it. Recorders' clocks are set now and then, mostly over hours.
constexpr int64_t kClockSetSeconds = 86400;

/// What a place in the ring holds.
enum class Content : uint8_t {
    Empty,      ///< formatted, not written yet
    Recorded,   ///< a recording
    Headless,   ///< no head: never formatted, wiped, or damaged
    Copy,       ///< what another place holds
    Unreadable, ///< the disk does not deliver the head
    Retired     ///< marked bad: the recorder passes it over
};

template <size_t Size>
std::string TextOf(const char (&field)[Size]) {
    return std::string(field, strnlen(field, Size));
}

} // namespace

/// Makes a list of blocks of their heads and tails.
class BlockListMaker {
public:
    BlockListMaker(const Disk& disk, std::vector<BlockEnds> ends)
        : m_disk(disk), m_ring{disk.BlockCount()}, m_ends(std::move(ends)), m_content(m_ends.size()),
          m_sequence(m_ends.size()), m_repaired(m_ends.size()) {}

    BlockList Make() {
        if (!m_ends.empty()) {
            Classify();
            RepairSequences();
            AdoptHeadless();
            PlaceInOrder();
            AddLostBetween();
            AddLostAtEnds();
            std::stable_sort(m_list.m_blocks.begin(), m_list.m_blocks.end(),
                             [](const Block& a, const Block& b) { return a.sequence < b.sequence; });
            RepairTimes();
            LinkNeighbours();
            NoteProblems();
            NoteHeadless();
        }
        return std::move(m_list);
    }

private:
    // ---- what each place holds

    void Classify() {
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            const BlockEnds& ends = m_ends[n];
            m_sequence[n] = ends.recSeq;
            m_content[n] = ContentOf(n, ends);
            m_list.m_emptyCount += m_content[n] == Content::Empty ? 1u : 0u;
        }
    }

    Content ContentOf(uint32_t number, const BlockEnds& ends) const {
        if (m_disk.MarkOf(number) == BlockMark::Bad) {
            return Content::Retired;
        }
        if (!ends.headRead) {
            return Content::Unreadable;
        }
        if (!ends.HeadValid()) {
            return Content::Headless;
        }
        return ends.Written() ? Content::Recorded : Content::Empty;
    }

    // ---- sequence numbers

    /// The next recorded place from @p number on, forwards or backwards; itself when there is no other.
    uint32_t RecordedFrom(uint32_t number, bool forwards) const {
        for (uint32_t steps = 1; steps < m_ring.count; ++steps) {
            const uint32_t at = m_ring.Ahead(number, forwards ? steps : uint64_t{m_ring.count} - steps);
            if (m_content[at] == Content::Recorded) {
                return at;
            }
        }
        return number;
    }

    uint32_t Distance(uint32_t from, uint32_t to) const { return m_ring.Span(from, to) - 1; }

    /// Whether a block with number @p sequence may lie at @p place, after @p before. Blocks are numbered one by one, and
    /// places that are passed over take no number.
    bool FitsAfter(uint32_t before, uint32_t place, uint32_t sequence) const {
        return before != place && sequence > m_sequence[before] &&
               sequence - m_sequence[before] <= Distance(before, place);
    }
    bool FitsBefore(uint32_t place, uint32_t sequence, uint32_t after) const {
        return after != place && sequence != 0 && m_sequence[after] > sequence &&
               m_sequence[after] - sequence <= Distance(place, after);
    }

    /// Whether the number fits both neighbours, or one of them at the seam, where the newest block meets the oldest.
    bool Fits(uint32_t place, uint32_t sequence) const {
        const uint32_t before = Before(place);
        const uint32_t after = After(place);
        const bool seam = m_sequence[before] >= m_sequence[after];
        const bool fitsAfter = FitsAfter(before, place, sequence);
        const bool fitsBefore = FitsBefore(place, sequence, after);
        return sequence != 0 && (seam ? fitsAfter || fitsBefore : fitsAfter && fitsBefore);
    }

    uint32_t Before(uint32_t place) const { return m_before[place]; }
    uint32_t After(uint32_t place) const { return m_after[place]; }

    /// Finds each place's recorded neighbours, in two turns round the ring.
    void FindNeighbours() {
        m_before.assign(m_ring.count, 0);
        m_after.assign(m_ring.count, 0);
        uint32_t last = RecordedFrom(0, false);
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            m_before[n] = last;
            last = m_content[n] == Content::Recorded ? n : last;
        }
        uint32_t next = RecordedFrom(m_ring.count - 1, true);
        for (uint32_t n = m_ring.count; n-- > 0;) {
            m_after[n] = next;
            next = m_content[n] == Content::Recorded ? n : next;
        }
    }

    /// A single number that fits neither neighbour is damaged: its tail has a copy, or its place tells.
    void RepairSequences() {
        FindNeighbours();
        if (SetCopiesAside()) {
            FindNeighbours();
        }
        for (const uint32_t n : Odd()) {
            RepairSequence(n);
        }
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            TakeLaterTail(n);
        }
    }

    /// Places with numbers that fit neither neighbour.
    std::vector<uint32_t> Odd() const {
        std::vector<uint32_t> odd;
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            const bool alone = Before(n) == n || After(n) == n;
            if (m_content[n] == Content::Recorded && !alone && !FitsAfter(Before(n), n, m_sequence[n]) &&
                !FitsBefore(n, m_sequence[n], After(n))) {
                odd.push_back(n);
            }
        }
        return odd;
    }

    /// Where head and tail agree on a number that does not fit, the block is in the wrong place. It is a copy where another
    /// has the number.
    /// @return whether there is one
    bool SetCopiesAside() {
        const std::vector<uint32_t> odd = Odd();
        std::unordered_set<uint32_t> held;
        for (uint32_t n = 0; n < m_ring.count && !odd.empty(); ++n) {
            if (m_content[n] == Content::Recorded && !std::binary_search(odd.begin(), odd.end(), n)) {
                held.insert(m_sequence[n]);
            }
        }
        bool any = false;
        for (const uint32_t n : odd) {
            if (m_ends[n].Closed() && !Fits(n, m_sequence[n]) && !held.insert(m_sequence[n]).second) {
                m_content[n] = Content::Copy;
                any = true;
            }
        }
        return any;
    }

    void RepairSequence(uint32_t n) {
        const BlockEnds& ends = m_ends[n];
        if (Fits(n, m_sequence[n]) || ends.Closed()) {
            return; // it was a neighbour's number that was damaged, or the block is in the wrong place
        }
        for (const uint32_t copy : {ends.tail.RecSeq, ends.tailEx.RecSeq, m_sequence[Before(n)] + 1}) {
            const bool ofPlace = copy == m_sequence[Before(n)] + 1;
            if (copy != m_sequence[n] && Fits(n, copy) && (!ofPlace || TimeFits(n, copy, ends.recTime))) {
                m_sequence[n] = copy;
                m_repaired[n] = true;
                return;
            }
        }
    }

    /// Where the newest block lost its head, that of the turn before shows again. No tail is of a later turn than its head.
    void TakeLaterTail(uint32_t n) {
        BlockEnds& ends = m_ends[n];
        const uint32_t number = ends.tail.RecSeq;
        const bool later = m_content[n] == Content::Recorded && ends.tailRead && number > m_sequence[n];
        if (later && m_sequence[n] != 0 && FitsAfter(Before(n), n, number) &&
            ends.tail.StartTime >= m_ends[Before(n)].recTime) {
            m_sequence[n] = number;
            m_repaired[n] = true;
            ends.recTime = ends.tail.StartTime;
        }
    }

    /// Whether a time lies between those of the neighbours, or at the seam, beside that of the one that the number fits.
    bool TimeFits(uint32_t n, uint32_t sequence, uint32_t time) const {
        const bool later = time >= m_ends[Before(n)].recTime;
        const bool earlier = time <= m_ends[After(n)].recTime;
        const bool seam = m_sequence[Before(n)] >= m_sequence[After(n)];
        return seam ? (later && FitsAfter(Before(n), n, sequence)) ||
                          (earlier && FitsBefore(n, sequence, After(n)))
                    : later && earlier;
    }

    /// Takes places without a head for recorded where what is left of head and tail says so.
    void AdoptHeadless() {
        if (std::none_of(m_content.begin(), m_content.end(),
                         [](Content each) { return each == Content::Recorded; })) {
            return;
        }
        uint32_t before = Before(0);
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            m_before[n] = before; // one that was just taken in is a neighbour too
            const bool asked = m_content[n] == Content::Headless || m_content[n] == Content::Unreadable;
            const uint32_t sequence = asked ? SequenceOfHeadless(n) : 0;
            if (sequence != 0) {
                m_content[n] = Content::Recorded;
                m_sequence[n] = sequence;
                m_repaired[n] = true;
            }
            before = m_content[n] == Content::Recorded ? n : before;
        }
        FindNeighbours();
    }

    /// The number of a block whose head does not pass for one; 0 when nothing tells that it was recorded.
    uint32_t SequenceOfHeadless(uint32_t n) const {
        const BlockEnds& ends = m_ends[n];
        if (ends.headRead && Fits(n, ends.recSeq) &&
            (ends.Closed() || TimeFits(n, ends.recSeq, ends.recTime))) {
            return ends.recSeq;
        }
        for (const uint32_t copy : {ends.tail.RecSeq, ends.tailEx.RecSeq}) {
            // Tails stay when a ring is formatted again: the time tells that one belongs to this turn.
            if (ends.tailRead && Fits(n, copy) && TimeFits(n, copy, ends.tail.StartTime)) {
                return copy;
            }
        }
        return 0;
    }

    // ---- the list

    void PlaceInOrder() {
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            if (m_content[n] == Content::Recorded) {
                m_list.m_blocks.push_back(BlockAt(n));
            }
        }
        std::stable_sort(m_list.m_blocks.begin(), m_list.m_blocks.end(),
                         [](const Block& a, const Block& b) { return a.sequence < b.sequence; });
        m_recorded = m_list.m_blocks.size();
    }

    Block BlockAt(uint32_t n) const {
        const BlockEnds& ends = m_ends[n];
        const bool bySequence =
            ends.tailRead && (ends.tail.RecSeq == m_sequence[n] || ends.tailEx.RecSeq == m_sequence[n]);
        Block block;
        block.number = n;
        block.sequence = m_sequence[n];
        block.mark = m_disk.MarkOf(n);
        block.headSound = ends.HeadValid() && !m_repaired[n];
        block.closed = m_sequence[n] != 0 && bySequence;
        block.channels = {ends.headRead ? ends.channels : 0};
        const bool timed =
            ends.headRead && (ends.recTime != 0 || !block.closed); // the tail may be an earlier turn's
        block.start = timed ? ends.recTime : ends.tail.StartTime;
        block.end = block.closed ? EndOf(ends, m_sequence[n]) : block.start;
        return block;
    }

    static uint32_t EndOf(const BlockEnds& ends, uint32_t sequence) {
        return ends.tail.RecSeq == sequence ? ends.tail.EndTime : ends.tailEx.EndTime;
    }

    /// Names what is missing where numbers are missing.
    void AddLostBetween() {
        for (size_t i = 1; i < m_recorded; ++i) {
            const Block before = m_list.m_blocks[i - 1];
            const Block after = m_list.m_blocks[i];
            if (before.sequence == 0 || after.sequence - before.sequence < 2) {
                continue;
            }
            uint32_t left = after.sequence - before.sequence - 1;
            // Where the numbers do not follow the ring, nothing tells which places lie between.
            const bool follows = After(before.number) == after.number;
            const uint32_t places = follows ? Distance(before.number, after.number) : 0;
            for (uint32_t step = 1; step < places && left != 0; ++step) {
                const uint32_t place = m_ring.Ahead(before.number, step);
                const uint32_t sequence = after.sequence - left;
                left -= AddLost(place, sequence) ? 1u : 0u;
            }
            if (left != 0) {
                NoteLostBetween(before, after, left);
            }
        }
    }

    /// @return false for a place at which nothing was recorded in this turn
    bool AddLost(uint32_t place, uint32_t sequence) {
        if (m_content[place] == Content::Empty || m_content[place] == Content::Recorded) {
            return false;
        }
        if (m_content[place] == Content::Retired) {
            const bool holds = m_ends[place].HeadValid() && m_ends[place].recSeq == sequence;
            if (holds) {
                m_retired.push_back(place);
            }
            return holds;
        }
        Block block;
        block.number = place;
        block.sequence = sequence;
        block.mark = m_disk.MarkOf(place);
        block.headSound = false;
        block.unreadable = m_content[place] == Content::Unreadable;
        block.wiped = !block.unreadable;
        m_list.m_blocks.push_back(block);
        return true;
    }

    void NoteLostBetween(const Block& before, const Block& after, uint32_t count) {
        Problem problem;
        problem.kind = ProblemKind::BlocksLost;
        problem.block = before.number;
        problem.blockAfter = after.number;
        problem.count = count;
        const uint32_t from = before.closed ? before.end : before.start;
        m_list.m_problems.push_back({{from, std::max(from, after.start)}, problem});
    }

    /// Names blocks next to the newest and the oldest that must have been, or may have been recorded.
    void AddLostAtEnds() {
        if (m_recorded == 0) {
            AddUnreadable();
            return;
        }
        const Block newest = m_list.m_blocks[m_recorded - 1];
        const Block oldest = m_list.m_blocks.front();
        const uint32_t places = Distance(newest.number, oldest.number);
        const uint32_t free = m_recorded == 1 ? m_ring.count - 1 : places == 0 ? 0 : places - 1;
        uint32_t step = 1;
        for (; step <= free && MayFollow(m_ring.Ahead(newest.number, step)); ++step) {
            AddLost(m_ring.Ahead(newest.number, step), newest.sequence + step);
        }
        for (uint32_t back = 1; back <= free - std::min(free, step - 1); ++back) {
            const uint32_t place = m_ring.Ahead(oldest.number, uint64_t{m_ring.count} - back);
            const uint32_t sequence = oldest.sequence > back ? oldest.sequence - back : 0;
            if (!MayPrecede(place, sequence)) {
                break;
            }
            AddLost(place, sequence);
        }
    }

    /// Nothing was recorded, as far as can be read.
    void AddUnreadable() {
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            if (m_content[n] == Content::Unreadable) {
                AddLost(n, n + 1);
            }
        }
    }

    /// Whether a place beside the recorded ones may have been recorded. Where the recorder has formatted every block, and
    /// where the ring has wrapped, a place without a head has lost it.
    bool MayBeLost(uint32_t place) const {
        if (m_content[place] == Content::Unreadable || m_content[place] == Content::Copy) {
            return true;
        }
        return m_content[place] == Content::Headless && (m_list.m_emptyCount != 0 || Wrapped());
    }

    /// The same of a place after the newest.
    bool MayFollow(uint32_t place) const {
        return MayBeLost(place) || (m_content[place] == Content::Headless && HoldsFrames(place));
    }

    /// The same of a place before the oldest. Before the first number nothing was recorded, whatever is left there.
    bool MayPrecede(uint32_t place, uint32_t sequence) const {
        return MayBeLost(place) ||
               (m_content[place] == Content::Headless && sequence != 0 && !IsBlank(place));
    }

    bool IsBlank(uint32_t place) const {
        const BlockEnds& ends = m_ends[place];
        const bool head = ends.validFlag == 0 && ends.recTime == 0 && ends.recSeq == 0 && ends.channels == 0;
        const bool tail = ends.tail.RecSeq == 0 && ends.tail.StartTime == 0 && ends.tail.EndTime == 0;
        return head && tail && !TimeOfFirstFrame(place);
    }

    bool Wrapped() const {
        const auto retired = std::count(m_content.begin(), m_content.end(), Content::Retired);
        return m_list.m_blocks[m_recorded - 1].sequence > m_ring.count - static_cast<uint32_t>(retired);
    }

    /// Whether frames that are newer than the newest block's start begin there.
    bool HoldsFrames(uint32_t place) const {
        const std::optional<int64_t> time = TimeOfFirstFrame(place);
        return time && *time >= m_list.m_blocks[m_recorded - 1].start;
    }

    /// In seconds; nothing where no frame begins.
    std::optional<int64_t> TimeOfFirstFrame(uint32_t place) const {
        FrameHead_t frame = {};
        const uint64_t at = m_disk.StartOf(place) + m_disk.Layout().frames;
        const bool begins = m_disk.Bytes().ReadWhole(at, &frame, sizeof frame) && frame.sync == BLOCK_MAGIC &&
                            frame.chn < kChannels;
        return begins ? std::optional<int64_t>(frame.pts / kMicros) : std::nullopt;
    }

    // ---- times

    /// A single head whose time its neighbours leave no room for is damaged.
    void RepairTimes() {
        auto& blocks = m_list.m_blocks;
        for (size_t i = 0; i < blocks.size(); ++i) {
            Block& block = blocks[i];
            if (block.unreadable || block.wiped) {
                continue;
            }
            const uint32_t tailStart = m_ends[block.number].tail.StartTime;
            if (block.closed && !OutOfRoom(block.start, tailStart, tailStart)) {
                continue; // head and tail agree
            }
            const uint32_t low = i == 0 ? 0 : LatestOf(blocks[i - 1]);
            const uint32_t high = i + 1 == blocks.size() ? kUnknownEnd : EarliestOf(blocks[i + 1]);
            if (low > high || !OutOfRoom(block.start, low, high) || FrameConfirms(block)) {
                continue;
            }
            const bool tailHolds = block.closed && !OutOfRoom(tailStart, low, high);
            block.headSound = false;
            block.start = tailHolds ? tailStart : low;
        }
    }

    /// Whether the first frame has the time of the block's head. Then the clock was set that far: without a battery it
    /// begins in 1970 when the power comes, until somebody sets it.
    bool FrameConfirms(const Block& block) const {
        const std::optional<int64_t> time = TimeOfFirstFrame(block.number);
        return time && *time + disk_access::kStaleSeconds >= block.start &&
               *time <= int64_t{block.start} + disk_access::kStaleSeconds;
    }

    static uint32_t LatestOf(const Block& block) {
        return block.unreadable || block.wiped ? 0 : std::max(block.start, block.closed ? block.end : 0);
    }
    static uint32_t EarliestOf(const Block& block) {
        return block.unreadable || block.wiped ? kUnknownEnd : block.start;
    }

    /// Before the start of the room there is, or after its end, by more than a clock is set.
    static bool OutOfRoom(uint32_t time, uint32_t low, uint32_t high) {
        return time + kClockSetSeconds < low || (high != kUnknownEnd && time > high + kClockSetSeconds);
    }

    void LinkNeighbours() {
        auto& blocks = m_list.m_blocks;
        for (size_t i = 0; i < blocks.size(); ++i) {
            if (i != 0) {
                const Block& before = blocks[i - 1];
                const bool known = !before.unreadable && !before.wiped;
                blocks[i].previousEnd =
                    known ? (before.closed ? before.end : before.start) : before.previousEnd;
            }
        }
        for (size_t i = blocks.size(); i-- > 1;) {
            const Block& after = blocks[i];
            blocks[i - 1].nextStart = after.unreadable || after.wiped ? after.nextStart : after.start;
        }
        for (const Block& block : blocks) {
            m_list.m_spans.push_back(SpanOf(block));
        }
    }

    /// The time in which the frames of a block may lie, by everything that tells of it: one field may be wrong.
    TimeRange SpanOf(const Block& block) const {
        if (block.unreadable || block.wiped) {
            return {block.previousEnd, std::max(block.previousEnd, block.nextStart)};
        }
        if (block.closed && block.end < block.start) {
            return {}; // the clock was set back inside the block, or a time is damaged
        }
        const uint32_t tailStart = block.closed ? m_ends[block.number].tail.StartTime : block.start;
        uint32_t first = std::min(block.start, tailStart);
        uint32_t last = std::max(block.end, tailStart);
        if (!block.headSound || !block.closed) {
            first = std::min(first, block.previousEnd == 0 ? first : block.previousEnd);
        }
        if (block.nextStart >= block.start) {
            last = std::max(last, block.nextStart);
        } else if (!block.closed) {
            last = kUnknownEnd; // the clock was set back; nobody knows when
        }
        return {first, last};
    }

    // ---- problems

    void NoteProblems() {
        for (size_t i = 0; i < m_list.m_blocks.size(); ++i) {
            const Block& block = m_list.m_blocks[i];
            if (block.unreadable || block.wiped) {
                Note(i, block.unreadable ? ProblemKind::BlockUnreadable : ProblemKind::BlockWiped,
                     Severity::Loss);
                continue;
            }
            if (!block.headSound) {
                Note(i, ProblemKind::HeadDamaged, Severity::Note);
            }
            if (TailUnreadable(block.number)) {
                Note(i, ProblemKind::TailDamaged, Severity::Note);
            }
        }
        for (const uint32_t place : m_retired) {
            Problem problem;
            problem.kind = ProblemKind::BlockMarkedBad;
            problem.block = place;
            const BlockEnds& ends = m_ends[place];
            m_list.m_problems.push_back(
                {{ends.recTime, std::max(ends.recTime, ends.Closed() ? ends.tail.EndTime : kUnknownEnd)},
                 problem});
        }
    }

    /// Whether the disk does not deliver a tail, though it reaches as far.
    bool TailUnreadable(uint32_t number) const {
        const uint64_t end = m_disk.StartOf(number) + m_disk.Facts().blockSize;
        return !m_ends[number].tailRead && end <= m_disk.Bytes().Size();
    }

    void NoteHeadless() {
        std::vector<bool> listed(m_ring.count);
        for (const Block& block : m_list.m_blocks) {
            listed[block.number] = true;
        }
        for (uint32_t n = 0; n < m_ring.count; ++n) {
            if (!listed[n] && !m_ends[n].HeadValid()) {
                m_list.m_headless.push_back(n);
            }
        }
    }

    void Note(size_t entry, ProblemKind kind, Severity severity) {
        const Block& block = m_list.m_blocks[entry];
        Problem problem;
        problem.kind = kind;
        problem.severity = severity;
        problem.block = block.number;
        if (severity == Severity::Loss && block.previousEnd != 0) {
            problem.before = int64_t{block.previousEnd} * kMicros;
        }
        if (severity == Severity::Loss && block.nextStart != kUnknownEnd) {
            problem.after = int64_t{block.nextStart} * kMicros;
        }
        m_list.m_problems.push_back({m_list.m_spans[entry], problem});
    }

    const Disk& m_disk;
    Ring m_ring;
    std::vector<BlockEnds> m_ends;
    std::vector<Content> m_content;
    std::vector<uint32_t> m_sequence; ///< as it stands in the head, or repaired
    std::vector<bool> m_repaired;
    std::vector<uint32_t> m_before; ///< recorded neighbours of each place
    std::vector<uint32_t> m_after;
    std::vector<uint32_t> m_retired; ///< places that are marked bad and hold a recording of this turn
    size_t m_recorded = 0;
    BlockList m_list;
};

BlockList BlockList::Read(const Disk& disk, const Watch& watch) {
    return BlockListMaker(disk, ReadBlockEnds(disk, watch)).Make();
}

std::optional<size_t> BlockList::Find(uint32_t number) const {
    const auto found = std::find_if(m_blocks.begin(), m_blocks.end(),
                                    [number](const Block& block) { return block.number == number; });
    return found == m_blocks.end() ? std::nullopt
                                   : std::optional<size_t>(static_cast<size_t>(found - m_blocks.begin()));
}

std::vector<size_t> BlockList::Candidates(const TimeRange& range) const {
    std::vector<size_t> entries;
    for (size_t i = 0; i < m_blocks.size(); ++i) {
        if (range.Meets(m_spans[i].first, m_spans[i].last)) {
            entries.push_back(i);
        }
    }
    return entries;
}

void BlockList::Report(const TimeRange& range, const ProblemSink& problems) const {
    for (const Placed& placed : m_problems) {
        if (problems && range.Meets(placed.time.first, placed.time.last)) {
            problems(placed.problem);
        }
    }
}

std::optional<BlockIdentity> ReadIdentity(const Disk& disk, uint32_t block) {
    BlockHead_t head = {};
    if (!disk.Bytes().ReadWhole(disk.StartOf(block), &head, sizeof head)) {
        return std::nullopt;
    }
    BlockIdentity identity;
    identity.vehicleNumber = TextOf(head.VehicleNum);
    identity.vehicleId = TextOf(head.VehicleID);
    identity.preRecordSeconds = head.pre_RecTime;
    identity.alarmDelaySeconds = head.AlmDelayTime;
    identity.channels = {head.media_chn_bitmap};
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        const ChnProp_t& prop = head.prop[channel];
        identity.properties[channel] = {prop.Bitrate,    prop.VType,    prop.FrameRate,
                                        prop.Resolution, prop.gop,      prop.AType,
                                        prop.Sample,     prop.BitWidth, prop.audio_frame_len};
    }
    return identity;
}

} // namespace recordings
