#include "copier.h"

#include <algorithm>

namespace media {

namespace {

void CountFrame(Track& track, const recordings::Frame& frame) {
    track.first = track.frames == 0 ? frame.time : std::min(track.first, frame.time);
    track.last = track.frames == 0 ? frame.time : std::max(track.last, frame.time);
    ++track.frames;
    track.keyFrames += frame.type == recordings::kKeyFrame ? 1 : 0;
    track.bytes += frame.size;
}

} // namespace

bool Copier::AddTrack(const Track& track, const recordings::Frame& first) {
    Track taken = track;
    const std::optional<LeftOutReason> refusal = m_sink.Add(taken, first);
    Place& place = m_places[{track.channel, !track.isVideo}];
    place.isTaken = !refusal;
    if (refusal) {
        place.entry = m_leftOut.size();
        LeaveOut(track, *refusal, 0);
    } else {
        place.entry = m_tracks.size();
        m_tracks.push_back(std::move(taken));
    }
    return !refusal;
}

void Copier::Copy(const recordings::Frame& frame) {
    const Place& place = m_places[TrackKey::Of(frame)];
    if (!place.isTaken) {
        ++m_leftOut[place.entry].frames;
    } else if (frame.size > m_sink.LargestFrame()) {
        LeaveOutTooLarge(m_tracks[place.entry]);
    } else {
        m_sink.Write(place.entry, frame);
        CountFrame(m_tracks[place.entry], frame);
    }
}

void Copier::LeaveOut(const Track& track, LeftOutReason reason, uint64_t frames) {
    m_leftOut.push_back({track.channel, track.isVideo, frames, reason, Describe(reason, m_container, track)});
}

void Copier::LeaveOutTooLarge(const Track& track) {
    for (LeftOut& item : m_leftOut) {
        if (item.channel == track.channel && item.isVideo == track.isVideo) {
            ++item.frames;
            return;
        }
    }
    LeaveOut(track, LeftOutReason::FrameTooLarge, 1);
}

} // namespace media
