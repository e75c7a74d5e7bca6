#include "track_digests.h"

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "byte_stream.h"
#include "chapter_box.h"
#include "clock_text.h"
#include "container_clock.h"
#include "digest.h"
#include "media/error.h"
#include "packet_reader.h"
#include "recordings/error.h"
#include "sound_clock.h"
#include "sound_decoder.h"
#include "track_key.h"
#include "watcher.h"

namespace media {

namespace {

/// Packets between two calls of a watch.
constexpr uint64_t kPacketsAWatch = 64;

/// Frames above this are in no container; libavformat counts with signed numbers.
constexpr uint32_t kLargestPacket = 0x40000000;

void AddNumber(Digest& digest, uint64_t number) {
    std::array<uint8_t, sizeof(number)> bytes = {};
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes.at(i) = static_cast<uint8_t>(number >> (8 * i));
    }
    digest.Add(bytes.data(), bytes.size());
}

/// A running digest of the times of a track.
class TimeRunner {
public:
    explicit TimeRunner(ClockUnit unit) { m_times.unit = unit; }

    void Add(int64_t time) {
        m_times.first = m_times.count++ == 0 ? time : m_times.first;
        AddNumber(m_digest, static_cast<uint64_t>(time) - static_cast<uint64_t>(m_times.first));
    }
    ClockUnit Unit() const { return m_times.unit; }
    TimeDigest Finish() {
        m_times.sha256 = m_digest.Text();
        return m_times;
    }

private:
    Digest m_digest;
    TimeDigest m_times;
};

/// A running digest of a track.
class Runner {
public:
    /// @param sized whether sizes are hashed too: where they lie in the file
    explicit Runner(bool sized) : m_sized(sized) {}

    void Add(const uint8_t* data, size_t size) {
        if (m_sized) {
            AddNumber(m_digest, size);
        }
        m_digest.Add(data, size);
        ++m_frames;
    }
    void Count() { ++m_frames; }
    uint64_t Frames() const { return m_frames; }
    TrackDigest Finish() {
        TrackDigest digest;
        digest.sha256 = m_digest.Text();
        digest.frames = m_frames;
        return digest;
    }

private:
    bool m_sized;
    Digest m_digest;
    uint64_t m_frames = 0;
};

/// Says when the packets of sound are shown that is encoded in the file, in the same way as when it was made.
class SoundTimes {
public:
    SoundTimes(const NamedTrack& track, SoundDecoder& decoder)
        : m_codec(*track.recorded), m_decoder(decoder), m_stream(decoder.NewStream()),
          m_clock(m_codec.sampleRate, track.encodedRate) {}

    /// @return nothing when the frame cannot be decoded
    std::optional<int64_t> Samples(const recordings::Frame& frame) {
        const auto samples = m_decoder.Decode(m_stream, m_codec, frame);
        m_anyDecoded = m_anyDecoded || samples;
        return samples ? std::optional(static_cast<int64_t>(samples->size())) : std::nullopt;
    }
    void Add(int64_t place, int64_t samples, TimeRunner& times) {
        if (m_clock.Pauses(place)) {
            EndStretch(times);
        }
        m_clock.Take(place, samples);
        AddPackets(kHeldBack, times);
    }
    void EndStretch(TimeRunner& times) {
        AddPackets(0, times);
        m_clock.EndStretch();
    }
    bool AnyDecoded() const { return m_anyDecoded; }

private:
    /// Packets whose times what follows may change.
    static constexpr int64_t kHeldBack = 2;

    void AddPackets(int64_t left, TimeRunner& times) {
        while (m_clock.PacketsLeft() > left) {
            times.Add(m_clock.PacketTime());
        }
    }

    AudioCodec m_codec;
    SoundDecoder& m_decoder;
    uint32_t m_stream;
    SoundClock m_clock;
    bool m_anyDecoded = false;
};

bool IsSized(const ManifestFile& manifest, const NamedTrack& track) {
    return manifest.container != Container::Raw && track.isVideo;
}

/// A running digest of a text track.
class TextRunner {
public:
    TextRunner(Container container, ClockUnit unit) : m_container(container), m_times(unit) {}

    /// Takes what a file has.
    void Add(int64_t time, int64_t duration, const uint8_t* data, size_t size) {
        End(time);
        m_times.Add(time);
        AddNumber(m_digest, size);
        m_digest.Add(data, size);
        m_time = time;
        m_duration = duration;
    }
    /// Takes what a file should have.
    void Add(const ClockText::Cue& cue) {
        if (m_times.Unit().numerator <= 0) {
            m_times.Add(0); // nothing of it is in the file
            return;
        }
        const int64_t time = NextTime(m_times.Unit(), m_time.value_or(-1), cue.place);
        const std::vector<uint8_t> bytes = TextPayload(m_container, cue.text);
        Add(time, DurationUntil(m_times.Unit(), time, cue.end), bytes.data(), bytes.size());
    }
    TextDigest Finish() {
        End(std::numeric_limits<int64_t>::max());
        return {m_digest.Text(), m_times.Finish()};
    }

private:
    /// In MP4 a text ends with the next one.
    void End(int64_t next) {
        if (m_time) {
            const bool isCut = m_container == Container::Mp4 && next - *m_time < m_duration;
            AddNumber(m_digest, static_cast<uint64_t>(isCut ? next - *m_time : m_duration));
        }
    }

    Container m_container;
    TimeRunner m_times;
    Digest m_digest;
    std::optional<int64_t> m_time; ///< of the text that goes on
    int64_t m_duration = 0;
};

/// Says where a file's frames, texts and chapters lie in its time, in the same way as when it was made.
class FileTimes {
public:
    FileTimes(Container container, std::optional<int64_t> claimed, int64_t largestGap, ClockUnit textUnit)
        : m_container(container), m_claimed(claimed), m_largestGap(largestGap), m_text(container, textUnit) {}

    /// @return the number of the track in the file
    size_t AddTrack(uint32_t channel) {
        m_channels.push_back(channel);
        return m_channels.size() - 1;
    }
    int64_t LargestGap() const { return m_largestGap; }

    bool HasBegun() const { return m_clock.has_value(); }
    /// With the first frame that is counted, also if it is in no container.
    void Begin(ContainerFacts facts) {
        m_facts = std::move(facts);
        m_clock.emplace(m_container, IsEarlier() ? *m_claimed : m_facts.start, m_largestGap,
                        m_channels.size(),
                        m_facts.clockText ? WithChannels(m_facts.clockText, m_channels) : nullptr);
    }
    int64_t PlaceOf(size_t track, const recordings::Frame& frame) {
        const ContainerClock::Spot spot = m_clock->Take(track, frame);
        if (spot.text) {
            m_text.Add(*spot.text);
        }
        return spot.place;
    }

    DiskFile Finish() {
        DiskFile file;
        if (m_clock) {
            file.start = m_facts.start;
            file.segments = m_clock->Time().Segments();
            file.facts = m_facts;
            file.facts.chapters = m_clock->Place(m_facts.chapters, m_clock->Time().Latest());
        }
        file.text = m_text.Finish();
        return file;
    }

private:
    /// Whether the manifest's start is an earlier one that a recorder's clock can show.
    bool IsEarlier() const { return m_claimed && *m_claimed < m_facts.start && *m_claimed >= 0; }

    Container m_container;
    std::optional<int64_t> m_claimed;
    int64_t m_largestGap;
    TextRunner m_text;
    std::vector<uint32_t> m_channels;
    ContainerFacts m_facts;
    std::optional<ContainerClock> m_clock;
};

/// Sends the frames of a disk to the tracks of a manifest. A channel's tracks follow each other.
class Distributor {
public:
    Distributor(const ManifestFile& manifest, const FileDigests& files, const Beginnings& beginnings,
                const Watcher& watcher)
        : m_manifest(manifest), m_beginnings(beginnings), m_contained(manifest.container != Container::Raw),
          m_soundDecoder([&watcher] { watcher.Ask(); }), m_latest(manifest.files.size()) {
        for (size_t file = 0; file < manifest.files.size(); ++file) {
            m_fileTimes.emplace_back(manifest.container, beginnings.claimed[file], LargestGap(file, files),
                                     files.texts[file].times.unit);
        }
        for (size_t i = 0; i < manifest.tracks.size(); ++i) {
            const NamedTrack& track = manifest.tracks[i];
            m_entries.emplace_back(IsSized(manifest, track), files.tracks[i],
                                   m_fileTimes[track.output].AddTrack(track.channel));
            if (track.recorded) {
                m_entries.back().sound.emplace(track, m_soundDecoder);
            }
            m_tracks[{track.channel, !track.isVideo}].steps.push_back({i, 0});
        }
        for (auto& [key, sequence] : m_tracks) {
            AddLeftOut(key, sequence);
        }
        if (m_contained && beginnings.first) {
            m_latest.front() = beginnings.describer.OfFirst(*beginnings.first).start;
        }
    }

    void Take(const recordings::Frame& frame) {
        const auto found = m_tracks.find(TrackKey::Of(frame));
        if (found == m_tracks.end()) {
            return;
        }
        Sequence& sequence = found->second;
        while (sequence.at + 1 < sequence.steps.size() && IsFull(sequence.steps[sequence.at])) {
            ++sequence.at;
        }
        Step& step = sequence.steps[sequence.at];
        const bool isTooLarge = m_contained && frame.size > kLargestPacket;
        if (!step.entry && !IsFull(step)) {
            --step.leftOut;
        } else if (!isTooLarge && IsFull(step)) {
            m_entries[sequence.last].tooMany += sequence.endsAnywhere ? 0 : 1;
        } else if (!isTooLarge) {
            TakeInto(*step.entry, frame, TimeBefore(sequence));
            sequence.lastTime = frame.time;
        }
    }

    DiskDigests Finish() {
        DiskDigests digests;
        for (Entry& entry : m_entries) {
            if (entry.sound) {
                entry.sound->EndStretch(entry.times);
            }
            TrackDigest digest = entry.runner.Finish();
            digest.tooMany = entry.tooMany;
            digest.times = entry.times.Finish();
            digest.notDecoded = entry.sound && !entry.sound->AnyDecoded();
            digest.earliest = entry.earliest;
            digest.latest = entry.latest;
            digest.bytes = entry.bytes;
            digest.keyFrames = entry.keyFrames;
            digest.isOfCodec = entry.isOfCodec;
            digests.tracks.push_back(std::move(digest));
        }
        for (FileTimes& file : m_fileTimes) {
            digests.files.push_back(file.Finish());
        }
        return digests;
    }

private:
    /// Frames that follow each other: of a track, or in no file.
    struct Step {
        std::optional<size_t> entry;
        uint64_t leftOut = 0; ///< still to come
    };
    struct Sequence {
        std::vector<Step> steps;
        size_t at = 0;
        size_t last = 0;                      ///< entry of the last track
        bool endsAnywhere = false;            ///< frames are in no file, and it is not known which
        std::optional<int64_t> lastTime = {}; ///< time stamp of the frame before
    };
    /// What the disk has of a track.
    struct Entry {
        Entry(bool sized, const TrackDigest& file, size_t number)
            : runner(sized), hasLengths(file.hasLengths), times(file.times.unit), numberInFile(number) {}

        Runner runner;
        bool hasLengths;
        TimeRunner times;
        std::optional<SoundTimes> sound; ///< of a track that is encoded in the file
        size_t numberInFile;
        int64_t lastTime = -1; ///< in units
        uint64_t tooMany = 0;
        int64_t earliest = 0;
        int64_t latest = 0;
        uint64_t bytes = 0; ///< of payload
        uint64_t keyFrames = 0;
        bool isOfCodec = false; ///< a key frame is encoded as the manifest says
    };

    /// As the muxer has it: of all tracks of a file.
    int64_t LargestGap(size_t file, const FileDigests& files) const {
        int64_t largest = LargestGapOf(m_manifest.container, files.texts[file].times.unit);
        for (const size_t track : TracksOf(m_manifest, file)) {
            largest = std::min(largest, LargestGapOf(m_manifest.container, files.tracks[track].times.unit));
        }
        return largest;
    }

    /// What the file that begins with a frame says of itself.
    /// @param before time stamp of the frame of this track before it
    ContainerFacts FactsOf(size_t file, const recordings::Frame& frame, std::optional<int64_t> before) const {
        if (file == 0) {
            return m_beginnings.describer.OfFirst(m_beginnings.first.value_or(frame));
        }
        const bool goesOn = before && frame.time - *before > m_fileTimes.front().LargestGap();
        return m_beginnings.describer.OfPart(frame, goesOn);
    }

    /// The time that a frame follows, as for the exporter: that of its track's last frame, or where the track begins after a
    /// pause, of the file that it was to begin in.
    std::optional<int64_t> TimeBefore(const Sequence& sequence) const {
        const bool leftAFile = !sequence.lastTime && sequence.at > 0 && sequence.steps[sequence.at - 1].entry;
        return leftAFile ? m_latest[m_manifest.tracks[*sequence.steps[sequence.at - 1].entry].output]
                         : sequence.lastTime;
    }

    /// Puts what is in no file between the tracks of a sequence.
    void AddLeftOut(const TrackKey& key, Sequence& sequence) const {
        sequence.last = *sequence.steps.back().entry;
        const size_t tracks = sequence.steps.size();
        size_t put = 0; // an export lists them in their order
        for (const NamedLeftOut& item : m_manifest.leftOut) {
            const bool isOfThese = TrackKey{item.channel, !item.isVideo} == key;
            if (isOfThese && item.tracksBefore) {
                const size_t place = std::min<size_t>(*item.tracksBefore, tracks) + put++;
                sequence.steps.insert(sequence.steps.begin() + static_cast<ptrdiff_t>(place),
                                      {std::nullopt, item.frames});
            }
            sequence.endsAnywhere |= isOfThese && !item.tracksBefore;
        }
    }

    bool IsFull(const Step& step) const {
        return step.entry ? m_entries[*step.entry].runner.Frames() >= m_manifest.tracks[*step.entry].frames
                          : step.leftOut == 0;
    }

    void TakeInto(size_t entry, const recordings::Frame& frame, std::optional<int64_t> before) {
        std::optional<int64_t>& latest = m_latest[m_manifest.tracks[entry].output];
        latest = std::max(latest.value_or(frame.time), frame.time);
        CountTime(m_entries[entry], frame.time);
        CountPayload(m_entries[entry], frame, m_manifest.tracks[entry].codec);
        AddPayload(m_entries[entry], frame);
        if (m_contained) {
            AddTime(entry, frame, before);
        }
    }

    static void CountTime(Entry& entry, int64_t time) {
        const bool isFirst = entry.runner.Frames() == 0;
        entry.earliest = isFirst ? time : std::min(entry.earliest, time);
        entry.latest = isFirst ? time : std::max(entry.latest, time);
    }

    static void CountPayload(Entry& entry, const recordings::Frame& frame, const std::string& codec) {
        entry.bytes += frame.size;
        if (frame.type == recordings::kKeyFrame) {
            ++entry.keyFrames;
            entry.isOfCodec = entry.isOfCodec || NameOf(DetectVideo(frame.data, frame.size)) == codec;
        }
    }

    void AddPayload(Entry& entry, const recordings::Frame& frame) {
        if (m_contained && frame.size == 0) {
            entry.runner.Count(); // containers have no empty frames
        } else if (entry.hasLengths) {
            const LengthPrefixer::Bytes bytes = m_prefixer.Convert(frame.data, frame.size);
            entry.runner.Add(bytes.data, bytes.size);
        } else {
            entry.runner.Add(frame.data, frame.size);
        }
    }

    void AddTime(size_t number, const recordings::Frame& frame, std::optional<int64_t> before) {
        const size_t output = m_manifest.tracks[number].output;
        FileTimes& file = m_fileTimes[output];
        if (!file.HasBegun()) {
            file.Begin(FactsOf(output, frame, before));
        }
        if (frame.size == 0) {
            return;
        }
        Entry& entry = m_entries[number];
        if (entry.sound) {
            if (const auto samples = entry.sound->Samples(frame)) {
                entry.sound->Add(file.PlaceOf(entry.numberInFile, frame), *samples, entry.times);
            }
            return;
        }
        entry.lastTime =
            NextTime(entry.times.Unit(), entry.lastTime, file.PlaceOf(entry.numberInFile, frame));
        entry.times.Add(entry.lastTime);
    }

    const ManifestFile& m_manifest;
    const Beginnings& m_beginnings;
    bool m_contained;
    SoundDecoder m_soundDecoder;
    std::deque<FileTimes> m_fileTimes;
    std::vector<std::optional<int64_t>> m_latest; ///< time stamps, of each file
    std::deque<Entry> m_entries;
    std::map<TrackKey, Sequence> m_tracks;
    LengthPrefixer m_prefixer;
};

} // namespace

std::string WordsOf(const NamedTrack& track) {
    return fmt::format("channel {} {}", track.channel, track.isVideo ? "video" : "audio");
}

namespace {

/// MP4 leaves a track without packets out. What is encoded has some always.
bool IsInFile(const ManifestFile& manifest, const NamedTrack& track) {
    return manifest.container != Container::Mp4 || track.bytes != 0 || track.recorded;
}

} // namespace

std::vector<size_t> TracksOf(const ManifestFile& manifest, size_t file) {
    std::vector<size_t> tracks;
    for (size_t i = 0; i < manifest.tracks.size(); ++i) {
        if (manifest.tracks[i].output == file && IsInFile(manifest, manifest.tracks[i])) {
            tracks.push_back(i);
        }
    }
    return tracks;
}

namespace {

/// Whether a packet of a text track shows nothing: MP4 has such packets where no text lasts.
bool IsEmptyText(Container container, const PacketReader::Packet& packet) {
    return container == Container::Mp4 && packet.size == 2 && packet.data[0] == 0 && packet.data[1] == 0;
}

/// Runs through a container.
class ContainerRun {
public:
    ContainerRun(const recordings::Source& file, const ManifestFile& manifest,
                 const std::vector<size_t>& tracks, const recordings::Watch& watch)
        : m_file(file), m_container(manifest.container), m_watch(watch), m_reader(file, m_container),
          m_text(m_container, m_reader.TextUnit()) {
        if (m_reader.Streams() != tracks.size()) {
            throw Error(ErrorKind::CannotReadBack,
                        file.Name() + ": has not as many tracks as the manifest says");
        }
        for (const size_t track : tracks) {
            m_times.emplace_back(m_reader.Unit(m_runners.size()));
            m_runners.emplace_back(IsSized(manifest, manifest.tracks[track]));
        }
    }

    void Run() {
        uint64_t packets = 0;
        for (PacketReader::Packet packet; m_reader.Next(packet);) {
            Take(packet);
            m_bytes += packet.size;
            if (++packets % kPacketsAWatch == 0 && m_watch && !m_watch({m_bytes, m_file.Size(), m_bytes})) {
                throw recordings::Error(recordings::ErrorKind::Cancelled, m_file.Name() + ": interrupted");
            }
        }
    }

    TrackDigest Track(size_t number) {
        TrackDigest digest = m_runners[number].Finish();
        digest.hasLengths = m_reader.HasLengths(number);
        digest.times = m_times[number].Finish();
        return digest;
    }
    TextDigest Text() { return m_text.Finish(); }
    FileFacts Facts() const { return m_reader.Facts(); }

private:
    void Take(const PacketReader::Packet& packet) {
        if (packet.isText) {
            if (!IsEmptyText(m_container, packet)) {
                m_text.Add(packet.time, packet.duration, packet.data, packet.size);
            }
            return;
        }
        if (packet.stream >= m_runners.size()) {
            throw Error(ErrorKind::CannotReadBack,
                        m_file.Name() + ": has more tracks than the manifest says");
        }
        m_runners[packet.stream].Add(packet.data, packet.size);
        m_times[packet.stream].Add(packet.time);
    }

    const recordings::Source& m_file;
    Container m_container;
    const recordings::Watch& m_watch;
    PacketReader m_reader;
    std::deque<Runner> m_runners;
    std::deque<TimeRunner> m_times;
    TextRunner m_text;
    uint64_t m_bytes = 0;
};

} // namespace

void DigestContainer(const recordings::Source& file, const ManifestFile& manifest, size_t number,
                     FileDigests& digests, const recordings::Watch& watch) {
    const std::vector<size_t> tracks = TracksOf(manifest, number);
    ContainerRun run(file, manifest, tracks, watch);
    run.Run();
    for (size_t i = 0; i < manifest.tracks.size(); ++i) {
        if (manifest.tracks[i].output == number) { // those that it has not hold nothing
            digests.tracks[i] = Runner(IsSized(manifest, manifest.tracks[i])).Finish();
        }
    }
    for (size_t i = 0; i < tracks.size(); ++i) {
        digests.tracks[tracks[i]] = run.Track(i);
    }
    digests.texts[number] = run.Text();
    digests.facts[number] = run.Facts();
    if (manifest.container == Container::Mp4) {
        digests.facts[number].listedChapters = ReadChapterBox(file);
    }
}

recordings::FrameQuery QueryOf(const ManifestFile& manifest) {
    recordings::FrameQuery query;
    query.range = manifest.range;
    query.channels = manifest.channels.Without(manifest.locked);
    return query;
}

DiskDigests DigestFrames(const recordings::Disk& disk, const recordings::BlockList& blocks,
                         const ManifestFile& manifest, const FileDigests& files, const Beginnings& beginnings,
                         const recordings::Watch& watch) {
    Watcher watcher(watch, disk.Bytes().Name() + ": interrupted");
    recordings::RangeFrames frames(disk, blocks, QueryOf(manifest), {}, watcher.Reading());
    Distributor distributor(manifest, files, beginnings, watcher);
    for (recordings::Frame frame; frames.Next(frame);) {
        distributor.Take(frame);
    }
    DiskDigests digests = distributor.Finish();
    for (const recordings::Gap& gap : frames.Gaps()) {
        if (gap.video || manifest.withAudio) {
            digests.gaps.push_back(gap);
        }
    }
    return digests;
}

} // namespace media
