#include "media/manifest.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "manifest_writer.h"
#include "recordings/block_index.h"
#include "time_check.h"

namespace media {

namespace {

using Json = ManifestWriter::Json;

const char* MediaOf(bool isVideo) {
    return isVideo ? "video" : "audio";
}

class Writer {
public:
    Writer(const recordings::Disk& disk, const recordings::BlockList& blocks, const ExportRequest& request,
           const ExportResult& result, const std::function<void(const std::string&)>& write)
        : m_disk(disk), m_blocks(blocks), m_request(request), m_result(result),
          m_writer(disk, request, write) {}

    void Run() {
        m_writer.Begin("export",
                       m_result.blocks.empty() ? std::nullopt : std::optional(m_result.blocks.front()),
                       m_result.headDigest, m_result.sourceDigest);
        m_writer.AskedFor();
        WriteSpan();
        m_writer.Member("container", NameOf(m_request.container));
        m_writer.Member("with_audio", m_request.withAudio);
        m_writer.Member("aac", m_request.aac);
        m_writer.Member("text_track", m_request.clockText && m_request.container != Container::Raw);
        m_writer.List("outputs", m_result.outputs,
                      [this](const Exported& output) { return OutputOf(output); });
        m_writer.List("tracks", m_result.tracks, [this](const Track& track) { return TrackOf(track); });
        m_writer.List("blocks", m_result.blocks, [this](uint32_t block) { return BlockOf(block); });
        m_writer.List("events", m_result.events,
                      [this](const recordings::Event& event) { return EventOf(event); });
        m_writer.Member("event_without_chapter_count", m_result.eventsWithoutChapter);
        m_writer.List("gaps", m_result.gaps, [this](const recordings::Gap& gap) { return GapOf(gap); });
        m_writer.List("segments", SegmentsOfAll(), [](const Json& segment) { return segment; });
        m_writer.Problems(m_result.problems);
        m_writer.List("left_out", m_result.leftOut, [](const LeftOut& item) { return LeftOutOf(item); });
        m_writer.End();
    }

private:
    Json TimeOf(int64_t micros) const { return m_writer.TimeOf(micros); }
    Json TimeOfSeconds(uint32_t seconds) const { return m_writer.TimeOfSeconds(seconds); }

    /// The times of the first frame and the last.
    void WriteSpan() {
        std::optional<int64_t> start;
        std::optional<int64_t> end;
        for (const Track& track : m_result.tracks) {
            if (track.frames != 0) {
                start = std::min(start.value_or(track.first), track.first);
                end = std::max(end.value_or(track.last), track.last);
            }
        }
        m_writer.Member("start", m_writer.TimeOf(start));
        m_writer.Member("end", m_writer.TimeOf(end));
    }

    Json OutputOf(const Exported& output) const {
        const std::string name = std::filesystem::path(output.path).filename().string();
        return {{"file", m_request.stream ? Json(nullptr) : Json(name)},
                {"size_bytes", ManifestWriter::NumberOf(output.size)},
                {"sha256", output.sha256}};
    }

    Json TrackOf(const Track& track) const {
        const bool any = track.frames != 0;
        Json json = {{"channel", track.channel},
                     {"media", MediaOf(track.isVideo)},
                     {"codec", track.Codec()},
                     {"output", track.output},
                     {"frame_count", ManifestWriter::NumberOf(track.frames)},
                     {"payload_bytes", ManifestWriter::NumberOf(track.bytes)},
                     {"start", any ? TimeOf(track.first) : Json(nullptr)},
                     {"end", any ? TimeOf(track.last) : Json(nullptr)}};
        if (track.isVideo) {
            json["key_frame_count"] = ManifestWriter::NumberOf(track.keyFrames);
        } else {
            json["sample_rate"] = track.audio.sampleRate;
        }
        if (track.encoded) {
            json["encoded"] = {{"codec", track.encoded->codec},
                               {"encoder", track.encoded->encoder},
                               {"sample_rate", track.encoded->sampleRate}};
        }
        return json;
    }

    Json BlockOf(uint32_t number) const {
        Json json = {{"block", number}};
        const auto digest = m_result.blockDigests.find(number);
        if (digest != m_result.blockDigests.end()) {
            json.update(ManifestWriter::AreaOf(digest->second));
        }
        const auto entry = m_blocks.Find(number);
        if (entry) {
            const recordings::Block& block = m_blocks.All()[*entry];
            json["sequence"] = block.sequence;
            json["start"] = TimeOfSeconds(block.start);
            json["closed"] = block.closed;
            json["suspect"] = block.mark == recordings::BlockMark::Suspect;
            json["records"] = RecordsOf(block);
        }
        return json;
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
                {"event_types", ManifestWriter::NumberOf(event.type)},
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

    std::vector<Json> SegmentsOfAll() const {
        std::vector<Json> all;
        for (size_t output = 0; output < m_result.segments.size(); ++output) {
            for (const ClockSegment& segment : m_result.segments[output]) {
                all.push_back({{"output", output},
                               {"position_seconds", SecondsOf(segment.place)},
                               {"time", TimeOf(segment.time)}});
            }
        }
        return all;
    }

    static Json LeftOutOf(const LeftOut& item) {
        return {{"channel", item.channel},
                {"media", MediaOf(item.isVideo)},
                {"frame_count", ManifestWriter::NumberOf(item.frames)},
                {"reason", NameOf(item.reason)},
                {"text", item.description},
                {"tracks_before", item.tracksBefore ? Json(*item.tracksBefore) : Json()}};
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    const ExportRequest& m_request;
    const ExportResult& m_result;
    ManifestWriter m_writer;
};

} // namespace

void WriteManifest(const recordings::Disk& disk, const recordings::BlockList& blocks,
                   const ExportRequest& request, const ExportResult& result,
                   const std::function<void(const std::string&)>& write) {
    Writer(disk, blocks, request, result, write).Run();
}

} // namespace media
