#include "manifest.h"

#include <algorithm>
#include <ctime>

#include <filesystem>
#include <nlohmann/json.hpp>

namespace diskaccess {

namespace {

using Json = nlohmann::ordered_json;

class Writer {
public:
    Writer(Job& job, const Manifest& manifest) : m_job(job), m_manifest(manifest) {}

    Json Document() {
        const Options& options = m_job.Wanted();
        Json document = {{"schema_version", kSchemaVersion},
                         {"command", "export"},
                         {"made", m_job.Zone().Rfc3339(std::time(nullptr))},
                         {"partition", Partition()}};
        document["clock"] = {{"skew_seconds", options.skew},
                             {"zone", options.zone.empty() ? Json(nullptr) : Json(options.zone)}};
        document["range"] = RangeOf();
        document["container"] = m_manifest.container;
        document["outputs"] = Outputs();
        document["tracks"] = Tracks();
        document["blocks"] = Blocks();
        document["events"] = Events();
        document["gaps"] = Gaps();
        document["losses"] = Losses();
        document["missing_blocks"] = Missing();
        document["left_out"] = LeftOutFrames();
        return document;
    }

private:
    Json TimeOf(int64_t pts) const { return m_job.Zone().Rfc3339OfMicros(m_job.TrueInstant(pts).micros); }
    Json TimeOf(const std::optional<int64_t>& pts) const { return pts ? TimeOf(*pts) : Json(nullptr); }
    Json TimeOfSeconds(uint32_t seconds) const {
        return m_job.Zone().Rfc3339(m_job.TrueTime(seconds).seconds);
    }
    const RecordedBlock& BlockAt(size_t entry) const { return m_manifest.plan->sequence.blocks[entry]; }

    Json Partition() const {
        const PartHead_t& head = m_job.Disk().Head();
        Json partition = {{"path", Printable(m_job.Wanted().partition)},
                          {"size_bytes", m_job.Disk().Size()},
                          {"description", FieldText(head.Description, sizeof head.Description)},
                          {"block_count", head.BlkCount},
                          {"block_size_bytes", head.BlkSize}};
        if (!m_manifest.findings.blocks.empty()) {
            const auto ends = m_job.Disk().EndsOf(BlockAt(m_manifest.findings.blocks.front()).number);
            if (ends) {
                partition["vehicle_number"] = FieldText(ends->head.VehicleNum, sizeof ends->head.VehicleNum);
                partition["vehicle_id"] = FieldText(ends->head.VehicleID, sizeof ends->head.VehicleID);
            }
        }
        return partition;
    }

    Json RangeOf() const {
        const Range& times = m_manifest.plan->range.times;
        Json range = {{"from", m_job.Wanted().from.empty() ? Json(nullptr) : TimeOfSeconds(times.first)},
                      {"to", m_job.Wanted().to.empty() ? Json(nullptr) : TimeOfSeconds(times.last)}};
        std::optional<int64_t> first;
        std::optional<int64_t> last;
        for (const Track& track : m_manifest.tracks) {
            if (track.frames != 0) {
                first = std::min(first.value_or(track.first), track.first);
                last = std::max(last.value_or(track.last), track.last);
            }
        }
        range["first_frame"] = TimeOf(first);
        range["last_frame"] = TimeOf(last);
        return range;
    }

    Json Outputs() const {
        Json outputs = Json::array();
        for (const Exported& output : m_manifest.outputs) {
            outputs.push_back({{"file", std::filesystem::path(output.path).filename().string()},
                               {"size_bytes", output.size},
                               {"sha256", output.sha256}});
        }
        return outputs;
    }

    Json Tracks() const {
        Json tracks = Json::array();
        for (const Track& track : m_manifest.tracks) {
            Json json = {{"channel", track.channel},
                         {"kind", track.isVideo ? "video" : "audio"},
                         {"codec", track.Codec()},
                         {"output", track.output},
                         {"frames", track.frames},
                         {"payload_bytes", track.bytes},
                         {"first_frame", track.frames == 0 ? Json(nullptr) : TimeOf(track.first)},
                         {"last_frame", track.frames == 0 ? Json(nullptr) : TimeOf(track.last)}};
            if (track.isVideo) {
                json["key_frames"] = track.keyFrames;
            } else {
                json["samples_a_second"] = track.audio.samplesASecond;
            }
            tracks.push_back(json);
        }
        return tracks;
    }

    Json Blocks() const {
        Json blocks = Json::array();
        for (const size_t entry : m_manifest.findings.blocks) {
            const RecordedBlock& block = BlockAt(entry);
            BlockFrames frames(m_job.Disk(), m_manifest.plan->area, block, BlockFrames::Want::Heads);
            Json records = Json::array();
            for (uint32_t channel = 0; channel < 32; ++channel) {
                AddRecords(records, frames, channel);
            }
            blocks.push_back({{"block", block.number},
                              {"sequence", block.sequence},
                              {"start", TimeOfSeconds(block.startTime)},
                              {"indexed", frames.HasIndex()},
                              {"suspect", block.suspect},
                              {"records", records}});
        }
        return blocks;
    }

    /// The record segments of a channel that the range touches.
    void AddRecords(Json& records, BlockFrames& frames, uint32_t channel) const {
        const ExportRange& range = m_manifest.plan->range;
        if ((range.channels >> channel & 1) == 0) {
            return;
        }
        uint32_t number = 0;
        for (const RecSegItem_t& segment : frames.SegmentsOf(channel)) {
            if (segment.s <= range.times.last && segment.e >= range.times.first) {
                records.push_back({{"channel", channel},
                                   {"segment", number},
                                   {"start", TimeOfSeconds(segment.s)},
                                   {"end", TimeOfSeconds(segment.e)}});
            }
            ++number;
        }
    }

    Json Events() const {
        Json events = Json::array();
        for (const EventItem_t& event : m_manifest.events) {
            events.push_back({{"time", TimeOfSeconds(event.time)},
                              {"type", uint64_t{event.alarmType}},
                              {"block", event.eventId >> 16}});
        }
        return events;
    }

    Json Gaps() const {
        Json gaps = Json::array();
        for (const Gap& gap : m_manifest.findings.gaps) {
            gaps.push_back({{"channel", gap.channel},
                            {"from", TimeOf(gap.before)},
                            {"to", TimeOf(gap.behind)},
                            {"block", gap.block}});
        }
        return gaps;
    }

    Json Losses() const {
        Json losses = Json::array();
        for (const Loss& loss : m_manifest.findings.losses) {
            losses.push_back({{"block", loss.block},
                              {"offset", loss.offset},
                              {"bytes", loss.bytes},
                              {"from", TimeOf(loss.before)},
                              {"to", TimeOf(loss.behind)},
                              {"reason", loss.unreadable ? "unreadable" : "damaged"}});
        }
        return losses;
    }

    Json Missing() const {
        Json missing = Json::array();
        for (const MissingBlocks& gap : m_manifest.findings.missing) {
            missing.push_back(
                {{"after_block", gap.before}, {"before_block", gap.behind}, {"count", gap.count}});
        }
        return missing;
    }

    Json LeftOutFrames() const {
        Json leftOut = Json::array();
        for (const LeftOut& item : m_manifest.leftOut) {
            leftOut.push_back({{"channel", item.channel},
                               {"kind", item.isVideo ? "video" : "audio"},
                               {"frames", item.frames},
                               {"reason", item.reason}});
        }
        return leftOut;
    }

    Job& m_job;
    const Manifest& m_manifest;
};

} // namespace

std::string ManifestText(Job& job, const Manifest& manifest) {
    return Writer(job, manifest).Document().dump(2) + "\n";
}

} // namespace diskaccess
