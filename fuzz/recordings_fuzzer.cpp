// Everything that can still be read from a partition that may hold anything: blocks, records, events, frames and the
// check, on a device whose reads may fail, for a caller who may want no more.

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "recordings/block_frames.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/error.h"
#include "recordings/health.h"
#include "recordings/range_frames.h"
#include "recordings/records.h"
#include "support/findings.h"
#include "support/machine.h"
#include "support/partition_input.h"
#include "support/partition_run.h"
#include "support/recordings_source.h"
#include "support/script.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZING_WITH_ADDRESS_SANITIZER 1
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace fuzzing {

namespace {

using namespace recordings;

constexpr int kMostOperations = 6;
/// Bytes that an operation may ask for, for each byte of the ring.
constexpr uint64_t kReadsOfAByte = 12;
/// What an operation may read, report and take of memory on any disk, however small.
constexpr uint64_t kAnyRead = 16 << 20;
constexpr uint64_t kAnyProblems = 1000;
constexpr size_t kAnyMemory = 24 << 20;
/// Memory for each byte of a block, and for each block of the ring.
constexpr size_t kMemoryOfABlockByte = 8;
constexpr size_t kMemoryOfABlock = 2000;

/// Bytes that are allocated now; 0 where nothing counts them.
size_t Allocated() {
#ifdef FUZZING_WITH_ADDRESS_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    return 0;
#endif
}

class RecordingsRun {
public:
    RecordingsRun(const PartitionInput& input, const MemoryDevice& device)
        : m_input(input), m_script(input.script), m_before(Allocated()),
          m_disk(std::make_unique<RecordingsSource>(input, device, m_cost)) {
        if (m_script.Flag()) {
            m_disk.Unlock(std::string(m_script.Below(3), 'k'));
        }
        m_blocks.emplace(BlockList::Read(m_disk));
        CheckCost();
        Require(m_blocks->All().size() <= m_disk.BlockCount(), "there are more recorded blocks than blocks");
    }

    void Run() {
        for (int i = 0; i == 0 || (i < kMostOperations && !m_script.Done()); ++i) {
            static constexpr void (RecordingsRun::*kOperations[])() = {
                &RecordingsRun::Report,     &RecordingsRun::Records,    &RecordingsRun::Events,
                &RecordingsRun::ReadRange,  &RecordingsRun::ReadBlocks, &RecordingsRun::Check,
                &RecordingsRun::Identities, &RecordingsRun::ReadRange};
            Begin();
            try {
                (this->*kOperations[m_script.Below(std::size(kOperations))])();
            } catch (const Error& error) {
                Require(error.Kind() == ErrorKind::Cancelled && m_watchesLeft == 0,
                        "an operation ends with an error, though nobody cancelled it");
            }
            CheckCost();
        }
    }

private:
    void Begin() {
        m_start = m_cost;
        m_problems = 0;
        m_watchesLeft = m_script.Below(8) == 0 ? std::optional<uint32_t>(m_script.Byte()) : std::nullopt;
    }
    uint64_t RingBytes() const { return uint64_t{m_disk.BlockCount()} * m_disk.Facts().blockSize; }
    void CheckCost() const {
        const uint64_t inside = std::min<uint64_t>(RingBytes(), m_disk.Bytes().Size());
        Require(m_cost.bytes - m_start.bytes <= kAnyRead + kReadsOfAByte * inside,
                "an operation reads more often than the disk's size allows");
        const size_t allowed =
            kAnyMemory + kMemoryOfABlock * m_disk.BlockCount() +
            kMemoryOfABlockByte *
                std::min<size_t>(m_disk.Facts().blockSize, static_cast<size_t>(m_disk.Bytes().Size()));
        Require(Allocated() <= m_before + allowed,
                "an operation takes more memory than the disk's size allows");
    }
    ProblemSink Sink() {
        return [this](const Problem& problem) { Take(problem); };
    }
    void Take(const Problem& problem) {
        Require(!Describe(problem, {}).empty(), "a problem has no words");
        Require(!problem.channel || *problem.channel < kChannels,
                "a problem has a channel that there is not");
        Require(++m_problems <= kAnyProblems + 40ull * m_disk.BlockCount() + 4 * m_input.Weight(),
                "there are more problems than bytes that could cause them");
        CheckCost();
    }
    /// Cancels, if the script says so, after some calls.
    Watch CancelSometime() {
        return [this](const Progress&) {
            CheckCost();
            if (!m_watchesLeft) {
                return true;
            }
            *m_watchesLeft -= *m_watchesLeft > 0 ? 1 : 0;
            return *m_watchesLeft > 0;
        };
    }
    TimeRange Range() {
        if (m_script.Flag()) {
            return {};
        }
        const uint32_t one = m_script.Time();
        const uint32_t other = m_script.Time();
        return {std::min(one, other), std::max(one, other)};
    }
    ChannelSet Channels() { return m_script.Flag() ? ChannelSet::All() : ChannelSet{m_script.Word()}; }

    void Report() {
        const TimeRange range = Range();
        for (const size_t entry : m_blocks->Candidates(range)) {
            Require(entry < m_blocks->All().size(), "a candidate is no block of the list");
        }
        m_blocks->Report(range, Sink());
    }
    void Records() {
        RecordQuery query;
        query.range = Range();
        query.channels = Channels();
        uint64_t records = 0;
        ForEachRecord(m_disk, *m_blocks, query, Sink(), CancelSometime(), [&](const Record& record) {
            Require(query.channels.Has(record.channel), "a record of a channel that nobody asked for");
            Require(!m_disk.Hidden().Has(record.channel), "a record of a locked channel");
            Require(++records <= kChannels + m_input.Weight(), "there are more records than bytes");
        });
    }
    void Events() {
        const TimeRange range = Range();
        const EventMask mask = m_script.Mask();
        const auto events = FindEvents(m_disk, *m_blocks, range, mask, Sink(), CancelSometime());
        Require(events.size() <= m_input.Weight(), "there are more events than bytes");
        for (const Event& event : events) {
            Require(range.Holds(event.time) && (event.type & mask) != 0, "an event that nobody asked for");
        }
        for (size_t i = 0; i < std::min<size_t>(events.size(), 20); ++i) {
            ChannelOf(m_disk, events[i]);
        }
    }

    /// The frames of one reading: each once, whole, and inside its block. The lock is a matter of the queries: a
    /// block's own reader delivers all channels.
    class Delivered {
    public:
        explicit Delivered(const RecordingsRun& run) : m_run(run) {}

        void Add(const Frame& frame, Want want) {
            Require(m_seen.emplace(frame.block, frame.offset).second, "a frame is delivered twice");
            Require(frame.block < m_run.m_disk.BlockCount(), "a frame of a block that there is not");
            Require(uint64_t{frame.offset} + frame.size <= m_run.m_disk.Layout().frameBytes,
                    "a frame leaves its block");
            m_bytes += frame.size;
            Require(m_bytes <= m_run.RingBytes(), "the frames are more than the disk holds");
            if (want == Want::Payloads && frame.size > 0) {
                RequireAddressable(frame.data, frame.size);
            }
            m_run.CheckCost();
        }

    private:
        const RecordingsRun& m_run;
        std::set<std::pair<uint32_t, uint32_t>> m_seen;
        uint64_t m_bytes = 0;
    };

    void ReadRange() {
        FrameQuery query;
        query.range = Range();
        query.channels = Channels();
        query.decodable = m_script.Flag();
        query.want = m_script.Flag() ? Want::Payloads : Want::Heads;
        RangeFrames frames(m_disk, *m_blocks, query, Sink(), CancelSometime());
        Delivered delivered(*this);
        for (Frame frame; frames.Next(frame);) {
            delivered.Add(frame, query.want);
            Require(frame.IsMedia() && query.channels.Has(frame.channel), "a frame that nobody asked for");
            Require(!m_disk.Hidden().Has(frame.channel), "a frame of a locked channel");
            Require(frames.CurrentBlock().number == frame.block, "a frame is not of the reader's block");
        }
    }
    void ReadBlocks() {
        const Want want = m_script.Flag() ? Want::Payloads : Want::Heads;
        Delivered delivered(*this);
        for (const Block& block : m_blocks->All()) {
            BlockFrames frames(m_disk, block, want, Sink(), CancelSometime());
            bool afterLoss = false;
            for (Frame frame; frames.Next(frame, afterLoss);) {
                delivered.Add(frame, want);
            }
        }
    }
    void Check() {
        const CheckRequest request = {m_script.Flag()};
        CheckHealth(
            m_disk, *m_blocks, request, [this](const Finding& finding) { Take(finding.problem); },
            CancelSometime());
    }
    void Identities() {
        for (const Block& block : m_blocks->All()) {
            ReadIdentity(m_disk, block.number);
        }
    }

    const PartitionInput& m_input;
    Script m_script;
    size_t m_before;
    ReadCost m_cost;
    ReadCost m_start;
    uint64_t m_problems = 0;
    std::optional<uint32_t> m_watchesLeft;
    Disk m_disk;
    std::optional<BlockList> m_blocks;
};

} // namespace

void RunPartition(const PartitionInput& input, Machine& machine) {
    std::unique_ptr<RecordingsRun> run;
    try {
        run = std::make_unique<RecordingsRun>(input, machine.Device(0));
    } catch (const recordings::Error& error) {
        Require(*error.what() != '\0', "a disk is refused without a word");
        return;
    }
    run->Run();
}

} // namespace fuzzing
