#include "media/exporter.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "block_hasher.h"
#include "container_facts.h"
#include "copier.h"
#include "encoding_watch.h"
#include "media/error.h"
#include "media/manifest.h"
#include "output_place.h"
#include "signed_file.h"
#include "sound_decoder.h"
#include "survey.h"
#include "track_finder.h"
#include "watcher.h"

namespace media {

namespace {

using recordings::Frame;

class Exporter {
public:
    Exporter(const recordings::Disk& disk, const recordings::BlockList& blocks, const SourceIdentity& source,
             const ExportRequest& request, const recordings::ProblemSink& problems, Watcher& watcher)
        : m_disk(disk), m_blocks(blocks), m_rules({source, request.replace}), m_request(request),
          m_report(problems), m_watcher(watcher), m_finder(disk, blocks, request.audio),
          m_describer(disk, blocks, request.wording, m_result.events, request.clockText),
          m_soundDecoder([&watcher] { watcher.Ask(); }), m_outputs(m_rules, [&watcher] { watcher.Ask(); }),
          m_hasher(disk, [&watcher] { watcher.Ask(); }) {
        m_query.range = request.range;
        m_query.channels = request.channels.Without(disk.Hidden());
    }

    std::optional<ExportResult> Run() {
        CheckPlaces(m_disk, m_rules.source, m_request);
        m_result.manifest = m_request.WantsManifest() ? m_request.ManifestName() : "";
        for (const recordings::Problem& problem : m_disk.OpeningProblems()) {
            Problems()(problem);
        }
        ReportLocked();
        FindEvents();
        m_sink = MakeSink();
        m_copier.emplace(*m_sink, m_request.container);
        m_started = m_request.container == Container::Raw;
        if (m_request.container != Container::Raw && !StartContainer()) {
            Copy(); // what is missing is named all the same, and what is left out is counted
            return NothingMade();
        }
        OutputFile* const manifest = m_request.WantsManifest() ? &m_outputs.Make(m_result.manifest) : nullptr;
        Copy();
        if (m_copier->Tracks().empty()) {
            return NothingMade();
        }
        for (const auto& sink : m_parts) {
            sink->Finish();
        }
        m_sink->Finish();
        m_result.outputs =
            manifest == nullptr ? m_outputs.CompleteAll() : m_outputs.CompleteOthers(*manifest);
        TakeFindings();
        if (manifest != nullptr) {
            TakeDigests();
            Describe(*manifest);
        }
        m_watcher.Ask();
        m_outputs.Publish();
        return std::move(m_result);
    }

private:
    recordings::ProblemSink Problems() {
        return [this](const recordings::Problem& problem) {
            m_problems.Add(problem);
            if (m_report) {
                m_report(problem);
            }
        };
    }

    std::unique_ptr<Sink> MakeSink() {
        if (m_request.stream) {
            return MakeStreamSink(m_request.name, *m_request.stream, m_outputs);
        }
        return m_request.container == Container::Raw ? MakeRawSink(m_request.name, m_outputs)
                                                     : MakeContainer(m_request.name, 0);
    }

    std::unique_ptr<Sink> MakeContainer(const std::string& name, size_t output) {
        return MakeContainerSink(name, m_request.container, m_outputs, output,
                                 m_request.aac ? &m_soundDecoder : nullptr);
    }

    void ReportLocked() {
        const recordings::ChannelSet locked = m_request.channels.And(m_disk.Hidden());
        if (!locked.Empty()) {
            recordings::Problem problem;
            problem.kind = recordings::ProblemKind::ChannelsLocked;
            problem.severity = recordings::Severity::Note;
            problem.channels = locked.bits;
            Problems()(problem);
        }
    }

    void FindEvents() {
        m_result.events = recordings::FindEvents(m_disk, m_blocks, m_query.range, recordings::kAllEvents,
                                                 Problems(), m_watcher.Silent());
    }

    Refuses Refusing() const {
        return [this](const Track& track, const Frame& frame) {
            return m_sink->Refusal(track, frame).has_value();
        };
    }

    bool IsWanted(const TrackKey& track) const { return m_request.withAudio || !track.isAudio; }

    /// @return false when there are no tracks that it could hold
    bool StartContainer() {
        const Survey survey = MakeSurvey(m_disk, m_blocks, m_query, m_watcher.Silent());
        auto tracks = m_finder.FindAll(m_query, survey, Refusing(), m_watcher.Silent());
        for (auto track = tracks.begin(); track != tracks.end();) {
            track = IsWanted(track->first) ? std::next(track) : tracks.erase(track);
        }
        Estimate estimate;
        std::set<TrackKey> taken;
        for (auto track = tracks.begin(); track != tracks.end();) {
            const auto& [key, found] = *track;
            if (!m_copier->AddTrack(found.track, found.Whole())) {
                track = tracks.erase(track); // what is in no file does not make one begin
                continue;
            }
            taken.insert(key);
            const auto last = survey.lastFrames.find(key);
            estimate.lastFrames.push_back(last == survey.lastFrames.end() ? std::nullopt
                                                                          : std::optional(last->second));
            ++track;
        }
        if (taken.empty()) {
            return false;
        }
        estimate.bytes = survey.BytesOf(taken);
        estimate.keyFrames = survey.keyFrames;
        estimate.seconds = survey.seconds;
        m_started = true;
        m_result.eventsWithoutChapter = m_describer.EventsWithoutChapter();
        const ContainerFacts facts = m_describer.OfFirst(FirstOf(tracks));
        m_sink->Start(facts, estimate);
        m_copier->Begin(*m_sink, facts.start);
        return true;
    }

    void Copy() {
        recordings::RangeFrames frames(m_disk, m_blocks, m_query, Problems(), m_watcher.Reading());
        std::optional<uint32_t> block;
        for (Frame frame; frames.Next(frame);) {
            if (m_request.WantsManifest() && block && *block != frame.block) {
                m_hasher.Add(*block);
            }
            block = frame.block;
            if (!IsWanted(TrackKey::Of(frame))) {
                continue;
            }
            Follow(frame);
            m_copier->Copy(frame);
            NoteClock(frame);
        }
        if (!m_started) {
            return;
        }
        m_result.segments.push_back(m_sink->Segments());
        for (const auto& sink : m_parts) {
            m_result.segments.push_back(sink->Segments());
        }
        for (const recordings::Gap& gap : frames.Gaps()) {
            if (IsWanted({gap.channel, !gap.video})) {
                m_result.gaps.push_back(gap);
            }
        }
        m_result.blocks = frames.BlocksUsed();
    }

    void TakeDigests() {
        for (const uint32_t block : m_result.blocks) {
            m_hasher.Add(block);
        }
        m_result.blockDigests = m_hasher.Finish();
        m_result.headDigest = HashArea(m_disk.Bytes(), 0, recordings::kPartitionHeadBytes);
        if (m_request.provenance.hashSource) {
            m_result.sourceDigest = m_request.provenance.hashSource();
        }
    }

    /// Whether a frame tells how its track is encoded.
    bool TellsTrack(const Frame& frame) const {
        return frame.IsAudio() ? m_finder.TellsAudio(frame) : frame.type == recordings::kKeyFrame;
    }

    /// The time that a frame of a track follows in its file: that of the track's last frame. One that begins follows those of
    /// the others, or the file's beginning, as texts and chapters last until then.
    std::optional<int64_t> TimeBefore(const TrackKey& track) const {
        const auto last = m_lastTimes.find(track);
        return last == m_lastTimes.end() ? m_copier->LatestBeside(track) : last->second;
    }

    /// Whether a frame comes after a pause that is longer than its file can show.
    bool ComesTooLate(const TrackKey& track, int64_t time) const {
        const std::optional<int64_t> before = TimeBefore(track);
        return m_started && !m_request.stream && before && time - *before > m_sink->LargestGap();
    }

    /// Has a track that has paused for so long go on in another container.
    /// @return whether there is one for it
    bool GoOn(const Track& track, const Frame& frame) {
        if (m_sink->Refusal(track, frame)) {
            return false;
        }
        if (!m_copier->GoOn(track, frame)) {
            BeginPart(track, frame, true);
        }
        return true;
    }

    /// Has the frame's track go where it belongs: one that begins, and one that is encoded otherwise from here on, gets a
    /// place of its own.
    void Follow(const Frame& frame) {
        const bool mayChange = m_encodings.MayChangeAt(frame);
        const bool isKnown = m_copier->Knows(TrackKey::Of(frame));
        const bool paused = isKnown && ComesTooLate(TrackKey::Of(frame), frame.time);
        if (isKnown && ((!mayChange && !paused) || !TellsTrack(frame))) {
            return;
        }
        const Track track = m_finder.TrackOf(frame);
        if (paused && GoOn(track, frame)) {
            return;
        }
        if (isKnown && m_copier->Follow(track, frame)) {
            return;
        }
        if (isKnown) {
            NoteChange(frame);
        }
        if (m_request.container == Container::Raw) {
            m_copier->AddTrack(track, frame);
        } else if (const auto refusal = m_sink->Refusal(track, frame)) {
            m_copier->Refuse(track, *refusal);
        } else if (!m_started || m_request.stream) {
            m_copier->Refuse(track, LeftOutReason::TrackBegunTooLate);
        } else {
            BeginPart(track, frame, false);
        }
    }

    /// Begins another container, for a track and all others of the block that do not go on as they were.
    /// @param goesOn after a pause
    void BeginPart(const Track& track, const Frame& frame, bool goesOn) {
        const size_t output = m_parts.size() + 1;
        m_parts.push_back(MakeContainer(PartName(m_request.name, output + 1), output));
        Sink& part = *m_parts.back();
        m_copier->AddTrack(track, frame, part);
        for (const auto& [key, found] :
             m_finder.FindInBlock(m_query, frame.block, Refusing(), m_watcher.Silent())) {
            const bool isOther = !(key == TrackKey::Of(frame));
            const bool begins =
                ComesTooLate(key, found.first.time) || m_copier->IsNew(found.track, found.Whole());
            if (isOther && IsWanted(key) && !found.refused && begins) {
                m_copier->PrepareTrack(found.track, found.Whole(), part);
            }
        }
        part.Start(m_describer.OfPart(frame, goesOn), std::nullopt);
    }

    void NoteChange(const Frame& frame) {
        recordings::Problem problem;
        problem.kind = recordings::ProblemKind::EncodingChanges;
        problem.severity = recordings::Severity::Note;
        problem.block = frame.block;
        problem.channel = frame.channel;
        problem.after = frame.time;
        Problems()(problem);
    }

    size_t Segments() const {
        size_t count = m_sink->Segments().size();
        for (const auto& sink : m_parts) {
            count += sink->Segments().size() - 1; // of which each begins with one
        }
        return count;
    }

    /// Names jumps of the clock that the file does not show.
    void NoteClock(const Frame& frame) {
        const size_t segments = m_started ? Segments() : 0;
        if (segments > std::max<size_t>(m_segments, 1)) {
            recordings::Problem problem;
            problem.kind = recordings::ProblemKind::ClockJumps;
            problem.severity = recordings::Severity::Note;
            problem.block = frame.block;
            problem.channel = frame.channel;
            problem.before = m_lastTimes[TrackKey::Of(frame)];
            problem.after = frame.time;
            Problems()(problem);
        }
        m_segments = segments;
        m_lastTimes[TrackKey::Of(frame)] = frame.time;
    }

    void NoteCollisions() {
        NoteFrames(recordings::ProblemKind::TimesCollide, recordings::Severity::Note,
                   m_copier->AllCollisions());
    }

    void NoteNotDecoded(const Sink& sink) {
        NoteFrames(recordings::ProblemKind::SoundDamaged, recordings::Severity::Loss, sink.NotDecoded());
    }

    void NoteFrames(recordings::ProblemKind kind, recordings::Severity severity,
                    const std::vector<NotedFrames>& frames) {
        for (const NotedFrames& each : frames) {
            recordings::Problem problem;
            problem.kind = kind;
            problem.severity = severity;
            problem.block = each.block;
            problem.channel = each.channel;
            problem.count = each.count;
            problem.after = each.time;
            Problems()(problem);
        }
    }

    void TakeFindings() {
        NoteCollisions();
        NoteNotDecoded(*m_sink);
        for (const auto& sink : m_parts) {
            NoteNotDecoded(*sink);
        }
        m_result.tracks = std::move(m_copier->Tracks());
        m_result.leftOut = std::move(m_copier->Refused());
        m_result.problems = m_problems.All();
    }

    /// What there is to say when no file was made.
    std::optional<ExportResult> NothingMade() {
        TakeFindings();
        m_result.manifest.clear();
        m_result.signature.clear();
        return m_result.leftOut.empty() ? std::nullopt : std::optional(std::move(m_result));
    }

    void Describe(OutputFile& manifest) {
        SignedFile file(manifest, m_request.key);
        WriteManifest(m_disk, m_blocks, m_request, m_result,
                      [&file](const std::string& text) { file.Write(text); });
        manifest.Complete();
        if (m_request.key != nullptr) {
            m_result.signature = m_request.SignatureName();
            file.Sign(m_outputs.Make(m_result.signature));
        }
    }

    const recordings::Disk& m_disk;
    const recordings::BlockList& m_blocks;
    OutputRules m_rules;
    const ExportRequest& m_request;
    const recordings::ProblemSink& m_report;
    Watcher& m_watcher;
    recordings::FrameQuery m_query;
    recordings::ProblemList m_problems;
    TrackFinder m_finder;
    ExportResult m_result;
    ContainerDescriber m_describer;
    SoundDecoder m_soundDecoder;
    Outputs m_outputs;
    BlockHasher m_hasher;
    std::unique_ptr<Sink> m_sink;
    std::vector<std::unique_ptr<Sink>> m_parts; ///< containers beside the first
    EncodingWatch m_encodings;
    std::optional<Copier> m_copier;
    std::map<TrackKey, int64_t> m_lastTimes; ///< time stamps
    bool m_started = false;                  ///< files are written
    size_t m_segments = 0;                   ///< that are known
};

} // namespace

void CheckPlaces(const recordings::Disk& disk, const SourceIdentity& source, const ExportRequest& request) {
    const OutputRules rules = {source, request.replace};
    if (request.stream) {
        // It is open, and looked at when it is begun.
    } else if (request.container == Container::Raw) {
        // Which streams there are is not known yet: files of others may stay.
        const OutputRules replacing = {source, true};
        for (const std::string& path :
             PossibleRawFiles(request.name, request.channels.Without(disk.Hidden()), request.audio)) {
            OutputPlace(path).Check(replacing);
        }
    } else {
        OutputPlace(request.name).Check(rules);
    }
    if (request.WantsManifest()) {
        OutputPlace(request.ManifestName()).Check(rules);
        CheckSignaturePlace(request, rules);
    }
}

std::optional<ExportResult> Export(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                   const SourceIdentity& source, const ExportRequest& request,
                                   const recordings::ProblemSink& problems, const recordings::Watch& watch) {
    Watcher watcher(watch, kExportEnded);
    return Exporter(disk, blocks, source, request, problems, watcher).Run();
}

} // namespace media
