#include <fmt/format.h>

#include "commands/commands.h"

namespace diskaccess {

namespace {

Table ChannelTable(const BlockHead_t& head) {
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
    for (uint32_t chn = 0; chn < 32; ++chn) {
        if ((head.media_chn_bitmap >> chn & 1) != 0) {
            const ChnProp_t& p = head.prop[chn];
            table.rows.push_back({uint64_t{chn}, uint64_t{p.VType}, uint64_t{p.FrameRate},
                                  uint64_t{p.Resolution}, uint64_t{p.Bitrate}, uint64_t{p.gop},
                                  uint64_t{p.AType}, uint64_t{p.Sample}, uint64_t{p.BitWidth},
                                  uint64_t{p.audio_frame_len}});
        }
    }
    return table;
}

void AddGeometry(Facts& facts, const Partition& disk) {
    const PartHead_t& head = disk.Head();
    facts.push_back({"device", "Device", std::string(disk.IsBlockDevice() ? "block device" : "image file")});
    facts.push_back({"device_size_bytes", "Device size", Bytes{disk.Size()}});
    facts.push_back({"description", "Description", FieldText(head.Description, sizeof head.Description)});
    facts.push_back({"magic", "Magic", Mask{head.FormatFlag}});
    facts.push_back({"layout", "Block layout", std::string(head.FmtVersion == 1 ? "extended" : "normal")});
    facts.push_back({"block_count", "Blocks", uint64_t{head.BlkCount}});
    facts.push_back({"block_size_bytes", "Block size", Bytes{head.BlkSize}});
    facts.push_back({"bad_block_count", "Bad blocks", uint64_t{disk.CountOf(BlockState::Bad)}});
    facts.push_back({"suspect_block_count", "Suspect blocks", uint64_t{disk.CountOf(BlockState::Suspect)}});
    const bool locked = (head.Encrypt & ~2u) != 0;
    facts.push_back({"locked", "Access lock", locked});
    facts.push_back({"locked_channels", "Locked channels", ChannelSet{locked ? head.EncryptMap : 0}});
}

void AddVehicle(Facts& facts, const BlockHead_t& head) {
    facts.push_back({"vehicle_number", "Vehicle number", FieldText(head.VehicleNum, sizeof head.VehicleNum)});
    facts.push_back({"vehicle_id", "Vehicle id", FieldText(head.VehicleID, sizeof head.VehicleID)});
    facts.push_back({"pre_record_seconds", "Recorded before an alarm", Duration{head.pre_RecTime}});
    facts.push_back({"alarm_delay_seconds", "Recorded after an alarm", Duration{head.AlmDelayTime}});
}

} // namespace

Report Info(Job& job) {
    Partition& disk = job.Disk();
    Facts facts;
    AddGeometry(facts, disk);
    const auto ring = disk.RecordedRing();
    const auto oldest = ring ? disk.EndsOf(ring->oldest) : std::nullopt;
    const auto newest = ring ? disk.EndsOf(ring->newest) : std::nullopt;
    const auto block = [](bool known, uint32_t number) {
        return known ? Value(uint64_t{number}) : Value(Nothing{});
    };
    facts.push_back({"oldest_block", "Oldest block", block(oldest.has_value(), ring ? ring->oldest : 0)});
    facts.push_back({"oldest_start", "Recorded from",
                     oldest ? Value(job.TrueTime(oldest->head.RecTime)) : Value(Nothing{})});
    facts.push_back({"newest_block", "Newest block", block(newest.has_value(), ring ? ring->newest : 0)});
    facts.push_back({"newest_start", "Newest block from",
                     newest ? Value(job.TrueTime(newest->head.RecTime)) : Value(Nothing{})});
    facts.push_back(
        {"newest_closed", "Newest block closed", newest ? Value(newest->closed) : Value(Nothing{})});
    if (newest) {
        AddVehicle(facts, newest->head);
        return {{std::move(facts), ChannelTable(newest->head)}};
    }
    return {{std::move(facts)}};
}

} // namespace diskaccess
