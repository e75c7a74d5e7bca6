#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <utility>

#include "cli/failure.h"
#include "cli/progress.h"
#include "commands/commands.h"
#include "findings.h"
#include "frame_types.h"
#include "interruption.h"
#include "manifest.h"
#include "outputs.h"
#include "range_frames.h"
#include "render/printable.h"
#include "sink.h"

namespace diskaccess {

namespace {

/// What kind of files the user wants.
struct Target {
    std::string container; ///< "matroska", "mp4" or "raw"
    std::string name;      ///< the container's file, or what raw files begin with
    std::string Manifest() const { return name + ".json"; }
};

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

Target WantedTarget(const Options& options) {
    if (options.output.empty() || options.output.back() == '/') {
        throw WrongUse("--output: '" + options.output + "' names no file; give a file's name");
    }
    if (options.raw && !options.container.empty()) {
        throw WrongUse("--raw makes no container: leave --container out");
    }
    if (options.raw) {
        return {"raw", options.output};
    }
    if (!ContainersSupported()) {
        throw Failure("this program was built without libavformat and writes no containers; use --raw");
    }
    if (!options.container.empty()) {
        return {options.container, options.output};
    }
    return {EndsWith(options.output, ".mp4") ? "mp4" : "matroska", options.output};
}

uint32_t ChannelsOf(const Job& job) {
    return job.WantedChannels() & ~job.HiddenChannels();
}

AudioCodec GivenAudio(const Job& job) {
    const std::string& audio = job.Wanted().audio;
    return audio.empty() ? AudioCodec() : ReadAudioCodec(audio);
}

/// Looks at the places of all files that the export may make, before there is any work to be lost.
void CheckPlaces(Job& job, const Target& target, const OutputRules& rules) {
    if (target.container == "raw") {
        // Which streams there are is not known yet: files of others may stay.
        const OutputRules replacing = {rules.source, true};
        for (const std::string& path : PossibleRawFiles(target.name, ChannelsOf(job), GivenAudio(job))) {
            OutputPlace(path).Check(replacing);
        }
    } else {
        OutputPlace(target.name).Check(rules);
    }
    OutputPlace(target.Manifest()).Check(rules);
}

/// Channel and kind: what makes a track.
using TrackKey = std::pair<uint32_t, bool>;

TrackKey KeyOf(const FrameHead_t& head) {
    return {head.chn, !IsVideo(head)};
}

/// A track with the frame that shows what it is.
struct Candidate {
    Track track;
    PlacedFrame first;
};

/// One export.
class Exporter {
public:
    Exporter(Job& job, Target target, const OutputRules& rules)
        : m_job(job), m_target(std::move(target)),
          m_plan(PlanExport(job, {job.WantedRange(), ChannelsOf(job)})),
          m_events(FindEvents(job, job.WantedRange(), std::numeric_limits<uint64_t>::max())),
          m_givenAudio(GivenAudio(job)), m_outputs(rules) {
        AddEventsOfOpenBlocks();
    }

    /// @return false when there is nothing to export
    bool Run() {
        if (m_plan.sequence.blocks.empty() || !MakeSink()) {
            return false;
        }
        Copy();
        if (m_manifest.tracks.empty()) {
            return false;
        }
        m_manifest.outputs = m_sink->Finish();
        m_manifest.plan = &m_plan;
        m_manifest.events = m_events;
        m_manifest.container = m_target.container;
        AddUndecodable();
        const std::string text = ManifestText(m_job, m_manifest);
        m_manifestFile->Write(text.data(), text.size());
        m_manifestFile->Complete();
        m_outputs.Publish();
        return true;
    }

    const Manifest& Result() const { return m_manifest; }

private:
    bool Raw() const { return m_target.container == "raw"; }

    /// Adds the events of blocks that have no index, from their frames.
    void AddEventsOfOpenBlocks() {
        const Range& times = m_plan.range.times;
        for (size_t i = m_plan.sequence.start; i < m_plan.sequence.blocks.size(); ++i) {
            const RecordedBlock& block = m_plan.sequence.blocks[i];
            const auto ends = m_job.Disk().EndsOf(block.number);
            if (ends && ends->closed) {
                continue;
            }
            BlockFrames frames(m_job.Disk(), m_plan.area, block, BlockFrames::Want::Payloads);
            PlacedFrame frame;
            for (bool lost = false; !frames.HasIndex() && frames.Next(frame, lost);) {
                EventHead_t event = {};
                if (frame.head.type == kEventFrame && frame.head.len >= sizeof event &&
                    frame.Seconds() >= times.first && frame.Seconds() <= times.last) {
                    std::memcpy(&event, frame.payload.Data(), sizeof event);
                    m_events.push_back({event.type, block.number << 16, frame.Seconds()});
                }
            }
        }
    }

    AudioCodec AudioOfBlock(uint32_t block, uint32_t channel) const {
        if (m_givenAudio.Known()) {
            return m_givenAudio;
        }
        const auto ends = m_job.Disk().EndsOf(block);
        return ends ? AudioOf(ends->head.prop[channel]) : AudioCodec{};
    }

    Track TrackOf(const PlacedFrame& frame, uint32_t block) const {
        Track track;
        track.channel = frame.head.chn;
        track.isVideo = IsVideo(frame.head);
        if (track.isVideo) {
            track.video = DetectVideo(frame.payload.Data(), frame.head.len);
        } else {
            track.audio = AudioOfBlock(block, frame.head.chn);
        }
        return track;
    }

    /// Tracks that the blocks' heads announce: video of every channel, audio where an encoding is named.
    std::vector<TrackKey> AnnouncedTracks() const {
        std::vector<TrackKey> keys;
        uint32_t seen = 0;
        for (size_t i = m_plan.firstBlock; i < m_plan.sequence.blocks.size(); ++i) {
            const RecordedBlock& block = m_plan.sequence.blocks[i];
            const uint32_t fresh = block.channels & m_plan.range.channels & ~seen;
            seen |= fresh;
            const auto ends = fresh != 0 ? m_job.Disk().EndsOf(block.number) : std::nullopt;
            for (uint32_t chn = 0; ends && chn < 32; ++chn) {
                if ((fresh >> chn & 1) != 0) {
                    keys.emplace_back(chn, false);
                }
                if ((fresh >> chn & 1) != 0 && ends->head.prop[chn].AType != 0) {
                    keys.emplace_back(chn, true);
                }
            }
        }
        return keys;
    }

    /// Looks ahead for the first frame of every track: a container must know them all before it begins.
    std::map<TrackKey, Candidate> FindTracks(int64_t& start) {
        const std::vector<TrackKey> announced = AnnouncedTracks();
        std::map<TrackKey, Candidate> tracks;
        RangeFrames frames(m_job.Disk(), m_plan);
        PlacedFrame frame;
        std::optional<uint32_t> firstBlock;
        start = std::numeric_limits<int64_t>::max();
        const auto complete = [&] {
            return std::all_of(announced.begin(), announced.end(),
                               [&](const TrackKey& key) { return tracks.count(key) != 0; });
        };
        while (frames.Next(frame)) {
            firstBlock = firstBlock.value_or(frames.Block().number);
            if (frames.Block().number != *firstBlock && complete()) {
                break;
            }
            start = std::min(start, frame.head.pts);
            const TrackKey key = KeyOf(frame.head);
            if (tracks.count(key) == 0) {
                Candidate& candidate = tracks[key];
                candidate.track = TrackOf(frame, frames.Block().number);
                candidate.first = std::move(frame);
                frame = PlacedFrame();
            }
        }
        return tracks;
    }

    ContainerFacts Facts(int64_t start) const {
        ContainerFacts facts;
        facts.title = std::filesystem::path(m_target.name).stem().string();
        facts.start = start;
        facts.startTime = TimeZone::UtcOfMicros(m_job.TrueInstant(start).micros);
        const auto ends = m_job.Disk().EndsOf(m_plan.sequence.blocks[m_plan.firstBlock].number);
        if (ends) {
            facts.comment =
                fmt::format("vehicle {}, {}", FieldText(ends->head.VehicleNum, sizeof ends->head.VehicleNum),
                            FieldText(ends->head.VehicleID, sizeof ends->head.VehicleID));
        }
        for (const EventItem_t& event : m_events) {
            facts.chapters.push_back({int64_t{event.time} * 1000000,
                                      fmt::format("event 0x{:x}, {}", uint64_t{event.alarmType},
                                                  m_job.Zone().Text(m_job.TrueTime(event.time).seconds))});
        }
        return facts;
    }

    /// @return false when no track can be found
    bool MakeSink() {
        if (Raw()) {
            m_manifestFile = &m_outputs.Make(m_target.Manifest());
            m_sink = MakeRawSink(m_target.name, m_outputs);
            return true;
        }
        int64_t start = 0;
        std::map<TrackKey, Candidate> tracks = FindTracks(start);
        if (tracks.empty()) {
            return false;
        }
        m_manifestFile = &m_outputs.Make(m_target.Manifest());
        m_sink = MakeContainerSink(m_target.name, m_target.container, Facts(start), m_outputs);
        for (auto& [key, candidate] : tracks) {
            AddTrack(key, candidate.track, candidate.first);
        }
        if (m_manifest.tracks.empty()) {
            throw Failure(fmt::format("{}: nothing of it can be put into a {} file: {}",
                                      m_job.Wanted().partition, m_target.container,
                                      m_manifest.leftOut.front().reason));
        }
        m_sink->Start();
        return true;
    }

    void AddTrack(const TrackKey& key, Track track, const PlacedFrame& first) {
        std::string why;
        if (m_sink->Add(track, first, why)) {
            m_index[key] = m_manifest.tracks.size();
            m_manifest.tracks.push_back(std::move(track));
        } else {
            m_leftOut[key] = m_manifest.leftOut.size();
            m_manifest.leftOut.push_back({key.first, !key.second, 0, why});
        }
    }

    void Copy() {
        RangeFrames frames(m_job.Disk(), m_plan);
        Progress progress("exporting");
        PlacedFrame frame;
        while (frames.Next(frame)) {
            Interruption::EndIfAsked();
            const TrackKey key = KeyOf(frame.head);
            if (m_index.count(key) == 0 && m_leftOut.count(key) == 0) {
                AddTrack(key, TrackOf(frame, frames.Block().number), frame);
            }
            CopyFrame(key, frame);
            progress.Show(frames.Progress(), m_bytes);
        }
        m_manifest.findings = frames.Findings();
    }

    void CopyFrame(const TrackKey& key, const PlacedFrame& frame) {
        const auto index = m_index.find(key);
        if (index == m_index.end()) {
            ++m_manifest.leftOut[m_leftOut[key]].frames;
            return;
        }
        Track& track = m_manifest.tracks[index->second];
        m_sink->Write(index->second, frame);
        track.first = track.frames == 0 ? frame.head.pts : std::min(track.first, frame.head.pts);
        track.last = track.frames == 0 ? frame.head.pts : std::max(track.last, frame.head.pts);
        ++track.frames;
        track.keyFrames += frame.head.type == kKeyFrame ? 1 : 0;
        track.bytes += frame.head.len;
        m_bytes += frame.head.len;
    }

    void AddUndecodable() {
        for (uint32_t chn = 0; chn < 32; ++chn) {
            const uint64_t count = m_manifest.findings.undecodable.at(chn);
            if (count != 0) {
                m_manifest.leftOut.push_back({chn, true, count, "the key frame that they need is not there"});
            }
        }
    }

    Job& m_job;
    Target m_target;
    ExportPlan m_plan;
    std::vector<EventItem_t> m_events;
    AudioCodec m_givenAudio;
    Outputs m_outputs;
    OutputFile* m_manifestFile = nullptr;
    std::unique_ptr<Sink> m_sink;
    std::map<TrackKey, size_t> m_index;   ///< entries of the manifest's tracks
    std::map<TrackKey, size_t> m_leftOut; ///< entries of what it leaves out
    Manifest m_manifest;
    uint64_t m_bytes = 0;
};

std::string LossText(Job& job, const Loss& loss) {
    const auto time = [&](const std::optional<int64_t>& pts, const char* none) {
        return pts ? job.Zone().TextOfMicros(job.TrueInstant(*pts).micros) : std::string(none);
    };
    return fmt::format("block {}: {} bytes from offset {} on {}: video between {} and {} is missing",
                       loss.block, loss.bytes, loss.offset,
                       loss.unreadable ? "cannot be read" : "are damaged", time(loss.before, "its start"),
                       time(loss.behind, "its end"));
}

void NoteLosses(Job& job, const Manifest& manifest) {
    for (const Loss& loss : manifest.findings.losses) {
        job.Note(LossText(job, loss), kDataLost);
    }
    for (const MissingBlocks& gap : manifest.findings.missing) {
        job.Note(fmt::format("between blocks {} and {}: what was recorded is not there any more", gap.before,
                             gap.behind),
                 kDataLost);
    }
    for (const LeftOut& item : manifest.leftOut) {
        job.Note(fmt::format("channel {}: {} {} frame{} left out: {}", item.channel, item.frames,
                             item.isVideo ? "video" : "audio", item.frames == 1 ? " is" : "s are",
                             item.reason),
                 kDone);
    }
}

Report Summary(Job& job, const Target& target, const Manifest& manifest) {
    Table tracks = {"tracks",
                    {{"channel", "CHANNEL"},
                     {"media", "KIND"},
                     {"codec", "CODEC"},
                     {"frame_count", "FRAMES"},
                     {"payload_bytes", "SIZE"},
                     {"start", "START"},
                     {"end", "END"},
                     {"file", "FILE"}},
                    {}};
    for (const Track& track : manifest.tracks) {
        tracks.rows.push_back({uint64_t{track.channel}, std::string(track.isVideo ? "video" : "audio"),
                               track.Codec(), track.frames, Bytes{track.bytes}, job.TrueInstant(track.first),
                               job.TrueInstant(track.last),
                               Printable(manifest.outputs.at(track.output).path)});
    }
    uint64_t size = 0;
    for (const Exported& output : manifest.outputs) {
        size += output.size;
    }
    Facts facts = {{"size_bytes", "Written", Bytes{size}},
                   {"gap_count", "Gaps", uint64_t{manifest.findings.gaps.size()}},
                   {"loss_count", "Losses",
                    uint64_t{manifest.findings.losses.size() + manifest.findings.missing.size()}},
                   {"manifest_file", "Manifest", Printable(target.Manifest())}};
    return {{std::move(tracks), std::move(facts)}};
}

} // namespace

ExitCode Export(Job& job) {
    const Target target = WantedTarget(job.Wanted());
    const OutputRules rules = {job.Disk().Source(), job.Wanted().force};
    CheckPlaces(job, target, rules);
    auto exporter = std::make_unique<Exporter>(job, target, rules);
    bool exported = exporter->Run();
    if (!exported && !job.AsksEveryBlock()) {
        job.AskEveryBlock(); // before it is said that there is nothing
        exporter.reset();
        exporter = std::make_unique<Exporter>(job, target, rules);
        exported = exporter->Run();
    }
    if (!exported) {
        job.Note(job.Wanted().partition +
                     ": holds no frames of that time and these channels; nothing was written",
                 kDone);
        return job.Finish();
    }
    NoteLosses(job, exporter->Result());
    return job.Finish(Summary(job, target, exporter->Result()));
}

} // namespace diskaccess
