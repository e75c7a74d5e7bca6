#include "disk_contents.h"

#include <set>

#include "recordings/block_index.h"
#include "recordings/error.h"
#include "recordings/query.h"
#include "recordings/records.h"

namespace catalog {

namespace {

using recordings::Block;

using recordings::kMicros;
/// Blocks that the system is asked for in advance.
constexpr size_t kAhead = 16;

class Reader {
public:
    Reader(const recordings::Disk& disk, const recordings::BlockList& blocks, const DiskState& state,
           const std::vector<int64_t>& vehicles, const Reading& reading)
        : m_disk(disk), m_blocks(blocks), m_state(state), m_vehicles(vehicles), m_reading(reading) {}

    void Keep(const KnownDisk& known) {
        const bool sameView = known.id && known.skewSeconds == m_reading.skewSeconds &&
                              known.hidden == int64_t{m_disk.Hidden().bits};
        BlockTimes kept;
        std::set<int64_t> numbers;
        for (size_t entry = 0; entry < m_blocks.All().size(); ++entry) {
            const Block& block = m_blocks.All()[entry];
            if (sameView && DigestAt(known.blocks, block.number) == m_state.blocks[block.number]) {
                kept[block.sequence] = {TrueTime(block.start), TrueTime(block.end)};
                m_contents.keptSequences.push_back(block.sequence);
                numbers.insert(block.number);
            } else {
                m_toRead.push_back(entry);
            }
        }
        m_contents.spans = Spans(known.spans);
        m_contents.spans.Keep(kept);
        for (const ProblemRow& problem : known.problems) {
            if (problem.block && numbers.count(*problem.block) != 0) {
                m_problems.insert(problem);
            }
        }
    }

    void Read(const recordings::Watch& watch) {
        for (size_t i = 0; i < m_toRead.size(); ++i) {
            if (watch && !watch({i, m_toRead.size(), 0})) {
                throw recordings::Error(recordings::ErrorKind::Cancelled,
                                        m_disk.Bytes().Name() + ": interrupted");
            }
            if (i + kAhead < m_toRead.size()) {
                recordings::AskForIndex(m_disk, m_blocks.All()[m_toRead[i + kAhead]]);
            }
            ReadBlock(m_toRead[i]);
        }
        m_contents.read = m_toRead.size();
    }

    DiskContents Finish() {
        for (const recordings::Problem& problem : m_disk.OpeningProblems()) {
            Note(problem, false);
        }
        m_blocks.Report({}, [this](const recordings::Problem& problem) { Note(problem, false); });
        m_contents.problems.assign(m_problems.begin(), m_problems.end());
        return std::move(m_contents);
    }

private:
    int64_t TrueTime(uint32_t seconds) const { return int64_t{seconds} - m_reading.skewSeconds; }

    /// A damaged disk may hold any time stamp.
    int64_t TrueMicros(int64_t micros) const {
        return static_cast<int64_t>(static_cast<uint64_t>(micros) -
                                    static_cast<uint64_t>(m_reading.skewSeconds * kMicros));
    }

    void ReadBlock(size_t entry) {
        const Block& block = m_blocks.All()[entry];
        const recordings::BlockContents contents = recordings::ReadContents(
            m_disk, block, [this](const recordings::Problem& problem) { Note(problem, true); });
        for (const recordings::Record& record : contents.records) {
            if (record.start <= record.end) {
                m_contents.spans.Add(SpanOf(record, block, m_vehicles[entry]));
            }
        }
        for (const recordings::Event& event : contents.events) {
            m_contents.newEvents.push_back(
                {m_vehicles[entry], block.sequence, event.entry, TrueMicros(event.micros), event.type});
        }
    }

    Span SpanOf(const recordings::Record& record, const Block& block, int64_t vehicle) const {
        Span span;
        span.vehicle = vehicle;
        span.channel = record.channel;
        span.start = TrueTime(record.start);
        span.end = TrueTime(record.end);
        span.firstSequence = span.lastSequence = block.sequence;
        return span;
    }

    void Note(const recordings::Problem& problem, bool ofContents) {
        ProblemRow row;
        row.ofContents = ofContents;
        row.loss = problem.severity == recordings::Severity::Loss;
        row.kind = recordings::NameOf(problem.kind);
        row.block = problem.block ? std::optional<int64_t>(*problem.block) : std::nullopt;
        row.text = recordings::Describe(problem, {});
        m_problems.insert(row);
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    const DiskState& m_state;
    const std::vector<int64_t>& m_vehicles;
    const Reading& m_reading;
    std::vector<size_t> m_toRead; ///< entries of the list of blocks
    std::set<ProblemRow> m_problems;
    DiskContents m_contents;
};

} // namespace

DiskContents ReadContents(const recordings::Disk& disk, const recordings::BlockList& blocks,
                          const DiskState& state, const std::vector<int64_t>& vehicles,
                          const KnownDisk& known, const Reading& reading, const recordings::Watch& watch) {
    Reader reader(disk, blocks, state, vehicles, reading);
    reader.Keep(known);
    reader.Read(watch);
    return reader.Finish();
}

} // namespace catalog
