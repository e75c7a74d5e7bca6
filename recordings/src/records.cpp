#include "recordings/records.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "disk_format.h"
#include "format/index_tables.h"
#include "read_ahead.h"
#include "recordings/block_frames.h"
#include "recordings/block_index.h"
#include "recordings/error.h"

namespace recordings {

namespace {

/// A time further than this outside its block's time is damaged. Recorders' clocks are set now and then, over hours at
/// most.
constexpr int64_t kClockSetSeconds = 86400;

/// What a block holds, of its index or made from its frames.
struct Contents {
    std::vector<Record> records[kChannels];
    std::vector<Event> events;
};

/// Folds the frames of a block into tables, by the rules that the recorder goes by when it closes a block.
void Rebuild(const Disk& disk, const Block& block, const ProblemSink& problems,
             disk_access::IndexTables& tables) {
    BlockFrames frames(disk, block, Want::Payloads, problems);
    Frame frame;
    for (bool lost = false; frames.Next(frame, lost);) {
        EventHead_t event = {};
        const bool isEvent = frame.type == kEventFrame && frame.size >= sizeof event && frame.data != nullptr;
        if (isEvent) {
            std::memcpy(&event, frame.data, sizeof event);
        }
        tables.AddFrame({static_cast<uint64_t>(frame.time), frame.type, frame.channel, frame.size},
                        frame.offset, isEvent ? &event : nullptr);
    }
}

Record RecordOf(const Block& block, uint32_t channel, uint32_t segment) {
    Record record;
    record.block = block.number;
    record.channel = channel;
    record.segment = segment;
    record.mark = block.mark;
    return record;
}

Event EventOf(const Block& block, uint32_t entry, uint64_t type, int64_t micros) {
    Event event;
    event.block = block.number;
    event.entry = entry;
    event.time = static_cast<uint32_t>(micros / kMicros);
    event.micros = micros;
    event.type = type;
    return event;
}

Contents ContentsOfFrames(const Disk& disk, const Block& block, const ProblemSink& problems) {
    disk_access::IndexTables tables;
    Rebuild(disk, block, problems, tables);
    Contents contents;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        for (uint32_t i = 0; i < tables.Segments(channel); ++i) {
            const RecSegItem_t segment = tables.recSegTab[channel].At(i);
            Record record = RecordOf(block, channel, i);
            record.start = segment.s;
            record.end = segment.e;
            record.bytes = segment.totalsize;
            record.closed = false;
            contents.records[channel].push_back(record);
        }
    }
    for (uint32_t i = 0; i < tables.Events(); ++i) {
        const EventIndexItem_t entry = tables.eventTab.At(i);
        Event event = EventOf(block, i, entry.type, entry.pts);
        event.offset = entry.pos;
        event.indexed = false;
        contents.events.push_back(event);
    }
    return contents;
}

Contents ContentsOfIndex(const Block& block, const BlockIndex& index) {
    Contents contents;
    for (uint32_t channel = 0; channel < kChannels; ++channel) {
        for (const IndexedSegment& segment : index.segments[channel]) {
            const auto number = static_cast<uint32_t>(contents.records[channel].size());
            Record record = RecordOf(block, channel, number);
            record.start = segment.start;
            record.end = segment.end;
            record.bytes = segment.bytes;
            contents.records[channel].push_back(record);
        }
    }
    for (const IndexedEvent& entry : index.events) {
        const auto number = static_cast<uint32_t>(contents.events.size());
        contents.events.push_back(EventOf(block, number, entry.type, entry.time));
        contents.events.back().offset = entry.offset;
    }
    return contents;
}

bool InBlock(const Disk& disk, const Block& block, const IndexedSegment& segment) {
    const uint32_t frameBytes = disk.Layout().frameBytes;
    const bool offsets = segment.startOffset <= segment.endOffset && segment.startOffset < frameBytes;
    const bool timesTell = block.start <= block.end; // else the clock was set back inside the block
    const bool times = segment.start + kClockSetSeconds >= block.start &&
                       segment.end <= int64_t{block.end} + kClockSetSeconds &&
                       segment.end + kClockSetSeconds >= segment.start;
    return offsets && (!timesTell || times);
}

/// Whether what the index says of its segments can be true of this block.
bool Plausible(const Disk& disk, const Block& block, const BlockIndex& index) {
    return std::all_of(std::begin(index.segments), std::end(index.segments), [&](const auto& segments) {
        return std::all_of(segments.begin(), segments.end(),
                           [&](const IndexedSegment& segment) { return InBlock(disk, block, segment); });
    });
}

void NoteIndex(const Block& block, const ProblemSink& problems) {
    if (problems) {
        Problem problem;
        problem.kind = ProblemKind::IndexDamaged;
        problem.severity = Severity::Note;
        problem.block = block.number;
        problems(problem);
    }
}

bool HoldsRecords(const Contents& contents) {
    return std::any_of(std::begin(contents.records), std::end(contents.records),
                       [](const auto& records) { return !records.empty(); });
}

/// What a block holds: by its index, where that can be true, else by its frames, if there are any.
Contents ContentsOf(const Disk& disk, const Block& block, const IndexParts& parts,
                    const ProblemSink& problems) {
    const std::optional<BlockIndex> index = block.closed ? ReadIndex(disk, block, parts) : std::nullopt;
    if (index && Plausible(disk, block, *index)) {
        return ContentsOfIndex(block, *index);
    }
    if (block.closed) {
        NoteIndex(block, problems);
    }
    Contents contents = ContentsOfFrames(disk, block, problems);
    return index && !HoldsRecords(contents) ? ContentsOfIndex(block, *index) : contents;
}

/// Goes through the blocks that may hold something of a range.
class BlockWalk {
public:
    BlockWalk(const Disk& disk, const BlockList& blocks, const TimeRange& range, const IndexParts& parts)
        : m_disk(disk), m_blocks(blocks), m_parts(parts), m_entries(blocks.Candidates(range)) {}

    template <typename Take>
    void Run(const ProblemSink& problems, const Watch& watch, const Take& take) {
        ReadAhead ahead(m_entries.size(), [this](size_t i) { AskForIndex(m_disk, BlockAt(i)); });
        for (size_t i = 0; i < m_entries.size(); ++i) {
            if (watch && !watch({i, m_entries.size(), 0})) {
                throw Error(ErrorKind::Cancelled, m_disk.Bytes().Name() + ": interrupted");
            }
            ahead.Before(i);
            take(ContentsOf(m_disk, BlockAt(i), m_parts, problems));
        }
    }

private:
    const Block& BlockAt(size_t i) const { return m_blocks.All()[m_entries[i]]; }

    const Disk& m_disk;
    const BlockList& m_blocks;
    IndexParts m_parts;
    std::vector<size_t> m_entries;
};

/// Hands over what a block holds of some channels: segment 0 of each, then segment 1 of each, and so on.
template <typename Take>
void TakeInOrder(const Contents& contents, ChannelSet channels, const Take& take) {
    size_t most = 0;
    for (const auto& records : contents.records) {
        most = std::max(most, records.size());
    }
    for (size_t segment = 0; segment < most; ++segment) {
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            const auto& records = contents.records[channel];
            if (channels.Has(channel) && segment < records.size()) {
                take(records[segment]);
            }
        }
    }
}

} // namespace

void ForEachRecord(const Disk& disk, const BlockList& blocks, const RecordQuery& query,
                   const ProblemSink& problems, const Watch& watch,
                   const std::function<void(const Record&)>& take) {
    const ChannelSet channels = query.channels.Without(disk.Hidden());
    const auto takeSegments = [&](const Contents& contents) {
        TakeInOrder(contents, channels, [&](const Record& record) {
            if (query.range.Meets(record.start, record.end)) {
                take(record);
            }
        });
    };
    blocks.Report(query.range, problems);
    BlockWalk(disk, blocks, query.range, {false, true, false}).Run(problems, watch, takeSegments);
}

void ForEachRecordAndEvent(const Disk& disk, const BlockList& blocks, const RecordQuery& query,
                           const ProblemSink& problems, const Watch& watch, const RecordsAndEvents& take) {
    const ChannelSet channels = query.channels.Without(disk.Hidden());
    const auto takeContents = [&](const Contents& contents) {
        TakeInOrder(contents, channels, [&](const Record& record) {
            if (query.range.Meets(record.start, record.end)) {
                take.record(record);
            }
        });
        for (const Event& event : contents.events) {
            if (query.range.Holds(event.time)) {
                take.event(event);
            }
        }
    };
    blocks.Report(query.range, problems);
    BlockWalk(disk, blocks, query.range, {false, true, true}).Run(problems, watch, takeContents);
}

std::vector<Record> RecordsOf(const Disk& disk, const Block& block, const ProblemSink& problems) {
    std::vector<Record> records;
    TakeInOrder(ContentsOf(disk, block, {false, true, false}, problems),
                ChannelSet::All().Without(disk.Hidden()),
                [&](const Record& record) { records.push_back(record); });
    return records;
}

BlockContents ReadContents(const Disk& disk, const Block& block, const ProblemSink& problems) {
    Contents all = ContentsOf(disk, block, {false, true, true}, problems);
    BlockContents contents;
    TakeInOrder(all, ChannelSet::All().Without(disk.Hidden()),
                [&](const Record& record) { contents.records.push_back(record); });
    contents.events = std::move(all.events);
    return contents;
}

std::vector<Event> FindEvents(const Disk& disk, const BlockList& blocks, const TimeRange& range,
                              EventMask mask, const ProblemSink& problems, const Watch& watch) {
    std::vector<Event> events;
    const auto takeEvents = [&](const Contents& contents) {
        std::copy_if(contents.events.begin(), contents.events.end(), std::back_inserter(events),
                     [&](const Event& event) { return range.Holds(event.time) && (event.type & mask) != 0; });
    };
    blocks.Report(range, problems);
    BlockWalk(disk, blocks, range, {false, true, true}).Run(problems, watch, takeEvents);
    return events;
}

std::optional<uint32_t> ChannelOf(const Disk& disk, const Event& event) {
    std::optional<uint32_t> channel = event.channel;
    FrameHead_t head = {};
    if (!channel && event.offset && *event.offset < disk.Layout().frameBytes &&
        disk.Bytes().ReadWhole(disk.StartOf(event.block) + disk.Layout().frames + *event.offset, &head,
                               sizeof head) &&
        head.sync == BLOCK_MAGIC && head.type == kEventFrame && head.pts == event.micros) {
        channel = head.chn;
    }
    const bool shown = channel && *channel < kChannels && !disk.Hidden().Has(*channel);
    return shown ? channel : std::nullopt;
}

} // namespace recordings
