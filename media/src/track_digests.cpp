#include "track_digests.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <optional>

#include "byte_stream.h"
#include "digest.h"
#include "media/error.h"
#include "packet_reader.h"
#include "recordings/error.h"
#include "timeline.h"
#include "track_key.h"

namespace media {

namespace {

/// Packets between two calls of a watch.
constexpr uint64_t kPacketsAWatch = 64;

/// Frames above this are in no container; libavformat counts with signed numbers.
constexpr uint32_t kLargestPacket = 0x40000000;

/// Of the clock of a text track.
constexpr ClockUnit kTextUnit = {1, 1000};

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

bool IsSized(const ManifestFile& manifest, const NamedTrack& track) {
    return manifest.container != Container::Raw && track.isVideo;
}

/// Says where a file's frames lie in its time, in the same way as when it was made.
class FileTimes {
public:
    FileTimes(FileStart start, int64_t largestGap) : m_start(start), m_largestGap(largestGap) {}

    /// @return the number of the track in the file
    size_t AddTrack() { return m_tracks++; }

    /// Takes the time of a frame that is counted, also if it is in no container.
    void Begin(int64_t time) {
        if (m_timeline) {
            return;
        }
        m_start.expected = m_start.expected.value_or(time);
        m_timeline.emplace(IsEarlier() ? *m_start.claimed : *m_start.expected, m_largestGap);
        for (size_t track = 0; track < m_tracks; ++track) {
            m_timeline->AddTrack();
        }
    }
    int64_t PlaceOf(size_t track, int64_t time) { return m_timeline->PlaceOf(track, time); }

    const FileStart& Start() const { return m_start; }
    std::vector<ClockSegment> Segments() const {
        return m_timeline ? m_timeline->Segments() : std::vector<ClockSegment>();
    }

private:
    /// Whether the manifest's start is an earlier one that a recorder's clock can show.
    bool IsEarlier() const {
        return m_start.claimed && *m_start.claimed < *m_start.expected && *m_start.claimed >= 0;
    }

    FileStart m_start;
    int64_t m_largestGap;
    size_t m_tracks = 0;
    std::optional<Timeline> m_timeline;
};

/// Sends the frames of a disk to the tracks of a manifest. A channel's tracks follow each other.
class Distributor {
public:
    Distributor(const ManifestFile& manifest, const std::vector<TrackDigest>& files,
                const std::vector<FileStart>& starts)
        : m_manifest(manifest), m_contained(manifest.container != Container::Raw) {
        for (size_t file = 0; file < starts.size(); ++file) {
            m_fileTimes.emplace_back(starts[file], LargestGap(file, files));
        }
        for (size_t i = 0; i < manifest.tracks.size(); ++i) {
            const NamedTrack& track = manifest.tracks[i];
            m_entries.emplace_back(IsSized(manifest, track), files[i], m_fileTimes[track.output].AddTrack());
            m_tracks[{track.channel, !track.isVideo}].entries.push_back(i);
        }
    }

    void Take(const recordings::Frame& frame) {
        const auto found = m_tracks.find(TrackKey::Of(frame));
        if (found == m_tracks.end() || (m_contained && frame.size > kLargestPacket)) {
            return;
        }
        Sequence& sequence = found->second;
        while (sequence.at + 1 < sequence.entries.size() && IsFull(sequence.entries[sequence.at])) {
            ++sequence.at;
        }
        const size_t entry = sequence.entries[sequence.at];
        if (IsFull(entry)) {
            const bool expected = m_manifest.leftOut.count({frame.channel, frame.IsVideo()}) != 0;
            m_entries[entry].tooMany += expected ? 0 : 1;
            return;
        }
        CountTime(m_entries[entry], frame.time);
        AddPayload(m_entries[entry], frame);
        if (m_contained) {
            AddTime(entry, frame);
        }
    }

    DiskDigests Finish() {
        DiskDigests digests;
        for (Entry& entry : m_entries) {
            TrackDigest digest = entry.runner.Finish();
            digest.tooMany = entry.tooMany;
            digest.times = entry.times.Finish();
            digest.earliest = entry.earliest;
            digest.latest = entry.latest;
            digests.tracks.push_back(std::move(digest));
        }
        for (const FileTimes& file : m_fileTimes) {
            digests.starts.push_back(file.Start());
            digests.segments.push_back(file.Segments());
        }
        return digests;
    }

private:
    struct Sequence {
        std::vector<size_t> entries;
        size_t at = 0;
    };
    /// What the disk has of a track.
    struct Entry {
        Entry(bool sized, const TrackDigest& file, size_t number)
            : runner(sized), hasLengths(file.hasLengths), times(file.times.unit), numberInFile(number) {}

        Runner runner;
        bool hasLengths;
        TimeRunner times;
        size_t numberInFile;
        int64_t lastTime = -1; ///< in units
        uint64_t tooMany = 0;
        int64_t earliest = 0;
        int64_t latest = 0;
    };

    /// As the muxer has it: of all tracks of a file.
    int64_t LargestGap(size_t file, const std::vector<TrackDigest>& files) const {
        int64_t largest = LargestGapOf(m_manifest.container, m_manifest.textTrack ? kTextUnit : ClockUnit());
        for (size_t i = 0; i < files.size(); ++i) {
            if (m_manifest.tracks[i].output == file) {
                largest = std::min(largest, LargestGapOf(m_manifest.container, files[i].times.unit));
            }
        }
        return largest;
    }

    bool IsFull(size_t entry) const {
        return m_entries[entry].runner.Frames() >= m_manifest.tracks[entry].frames;
    }

    static void CountTime(Entry& entry, int64_t time) {
        const bool isFirst = entry.runner.Frames() == 0;
        entry.earliest = isFirst ? time : std::min(entry.earliest, time);
        entry.latest = isFirst ? time : std::max(entry.latest, time);
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

    void AddTime(size_t number, const recordings::Frame& frame) {
        FileTimes& file = m_fileTimes[m_manifest.tracks[number].output];
        file.Begin(frame.time);
        if (frame.size == 0) {
            return;
        }
        Entry& entry = m_entries[number];
        entry.lastTime =
            NextTime(entry.times.Unit(), entry.lastTime, file.PlaceOf(entry.numberInFile, frame.time));
        entry.times.Add(entry.lastTime);
    }

    const ManifestFile& m_manifest;
    bool m_contained;
    std::deque<FileTimes> m_fileTimes;
    std::deque<Entry> m_entries;
    std::map<TrackKey, Sequence> m_tracks;
    LengthPrefixer m_prefixer;
};

} // namespace

std::vector<TrackDigest> DigestContainer(const recordings::Source& file, const ManifestFile& manifest,
                                         const std::vector<size_t>& tracks, const recordings::Watch& watch) {
    PacketReader reader(file, manifest.container);
    if (reader.Streams() != tracks.size()) {
        throw Error(ErrorKind::CannotReadBack, file.Name() + ": has not as many tracks as the manifest says");
    }
    std::deque<Runner> runners;
    std::deque<TimeRunner> times;
    for (const size_t track : tracks) {
        times.emplace_back(reader.Unit(runners.size()));
        runners.emplace_back(IsSized(manifest, manifest.tracks[track]));
    }
    uint64_t bytes = 0;
    uint64_t packets = 0;
    for (PacketReader::Packet packet; reader.Next(packet);) {
        if (packet.stream >= runners.size()) {
            throw Error(ErrorKind::CannotReadBack, file.Name() + ": has more tracks than the manifest says");
        }
        runners[packet.stream].Add(packet.data, packet.size);
        times[packet.stream].Add(packet.time);
        bytes += packet.size;
        if (++packets % kPacketsAWatch == 0 && watch && !watch({bytes, file.Size(), bytes})) {
            throw recordings::Error(recordings::ErrorKind::Cancelled, file.Name() + ": interrupted");
        }
    }
    std::vector<TrackDigest> digests;
    for (size_t i = 0; i < runners.size(); ++i) {
        digests.push_back(runners[i].Finish());
        digests.back().hasLengths = reader.HasLengths(i);
        digests.back().times = times[i].Finish();
    }
    return digests;
}

recordings::FrameQuery QueryOf(const ManifestFile& manifest) {
    recordings::FrameQuery query;
    query.range = manifest.range;
    query.channels = manifest.channels.Without(manifest.locked);
    return query;
}

DiskDigests DigestFrames(const recordings::Disk& disk, const recordings::BlockList& blocks,
                         const ManifestFile& manifest, const std::vector<TrackDigest>& files,
                         const std::vector<FileStart>& starts, const recordings::Watch& watch) {
    recordings::RangeFrames frames(disk, blocks, QueryOf(manifest), {}, watch);
    Distributor distributor(manifest, files, starts);
    for (recordings::Frame frame; frames.Next(frame);) {
        distributor.Take(frame);
    }
    return distributor.Finish();
}

} // namespace media
