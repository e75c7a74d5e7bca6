#include "block_checks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "format/block_geometry.h"
#include "format/frames.h"
#include "recordings/frame.h"

namespace recordings {

namespace {

/// Times that the recorder notes of one moment in several places are no further apart than this: its streams do not begin
/// and end together.
constexpr int64_t kSkewSeconds = 5;

/// A time further than this outside its block's time is damaged. Recorders' clocks are set now and then, over hours at
/// most.
constexpr int64_t kClockSetSeconds = 86400;

bool SameMoment(int64_t a, int64_t b) {
    return std::abs(a - b) <= kSkewSeconds;
}

template <size_t Size>
bool SameText(const char (&a)[Size], const char (&b)[Size]) {
    return strncmp(a, b, Size) == 0;
}

bool SameProperties(const ChnProp_t& a, const ChnProp_t& b) {
    return std::memcmp(&a, &b, offsetof(ChnProp_t, Reserved)) == 0;
}

/// Names of fields, joined.
class Fields {
public:
    void Add(const std::string& name) { m_text += (m_text.empty() ? "" : ", ") + name; }
    void AddIf(bool wrong, const char* name) {
        if (wrong) {
            Add(name);
        }
    }
    const std::string& Text() const { return m_text; }

private:
    std::string m_text;
};

/// Settings stay from block to block. Where both neighbours agree, a block that does not is damaged.
void AddOddSettings(const Neighbourhood& place, Fields& fields) {
    if (place.before == nullptr || place.after == nullptr) {
        return;
    }
    const BlockHead_t& before = place.before->head;
    const BlockHead_t& at = place.at->head;
    const BlockHead_t& after = place.after->head;
    const auto odd = [&](const auto& same) { return same(before, after) && !same(before, at); };
    const auto oddNumber = [&](uint32_t BlockHead_t::*field) {
        return odd([field](const BlockHead_t& a, const BlockHead_t& b) { return a.*field == b.*field; });
    };
    fields.AddIf(oddNumber(&BlockHead_t::pre_RecTime), "pre-record time");
    fields.AddIf(oddNumber(&BlockHead_t::AlmDelayTime), "alarm delay");
    fields.AddIf(
        odd([](const BlockHead_t& a, const BlockHead_t& b) { return SameText(a.VehicleNum, b.VehicleNum); }),
        "vehicle number");
    fields.AddIf(
        odd([](const BlockHead_t& a, const BlockHead_t& b) { return SameText(a.VehicleID, b.VehicleID); }),
        "vehicle id");
    fields.AddIf(oddNumber(&BlockHead_t::media_chn_bitmap), "channels");
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (odd([channel](const BlockHead_t& a, const BlockHead_t& b) {
                return SameProperties(a.prop[channel], b.prop[channel]);
            })) {
            fields.Add("properties of channel " + std::to_string(channel));
        }
    }
}

/// Whether a segment of the index begins, or ends, at a moment.
template <typename Time>
bool AnySegment(const BlockIndex& index, Time IndexedSegment::*time, int64_t moment) {
    return std::any_of(std::begin(index.segments), std::end(index.segments), [&](const auto& segments) {
        return std::any_of(segments.begin(), segments.end(),
                           [&](const IndexedSegment& segment) { return SameMoment(segment.*time, moment); });
    });
}

bool HasSegments(const std::optional<BlockIndex>& index) {
    return index && std::any_of(std::begin(index->segments), std::end(index->segments),
                                [](const auto& segments) { return !segments.empty(); });
}

/// Whether the head's start time is wrong: the tail and the index tell another one.
bool StartIsOdd(const BlockParts& parts, const std::optional<BlockIndex>& index) {
    const bool tailTells = parts.TailCloses() && !SameMoment(parts.head.RecTime, parts.tail.StartTime);
    return tailTells &&
           (!HasSegments(index) || !AnySegment(*index, &IndexedSegment::start, parts.head.RecTime));
}

/// Channels that the head does not have, but the index has entries of.
ChannelSet Unannounced(const Disk& disk, const Block& block) {
    BlkIndexHead_t counts = {};
    ChannelSet channels;
    if (disk.Bytes().ReadWhole(disk.StartOf(block.number) + disk.Layout().index, &counts, sizeof counts)) {
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            if (!block.channels.Has(channel) &&
                (counts.iframeCount[channel] != 0 || counts.recSegCount[channel] != 0)) {
                channels.Add(channel);
            }
        }
    }
    return channels;
}

// ---- the index

/// Checks what the index of a block says against itself.
class IndexSense {
public:
    IndexSense(const Disk& disk, const Block& block, const BlockIndex& index)
        : m_area(disk.Layout().frameBytes), m_block(block), m_index(index) {}

    /// The tables that make no sense, and the channels that they are of.
    std::string Find(ChannelSet& channels) {
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            CheckChannel(channel, channels);
        }
        for (const IndexedEvent& event : m_index.events) {
            m_events = m_events || event.offset >= m_area || !OfTime(event.time / kMicros);
        }
        Fields fields;
        fields.AddIf(m_segments, "segments");
        fields.AddIf(m_keyFrames, "key frames");
        fields.AddIf(m_events, "events");
        return fields.Text();
    }

private:
    void CheckChannel(uint32_t channel, ChannelSet& channels) {
        const auto& segments = m_index.segments[channel];
        const bool oddSegment = std::any_of(segments.begin(), segments.end(),
                                            [this](const IndexedSegment& each) { return !MakesSense(each); });
        bool oddKey = false;
        const IndexedKeyFrame* before = nullptr;
        for (const IndexedKeyFrame& key : m_index.keyFrames[channel]) {
            oddKey = oddKey || (before != nullptr && key.offset <= before->offset) ||
                     !OfTime(key.time / kMicros) || !InSegment(segments, key.offset);
            before = &key;
        }
        m_segments = m_segments || oddSegment;
        m_keyFrames = m_keyFrames || oddKey;
        if (oddSegment || oddKey) {
            channels.Add(channel);
        }
    }

    bool MakesSense(const IndexedSegment& segment) const {
        return segment.startOffset < segment.endOffset && segment.endOffset <= m_area &&
               OfTime(segment.start) && OfTime(segment.end);
    }

    static bool InSegment(const std::vector<IndexedSegment>& segments, uint32_t offset) {
        return std::any_of(segments.begin(), segments.end(), [offset](const IndexedSegment& segment) {
            return segment.startOffset <= offset && offset < segment.endOffset;
        });
    }

    bool OfTime(int64_t seconds) const {
        const int64_t first = std::min(m_block.start, m_block.end);
        const int64_t last = std::max(m_block.start, m_block.end);
        return seconds >= first - kClockSetSeconds && seconds <= last + kClockSetSeconds;
    }

    uint32_t m_area;
    const Block& m_block;
    const BlockIndex& m_index;
    bool m_segments = false;
    bool m_keyFrames = false;
    bool m_events = false;
};

} // namespace

BlockParts BlockParts::Read(const Disk& disk, const Block& block) {
    BlockParts parts;
    parts.block = block;
    const Source& bytes = disk.Bytes();
    const uint64_t start = disk.StartOf(block.number);
    if (!bytes.ReadWhole(start, &parts.head, sizeof parts.head)) {
        parts.head = {};
    }
    if (!bytes.ReadWhole(start + disk.Layout().tail, &parts.tail, sizeof parts.tail)) {
        parts.tail = {};
    }
    if (disk.Facts().extendedLayout && !bytes.ReadWhole(start + disk.Layout().tail + sizeof parts.tail,
                                                        &parts.tailEx, sizeof parts.tailEx)) {
        parts.tailEx = {};
    }
    return parts;
}

void BlockCheck::Check(const Neighbourhood& place) const {
    const Block& block = place.at->block;
    const std::optional<BlockIndex> index = block.closed ? ReadIndex(m_disk, block) : std::nullopt;
    CheckHead(place, index);
    CheckTail(place, index);
    CheckClock(place);
    if (block.closed) {
        CheckIndex(block, index);
    }
}

void BlockCheck::CheckHead(const Neighbourhood& place, const std::optional<BlockIndex>& index) const {
    const BlockParts& parts = *place.at;
    Fields fields;
    fields.AddIf(parts.head.ValidFlag != BLOCK_MAGIC, "mark of a block");
    fields.AddIf(parts.head.RecSeq != parts.block.sequence, "number");
    fields.AddIf(parts.head.RecTime != parts.block.start || StartIsOdd(parts, index), "start time");
    AddOddSettings(place, fields);
    if (!fields.Text().empty() || !parts.block.headSound) {
        Report(ProblemKind::HeadDamaged, parts.block, fields.Text());
    }
}

void BlockCheck::CheckTail(const Neighbourhood& place, const std::optional<BlockIndex>& index) const {
    const BlockParts& parts = *place.at;
    if (!parts.block.closed) {
        // An open block has the tail of the ring's previous turn, or none.
        const bool ofThisTurn =
            parts.tail.StartTime != 0 && SameMoment(parts.tail.StartTime, parts.block.start);
        if (ofThisTurn) {
            Report(ProblemKind::TailDamaged, parts.block, "number");
        } else if (!place.newest) {
            Report(ProblemKind::NotClosed, parts.block, "");
        }
        return;
    }
    Fields fields;
    if (parts.TailCloses()) {
        const bool startOdd = HasSegments(index)
                                  ? !AnySegment(*index, &IndexedSegment::start, parts.tail.StartTime)
                                  : !SameMoment(parts.tail.StartTime, parts.block.start);
        fields.AddIf(startOdd && !StartIsOdd(parts, index), "start time");
        fields.AddIf(HasSegments(index) && !AnySegment(*index, &IndexedSegment::end, parts.tail.EndTime),
                     "end time");
    } else {
        fields.AddIf(!place.newest, "number"); // the power was cut just then, or it is damaged
    }
    const auto bothClose = [](const BlockParts* other) {
        return other == nullptr || !other->block.closed || (other->TailCloses() && other->TailExCloses());
    };
    if (m_disk.Facts().extendedLayout && parts.TailCloses()) {
        const bool othersClose = (place.before != nullptr || place.after != nullptr) &&
                                 bothClose(place.before) && bothClose(place.after);
        fields.AddIf(!parts.TailExCloses() && othersClose, "extended number");
        fields.AddIf(parts.TailExCloses() && !SameMoment(parts.tailEx.StartTime, parts.tail.StartTime),
                     "extended start time");
        fields.AddIf(parts.TailExCloses() && !SameMoment(parts.tailEx.EndTime, parts.tail.EndTime),
                     "extended end time");
    }
    if (!fields.Text().empty()) {
        Report(ProblemKind::TailDamaged, parts.block, fields.Text());
    }
}

/// Blocks follow one another in time, unless the clock was set back.
void BlockCheck::CheckClock(const Neighbourhood& place) const {
    const Block& block = place.at->block;
    if (!block.headSound || block.previousEnd == 0 ||
        int64_t{block.start} + disk_access::kStaleSeconds >= block.previousEnd) {
        return;
    }
    Finding finding;
    finding.problem.kind = ProblemKind::ClockSetBack;
    finding.problem.severity = Severity::Note;
    finding.problem.block = block.number;
    finding.problem.before = int64_t{block.previousEnd} * kMicros;
    finding.problem.after = int64_t{block.start} * kMicros;
    m_findings(finding);
}

void BlockCheck::CheckIndex(const Block& block, const std::optional<BlockIndex>& index) const {
    const ChannelSet unannounced = block.headSound ? Unannounced(m_disk, block) : ChannelSet();
    if (!index || !unannounced.Empty()) {
        Report(ProblemKind::IndexDamaged, block, "counts", unannounced);
        return;
    }
    ChannelSet channels;
    const std::string fields = IndexSense(m_disk, block, *index).Find(channels);
    if (!fields.empty()) {
        Report(ProblemKind::IndexDamaged, block, fields, channels);
    } else if (m_quick) {
        CheckFirstFrames(block, *index);
    }
}

/// Looks whether the frames lie there that the index has each channel begin with.
void BlockCheck::CheckFirstFrames(const Block& block, const BlockIndex& index) const {
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        if (index.segments[channel].empty()) {
            continue;
        }
        const IndexedSegment& segment = index.segments[channel].front();
        FrameHead_t head = {};
        const bool read = m_disk.Bytes().ReadWhole(
            m_disk.StartOf(block.number) + m_disk.Layout().frames + segment.startOffset, &head, sizeof head);
        if (read && head.sync == BLOCK_MAGIC && head.chn == channel && disk_access::IsMedia(head.type) &&
            head.pts / kMicros == segment.start) {
            continue;
        }
        Finding finding;
        finding.problem.kind = read ? ProblemKind::FrameDamaged : ProblemKind::BytesUnreadable;
        finding.problem.block = block.number;
        finding.problem.channel = channel;
        finding.problem.offset = segment.startOffset;
        finding.problem.bytes = sizeof head;
        finding.start = int64_t{segment.start} * kMicros;
        m_findings(finding);
    }
}

void BlockCheck::Report(ProblemKind kind, const Block& block, const std::string& fields,
                        ChannelSet channels) const {
    Finding finding;
    finding.problem.kind = kind;
    finding.problem.severity = Severity::Note;
    finding.problem.block = block.number;
    finding.fields = fields;
    finding.channels = channels;
    m_findings(finding);
}

} // namespace recordings
