#include "track_finder.h"

#include <algorithm>
#include <array>
#include <utility>

namespace media {

namespace {

using recordings::Frame;

/// Key frames of a camera that a sink is shown before it is given up.
constexpr int kMostKeyFrames = 64;

/// Problems are named when the frames are read in earnest.
void Ignore(const recordings::Problem& /*problem*/) {}

bool ShowsTrack(const Frame& frame) {
    return frame.type == recordings::kKeyFrame || frame.IsAudio();
}

} // namespace

Frame FoundTrack::Whole() const {
    Frame frame = first;
    frame.data = payload.data();
    return frame;
}

const Frame& FirstOf(const std::map<TrackKey, FoundTrack>& tracks) {
    return std::min_element(
               tracks.begin(), tracks.end(),
               [](const auto& a, const auto& b) { return a.second.first.time < b.second.first.time; })
        ->second.first;
}

TrackFinder::TrackFinder(const recordings::Disk& disk, const recordings::BlockList& blocks,
                         AudioCodecs givenAudio)
    : m_disk(disk), m_blocks(blocks), m_givenAudio(std::move(givenAudio)) {}

Track TrackFinder::TrackOf(const Frame& frame) const {
    Track track;
    track.channel = frame.channel;
    track.isVideo = frame.IsVideo();
    if (track.isVideo) {
        track.video = DetectVideo(frame.data, frame.size);
    } else if (m_givenAudio.Of(frame.channel).Known()) {
        track.audio = m_givenAudio.Of(frame.channel);
    } else if (const auto identity = recordings::ReadIdentity(m_disk, frame.block)) {
        track.audio = AudioOf(identity->properties[frame.channel]);
    }
    return track;
}

bool TrackFinder::TellsAudio(const Frame& frame) const {
    const auto entry = m_blocks.Find(frame.block);
    return m_givenAudio.Of(frame.channel).Known() ||
           (entry && m_blocks.All()[*entry].headSound && recordings::ReadIdentity(m_disk, frame.block));
}

TrackFinder::Found TrackFinder::FindAll(const recordings::FrameQuery& query, const Survey& survey,
                                        const Refuses& refuses, const recordings::Watch& watch) const {
    Found found;
    for (const Beginning& beginning : survey.beginnings) {
        FindIn(beginning, query, refuses, watch, found);
    }
    TryLaterKeyFrames(query, refuses, watch, found);
    return found;
}

TrackFinder::Found TrackFinder::FindInBlock(const recordings::FrameQuery& query, uint32_t block,
                                            const Refuses& refuses, const recordings::Watch& watch) const {
    Found found;
    const auto entry = m_blocks.Find(block);
    if (entry) {
        const recordings::Block& at = m_blocks.All()[*entry];
        recordings::TimeRange range = query.range;
        range.first = std::clamp(at.start, range.first, range.last);
        range.last = at.closed ? std::clamp(at.end, range.first, range.last) : range.last;
        FindIn({block, range, query.channels}, query, refuses, watch, found);
    }
    return found;
}

void TrackFinder::FindIn(const Beginning& beginning, const recordings::FrameQuery& query,
                         const Refuses& refuses, const recordings::Watch& watch, Found& found) const {
    recordings::FrameQuery first = query;
    first.range = beginning.range;
    first.channels = beginning.channels;
    recordings::RangeFrames frames(m_disk, m_blocks, first, Ignore, watch);
    bool begun = false;
    for (Frame frame; frames.Next(frame);) {
        begun = begun || frame.block == beginning.block;
        if (begun && frame.block != beginning.block) {
            return;
        }
        Show(frame, refuses, found);
    }
}

void TrackFinder::TryLaterKeyFrames(const recordings::FrameQuery& query, const Refuses& refuses,
                                    const recordings::Watch& watch, Found& found) const {
    recordings::FrameQuery cameras = query;
    cameras.channels = {};
    for (const auto& [key, track] : found) {
        if (!key.isAudio && track.refused) {
            cameras.channels.Add(key.channel);
        }
    }
    if (cameras.channels.Empty()) {
        return;
    }
    // All in one reading: each may go through the whole range.
    std::array<int, recordings::kChannels> shown = {};
    recordings::RangeFrames frames(m_disk, m_blocks, cameras, Ignore, watch);
    for (Frame frame; !cameras.channels.Empty() && frames.Next(frame);) {
        if (frame.type != recordings::kKeyFrame || !cameras.channels.Has(frame.channel)) {
            continue;
        }
        Show(frame, refuses, found);
        const bool isTaken = !found.at(TrackKey::Of(frame)).refused;
        if (isTaken || ++shown.at(frame.channel) == kMostKeyFrames) {
            cameras.channels = cameras.channels.Without({1u << frame.channel});
        }
    }
}

/// Takes a frame for a track's first, if there was none yet, or none that the sink could do with.
void TrackFinder::Show(const Frame& frame, const Refuses& refuses, Found& found) const {
    if (!ShowsTrack(frame)) {
        return;
    }
    const TrackKey key = TrackKey::Of(frame);
    const auto known = found.find(key);
    if (known != found.end() && (key.isAudio || !known->second.refused)) {
        return;
    }
    const Track track = TrackOf(frame);
    const bool refused = refuses(track, frame);
    if (known == found.end() || !refused) {
        found[key] = {track, frame, std::vector<uint8_t>(frame.data, frame.data + frame.size), refused};
    }
}

} // namespace media
