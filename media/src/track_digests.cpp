#include "track_digests.h"

#include <array>
#include <deque>
#include <map>

#include "byte_stream.h"
#include "digest.h"
#include "media/error.h"
#include "packet_reader.h"
#include "recordings/error.h"
#include "recordings/range_frames.h"
#include "track_key.h"

namespace media {

namespace {

/// Packets between two calls of a watch.
constexpr uint64_t kPacketsAWatch = 64;

/// Frames above this are in no container; libavformat counts with signed numbers.
constexpr uint32_t kLargestPacket = 0x40000000;

/// A running digest of a track.
class Runner {
public:
    /// @param sized whether sizes are hashed too: where they lie in the file
    explicit Runner(bool sized) : m_sized(sized) {}

    void Add(const uint8_t* data, size_t size) {
        if (m_sized) {
            std::array<uint8_t, sizeof(uint64_t)> bytes = {};
            for (size_t i = 0; i < bytes.size(); ++i) {
                bytes.at(i) = static_cast<uint8_t>(uint64_t{size} >> (8 * i));
            }
            m_digest.Add(bytes.data(), bytes.size());
        }
        m_digest.Add(data, size);
        ++m_frames;
    }
    void Count() { ++m_frames; }
    uint64_t Frames() const { return m_frames; }
    TrackDigest Finish() { return {m_digest.Text(), m_frames, 0, false}; }

private:
    bool m_sized;
    Digest m_digest;
    uint64_t m_frames = 0;
};

bool IsSized(const ManifestFile& manifest, const NamedTrack& track) {
    return manifest.container != Container::Raw && track.isVideo;
}

/// Sends the frames of a disk to the tracks of a manifest. A channel's tracks follow each other.
class Distributor {
public:
    Distributor(const ManifestFile& manifest, const std::vector<TrackDigest>& files)
        : m_manifest(manifest), m_files(files), m_tooMany(manifest.tracks.size()) {
        for (size_t i = 0; i < manifest.tracks.size(); ++i) {
            const NamedTrack& track = manifest.tracks[i];
            m_runners.emplace_back(IsSized(manifest, track));
            m_tracks[{track.channel, !track.isVideo}].entries.push_back(i);
        }
    }

    void Take(const recordings::Frame& frame) {
        const bool contained = m_manifest.container != Container::Raw;
        const auto found = m_tracks.find(TrackKey::Of(frame));
        if (found == m_tracks.end() || (contained && frame.size > kLargestPacket)) {
            return;
        }
        Sequence& sequence = found->second;
        while (sequence.at + 1 < sequence.entries.size() && IsFull(sequence.entries[sequence.at])) {
            ++sequence.at;
        }
        const size_t entry = sequence.entries[sequence.at];
        if (IsFull(entry)) {
            const bool expected = m_manifest.leftOut.count({frame.channel, frame.IsVideo()}) != 0;
            m_tooMany[entry] += expected ? 0 : 1;
        } else if (contained && frame.size == 0) {
            m_runners[entry].Count(); // containers have no empty frames
        } else if (m_files[entry].hasLengths) {
            const LengthPrefixer::Bytes bytes = m_prefixer.Convert(frame.data, frame.size);
            m_runners[entry].Add(bytes.data, bytes.size);
        } else {
            m_runners[entry].Add(frame.data, frame.size);
        }
    }

    std::vector<TrackDigest> Finish() {
        std::vector<TrackDigest> digests;
        for (size_t i = 0; i < m_runners.size(); ++i) {
            digests.push_back(m_runners[i].Finish());
            digests.back().tooMany = m_tooMany[i];
        }
        return digests;
    }

private:
    struct Sequence {
        std::vector<size_t> entries;
        size_t at = 0;
    };

    bool IsFull(size_t entry) const { return m_runners[entry].Frames() >= m_manifest.tracks[entry].frames; }

    const ManifestFile& m_manifest;
    const std::vector<TrackDigest>& m_files;
    std::deque<Runner> m_runners;
    std::vector<uint64_t> m_tooMany;
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
    for (const size_t track : tracks) {
        runners.emplace_back(IsSized(manifest, manifest.tracks[track]));
    }
    uint64_t bytes = 0;
    uint64_t packets = 0;
    for (PacketReader::Packet packet; reader.Next(packet);) {
        if (packet.stream >= runners.size()) {
            throw Error(ErrorKind::CannotReadBack, file.Name() + ": has more tracks than the manifest says");
        }
        runners[packet.stream].Add(packet.data, packet.size);
        bytes += packet.size;
        if (++packets % kPacketsAWatch == 0 && watch && !watch({bytes, file.Size(), bytes})) {
            throw recordings::Error(recordings::ErrorKind::Cancelled, file.Name() + ": interrupted");
        }
    }
    std::vector<TrackDigest> digests;
    for (size_t i = 0; i < runners.size(); ++i) {
        digests.push_back(runners[i].Finish());
        digests.back().hasLengths = reader.HasLengths(i);
    }
    return digests;
}

std::vector<TrackDigest> DigestFrames(const recordings::Disk& disk, const recordings::BlockList& blocks,
                                      const ManifestFile& manifest, const std::vector<TrackDigest>& files,
                                      const recordings::Watch& watch) {
    recordings::FrameQuery query;
    query.range = manifest.range;
    query.channels = manifest.channels.Without(manifest.locked);
    recordings::RangeFrames frames(disk, blocks, query, {}, watch);
    Distributor distributor(manifest, files);
    for (recordings::Frame frame; frames.Next(frame);) {
        distributor.Take(frame);
    }
    return distributor.Finish();
}

} // namespace media
