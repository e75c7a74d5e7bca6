// Everything that can still be read from a partition that may hold anything: blocks, records, events, frames and the
// check, on a device whose reads may fail, for a caller who may want no more.

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "recordings/block_frames.h"
#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "recordings/error.h"
#include "recordings/health.h"
#include "recordings/range_frames.h"
#include "recordings/records.h"
#include "support/disk_run.h"
#include "support/findings.h"
#include "support/partition_run.h"

namespace fuzzing {

namespace {

using namespace recordings;

constexpr int kMostOperations = 4;
constexpr CostLimits kLimits = {24, 40, 4, 256 << 10};

class RecordingsRun : private DiskRun {
public:
    RecordingsRun(const PartitionInput& input, const MemoryDevice& device)
        : DiskRun(input, device, kLimits) {}

    void RunScript() {
        for (int i = 0; i == 0 || (i < kMostOperations && !Words().Done()); ++i) {
            static constexpr void (RecordingsRun::*kOperations[])() = {
                &RecordingsRun::Report,     &RecordingsRun::Records,    &RecordingsRun::Events,
                &RecordingsRun::ReadRange,  &RecordingsRun::ReadBlocks, &RecordingsRun::Check,
                &RecordingsRun::Identities, &RecordingsRun::ReadRange};
            const auto operation = kOperations[Words().Below(std::size(kOperations))];
            Try([this, operation] { (this->*operation)(); });
        }
    }

private:
    void Report() {
        const TimeRange range = Range();
        for (const size_t entry : Blocks().Candidates(range)) {
            Require(entry < Blocks().All().size(), "a candidate is no block of the list");
        }
        Blocks().Report(range, Sink());
    }
    void Records() {
        RecordQuery query;
        query.range = Range();
        query.channels = Channels();
        uint64_t records = 0;
        ForEachRecord(Disk(), Blocks(), query, Sink(), CancelSometime(), [&](const Record& record) {
            Require(query.channels.Has(record.channel), "a record of a channel that nobody asked for");
            Require(!Disk().Hidden().Has(record.channel), "a record of a locked channel");
            Require(++records <= kChannels + Input().Weight(), "there are more records than bytes");
        });
    }
    void Events() {
        const TimeRange range = Range();
        const EventMask mask = Words().Mask();
        const auto events = FindEvents(Disk(), Blocks(), range, mask, Sink(), CancelSometime());
        Require(events.size() <= Input().Weight(), "there are more events than bytes");
        for (const Event& event : events) {
            Require(range.Holds(event.time) && (event.type & mask) != 0, "an event that nobody asked for");
        }
        for (size_t i = 0; i < std::min<size_t>(events.size(), 20); ++i) {
            ChannelOf(Disk(), events[i]);
        }
    }

    /// The frames of one reading: each once, whole, and inside its block. The lock is a matter of the queries: a
    /// block's own reader delivers all channels.
    class Delivered {
    public:
        explicit Delivered(const RecordingsRun& run) : m_run(run) {}

        void Add(const Frame& frame, Want want) {
            Require(m_seen.emplace(frame.block, frame.offset).second, "a frame is delivered twice");
            Require(frame.block < m_run.Disk().BlockCount(), "a frame of a block that there is not");
            Require(uint64_t{frame.offset} + frame.size <= m_run.Disk().Layout().frameBytes,
                    "a frame leaves its block");
            m_bytes += frame.size;
            Require(m_bytes <= uint64_t{m_run.Disk().BlockCount()} * m_run.Disk().Facts().blockSize,
                    "the frames are more than the disk holds");
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
        query.decodable = Words().Flag();
        query.want = Words().Flag() ? Want::Payloads : Want::Heads;
        RangeFrames frames(Disk(), Blocks(), query, Sink(), CancelSometime());
        Delivered delivered(*this);
        for (Frame frame; frames.Next(frame);) {
            delivered.Add(frame, query.want);
            Require(frame.IsMedia() && query.channels.Has(frame.channel), "a frame that nobody asked for");
            Require(!Disk().Hidden().Has(frame.channel), "a frame of a locked channel");
            Require(frames.CurrentBlock().number == frame.block, "a frame is not of the reader's block");
        }
    }
    void ReadBlocks() {
        const Want want = Words().Flag() ? Want::Payloads : Want::Heads;
        Delivered delivered(*this);
        for (const Block& block : Blocks().All()) {
            BlockFrames frames(Disk(), block, want, Sink(), CancelSometime());
            bool afterLoss = false;
            for (Frame frame; frames.Next(frame, afterLoss);) {
                delivered.Add(frame, want);
            }
        }
    }
    void Check() {
        const CheckRequest request = {Words().Flag()};
        CheckHealth(
            Disk(), Blocks(), request, [this](const Finding& finding) { Take(finding.problem); },
            CancelSometime());
    }
    void Identities() {
        for (const Block& block : Blocks().All()) {
            ReadIdentity(Disk(), block.number);
        }
    }
};

} // namespace

void RunPartition(const PartitionInput& input, Machine& machine) {
    RunOnDisk<RecordingsRun>(input, machine.Device(0));
}

} // namespace fuzzing
