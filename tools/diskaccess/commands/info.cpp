#include <algorithm>

#include "commands/commands.h"
#include "commands/identity.h"
#include "recordings/journeys.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

using recordings::Block;
using recordings::BlockIdentity;
using recordings::BlockMark;

Table ChannelTable(const Names& names, const BlockIdentity& identity) {
    Table table = {"channel_properties",
                   {{"channel", "CHANNEL"},
                    {"video_code", "VIDEO"},
                    {"frame_rate", "FPS"},
                    {"resolution_code", "SIZE CODE"},
                    {"bitrate", "BITRATE"},
                    {"key_frame_distance", "GOP"},
                    {"audio_code", "AUDIO"},
                    {"sample_rate", "SAMPLE RATE"},
                    {"sample_bits", "BITS"},
                    {"audio_frame_bytes", "AUDIO FRAME"}},
                   {}};
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (identity.channels.Has(channel)) {
            const recordings::ChannelProperties& p = identity.properties[channel];
            table.rows.push_back({names.Channel(channel), uint64_t{p.videoCode}, uint64_t{p.frameRate},
                                  uint64_t{p.resolutionCode}, uint64_t{p.bitrate},
                                  uint64_t{p.keyFrameDistance}, uint64_t{p.audioCode}, uint64_t{p.sampleRate},
                                  uint64_t{p.sampleBits}, uint64_t{p.audioFrameBytes}});
        }
    }
    return table;
}

uint64_t CountOf(const recordings::Disk& disk, BlockMark mark) {
    uint64_t count = 0;
    for (uint32_t block = 0; block < disk.BlockCount(); ++block) {
        count += disk.MarkOf(block) == mark ? 1u : 0u;
    }
    return count;
}

/// Where a partition lies on the whole disk that was named.
Facts PlaceOf(const recordings::Disk& disk) {
    const std::optional<recordings::Partition> place = disk.Bytes().PartOfDisk();
    const char* const label = place ? "Partition" : ""; // nothing to tell people of
    return {{"partition_number", label, place ? Value(uint64_t{place->number}) : Value(Nothing{})},
            {"partition_start_bytes", place ? "Partition from" : "",
             place ? Value(Bytes{place->start}) : Value(Nothing{})}};
}

Facts GeometryOf(const recordings::Disk& disk) {
    const recordings::DiskFacts& facts = disk.Facts();
    return {{"device", "Device", std::string(disk.Bytes().IsBlockDevice() ? "block device" : "image file")},
            {"device_size_bytes", "Device size", Bytes{disk.Bytes().Size()}},
            {"description", "Description", Printable(facts.description)},
            {"magic", "Magic", Mask{facts.magic}},
            {"layout", "Block layout", std::string(facts.extendedLayout ? "extended" : "normal")},
            {"block_count", "Blocks", uint64_t{facts.blockCount}},
            {"block_size_bytes", "Block size", Bytes{facts.blockSize}},
            {"bad_block_count", "Bad blocks", CountOf(disk, BlockMark::Bad)},
            {"suspect_block_count", "Suspect blocks", CountOf(disk, BlockMark::Suspect)},
            {"locked", "Access lock", facts.locked},
            {"locked_channels", "Locked channels", facts.lockedSet}};
}

/// The oldest and the newest block of which more is known than that they were recorded.
struct Ends {
    const Block* oldest = nullptr;
    const Block* newest = nullptr;
};

Ends EndsOf(const recordings::BlockList& blocks) {
    Ends ends;
    for (const Block& block : blocks.All()) {
        if (!block.unreadable && !block.wiped) {
            ends.oldest = ends.oldest == nullptr ? &block : ends.oldest;
            ends.newest = &block;
        }
    }
    return ends;
}

Facts SpanOf(Context& context, const Ends& ends) {
    const auto number = [](const Block* block) {
        return block == nullptr ? Value(Nothing{}) : Value(uint64_t{block->number});
    };
    const auto start = [&](const Block* block) {
        return block == nullptr ? Value(Nothing{}) : Value(context.Clock().TrueTime(block->start));
    };
    return {{"oldest_block", "Oldest block", number(ends.oldest)},
            {"oldest_start", "Recorded from", start(ends.oldest)},
            {"newest_block", "Newest block", number(ends.newest)},
            {"newest_start", "Newest block from", start(ends.newest)},
            {"newest_end", "Recorded to",
             ends.newest == nullptr ? Value(Nothing{})
                                    : Value(context.Clock().TrueTime(
                                          LastSecondOf(context.Disk(), *ends.newest, context.Problems())))},
            {"newest_closed", "Newest block closed",
             ends.newest == nullptr ? Value(Nothing{}) : Value(ends.newest->closed)}};
}

Facts VehicleOf(const BlockIdentity& identity) {
    return {{"vehicle_number", "Vehicle number", Printable(identity.vehicleNumber)},
            {"vehicle_id", "Vehicle id", Printable(identity.vehicleId)},
            {"pre_record_seconds", "Recorded before an alarm", Duration{identity.preRecordSeconds}},
            {"alarm_delay_seconds", "Recorded after an alarm", Duration{identity.alarmDelaySeconds}}};
}

void Append(Facts& facts, const Facts& more) {
    facts.insert(facts.end(), more.begin(), more.end());
}

} // namespace

Identity IdentityOf(Context& context) {
    const Ends ends = EndsOf(context.Blocks());
    const auto identity =
        ends.newest == nullptr ? std::nullopt : ReadIdentity(context.Disk(), ends.newest->number);
    Identity answer = {PlaceOf(context.Disk()), {}};
    Append(answer.facts, GeometryOf(context.Disk()));
    Append(answer.facts, SpanOf(context, ends));
    if (identity) {
        Append(answer.facts, VehicleOf(*identity));
        answer.channels = ChannelTable(context.Names(), *identity);
    }
    return answer;
}

ExitCode Info(Context& context) {
    context.ReportBlocks();
    const Identity identity = IdentityOf(context);
    context.Answer().ShowFacts(identity.facts);
    if (identity.channels) {
        ShowTable(context.Answer(), *identity.channels);
    }
    return context.Finish();
}

} // namespace diskaccess
