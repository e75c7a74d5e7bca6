#include "media/manifest.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <nlohmann/json.hpp>

#include "recordings/block_index.h"
#include "recordings/problem.h"

namespace media {

namespace {

using Json = nlohmann::ordered_json;
using recordings::Severity;

constexpr int64_t kMicros = 1000000;
constexpr int kSchemaVersion = 1;

/// Writes a JSON object member by member, and lists entry by entry: none is held in memory as a whole.
class ObjectWriter {
public:
    explicit ObjectWriter(const std::function<void(const std::string&)>& write) : m_write(write) {
        m_write("{");
    }

    void Member(const char* key, const Json& value) {
        Begin(key);
        m_write(Text(value));
    }
    void BeginList(const char* key) {
        Begin(key);
        m_write("[");
        m_entries = 0;
    }
    void Entry(const Json& value) { m_write((m_entries++ == 0 ? "\n    " : ",\n    ") + Text(value)); }
    void EndList() { m_write(m_entries == 0 ? "]" : "\n  ]"); }
    void End() { m_write("\n}\n"); }

private:
    void Begin(const char* key) {
        m_write(std::string(m_members++ == 0 ? "\n  \"" : ",\n  \"") + key + "\": ");
    }
    /// Names of files may hold any byte: those that are no text are replaced.
    static std::string Text(const Json& value) {
        return value.dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace);
    }

    const std::function<void(const std::string&)>& m_write;
    size_t m_members = 0;
    size_t m_entries = 0;
};

/// The largest number up to which a double, which is what many programs read numbers into, holds every whole one.
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

Json NumberOf(uint64_t number) {
    return number <= kLargestExact ? Json(number) : Json(std::to_string(number));
}

const char* MediaOf(bool isVideo) {
    return isVideo ? "video" : "audio";
}

class Writer {
public:
    Writer(const recordings::Disk& disk, const recordings::BlockList& blocks, const ExportRequest& request,
           const ExportResult& result, const std::function<void(const std::string&)>& write)
        : m_disk(disk), m_blocks(blocks), m_request(request), m_result(result), m_object(write) {}

    void Run() {
        m_object.Member("schema_version", kSchemaVersion);
        m_object.Member("command", "export");
        m_object.Member("made", m_request.made);
        WritePartition();
        m_object.Member("skew_seconds", m_request.skewSeconds);
        m_object.Member("zone", m_request.zone ? Json(*m_request.zone) : Json(nullptr));
        WriteRange();
        m_object.Member("container", NameOf(m_request.container));
        List("outputs", m_result.outputs, [](const Exported& output) { return OutputOf(output); });
        List("tracks", m_result.tracks, [this](const Track& track) { return TrackOf(track); });
        List("blocks", m_result.blocks, [this](uint32_t block) { return BlockOf(block); });
        List("events", m_result.events, [this](const recordings::Event& event) { return EventOf(event); });
        m_object.Member("event_without_chapter_count", m_result.eventsWithoutChapter);
        List("gaps", m_result.gaps, [this](const recordings::Gap& gap) { return GapOf(gap); });
        Problems("losses", Severity::Loss);
        Problems("notes", Severity::Note);
        List("left_out", m_result.leftOut, [](const LeftOut& item) { return LeftOutOf(item); });
        m_object.End();
    }

private:
    template <typename Items, typename ToJson>
    void List(const char* key, const Items& items, const ToJson& toJson) {
        m_object.BeginList(key);
        for (const auto& item : items) {
            m_object.Entry(toJson(item));
        }
        m_object.EndList();
    }

    Json TimeOf(int64_t micros) const { return m_request.wording.timestamp(micros); }
    Json TimeOf(const std::optional<int64_t>& micros) const {
        return micros ? TimeOf(*micros) : Json(nullptr);
    }
    Json TimeOfSeconds(uint32_t seconds) const { return TimeOf(int64_t{seconds} * kMicros); }

    void WritePartition() {
        const auto& printable = m_request.wording.printable;
        const recordings::DiskFacts& facts = m_disk.Facts();
        m_object.Member("partition", printable(m_disk.Bytes().Name()));
        m_object.Member("device_size_bytes", m_disk.Bytes().Size());
        m_object.Member("description", printable(facts.description));
        m_object.Member("block_count", facts.blockCount);
        m_object.Member("block_size_bytes", facts.blockSize);
        const auto identity = m_result.blocks.empty()
                                  ? std::nullopt
                                  : recordings::ReadIdentity(m_disk, m_result.blocks.front());
        if (identity) {
            m_object.Member("vehicle_number", printable(identity->vehicleNumber));
            m_object.Member("vehicle_id", printable(identity->vehicleId));
        }
    }

    void WriteRange() {
        std::optional<int64_t> start;
        std::optional<int64_t> end;
        for (const Track& track : m_result.tracks) {
            if (track.frames != 0) {
                start = std::min(start.value_or(track.first), track.first);
                end = std::max(end.value_or(track.last), track.last);
            }
        }
        const recordings::TimeRange& range = m_request.range;
        m_object.Member("from", m_request.fromGiven ? TimeOfSeconds(range.first) : Json(nullptr));
        m_object.Member("to", m_request.toGiven ? TimeOfSeconds(range.last) : Json(nullptr));
        m_object.Member("start", TimeOf(start));
        m_object.Member("end", TimeOf(end));
    }

    static Json OutputOf(const Exported& output) {
        return {{"file", std::filesystem::path(output.path).filename().string()},
                {"size_bytes", output.size},
                {"sha256", output.sha256}};
    }

    Json TrackOf(const Track& track) const {
        const bool any = track.frames != 0;
        Json json = {{"channel", track.channel},
                     {"media", MediaOf(track.isVideo)},
                     {"codec", track.Codec()},
                     {"output", track.output},
                     {"frame_count", track.frames},
                     {"payload_bytes", track.bytes},
                     {"start", any ? TimeOf(track.first) : Json(nullptr)},
                     {"end", any ? TimeOf(track.last) : Json(nullptr)}};
        if (track.isVideo) {
            json["key_frame_count"] = track.keyFrames;
        } else {
            json["sample_rate"] = track.audio.sampleRate;
        }
        return json;
    }

    Json BlockOf(uint32_t number) const {
        const auto entry = m_blocks.Find(number);
        if (!entry) {
            return {{"block", number}};
        }
        const recordings::Block& block = m_blocks.All()[*entry];
        return {{"block", number},
                {"sequence", block.sequence},
                {"start", TimeOfSeconds(block.start)},
                {"closed", block.closed},
                {"suspect", block.mark == recordings::BlockMark::Suspect},
                {"records", RecordsOf(block)}};
    }

    /// The record segments that the range touches.
    Json RecordsOf(const recordings::Block& block) const {
        Json records = Json::array();
        const auto index =
            block.closed ? recordings::ReadIndex(m_disk, block, {false, true, false}) : std::nullopt;
        for (uint32_t channel = 0; index && channel < recordings::kChannels; ++channel) {
            uint32_t number = 0;
            for (const recordings::IndexedSegment& segment : index->segments[channel]) {
                if (m_request.channels.Has(channel) && m_request.range.Meets(segment.start, segment.end)) {
                    records.push_back({{"channel", channel},
                                       {"segment", number},
                                       {"start", TimeOfSeconds(segment.start)},
                                       {"end", TimeOfSeconds(segment.end)}});
                }
                ++number;
            }
        }
        return records;
    }

    Json EventOf(const recordings::Event& event) const {
        return {{"time", TimeOfSeconds(event.time)},
                {"event_types", NumberOf(event.type)},
                {"block", event.block},
                {"entry", event.entry}};
    }

    Json GapOf(const recordings::Gap& gap) const {
        return {{"channel", gap.channel},
                {"media", MediaOf(gap.video)},
                {"start", TimeOf(gap.before)},
                {"end", TimeOf(gap.after)},
                {"block", gap.block}};
    }

    void Problems(const char* key, Severity severity) {
        m_object.BeginList(key);
        for (const recordings::Problem& problem : m_result.problems) {
            if (problem.severity == severity) {
                m_object.Entry(ProblemOf(problem));
            }
        }
        m_object.EndList();
    }

    /// What applies to the kind of problem, and nothing else.
    Json ProblemOf(const recordings::Problem& problem) const {
        Json json = {{"problem", recordings::NameOf(problem.kind)},
                     {"text", recordings::Describe(problem, m_request.wording.readableTime)}};
        const auto set = [&json](const char* key, const std::optional<uint32_t>& value) {
            if (value) {
                json[key] = *value;
            }
        };
        set("block", problem.block);
        set("next_block", problem.blockAfter);
        set("channel", problem.channel);
        set("offset", problem.offset);
        if (problem.bytes != 0) {
            json["size_bytes"] = problem.bytes;
        }
        if (problem.count != 0) {
            json["count"] = problem.count;
        }
        if (problem.before) {
            json["start"] = TimeOf(*problem.before);
        }
        if (problem.after) {
            json["end"] = TimeOf(*problem.after);
        }
        for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
            if ((problem.channels >> channel & 1u) != 0) {
                json["channels"].push_back(channel);
            }
        }
        return json;
    }

    static Json LeftOutOf(const LeftOut& item) {
        return {{"channel", item.channel},
                {"media", MediaOf(item.isVideo)},
                {"frame_count", item.frames},
                {"reason", NameOf(item.reason)},
                {"text", item.description}};
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    const ExportRequest& m_request;
    const ExportResult& m_result;
    ObjectWriter m_object;
};

} // namespace

void WriteManifest(const recordings::Disk& disk, const recordings::BlockList& blocks,
                   const ExportRequest& request, const ExportResult& result,
                   const std::function<void(const std::string&)>& write) {
    Writer(disk, blocks, request, result, write).Run();
}

} // namespace media
