#include "copier.h"

#include <algorithm>

namespace media {

namespace {

/// A longer step back than this, in microseconds, tells that the recorder's clock was set.
constexpr int64_t kClockSet = 1000000;

void CountFrame(Track& track, const recordings::Frame& frame) {
    track.first = track.frames == 0 ? frame.time : std::min(track.first, frame.time);
    track.last = track.frames == 0 ? frame.time : std::max(track.last, frame.time);
    ++track.frames;
    track.keyFrames += frame.type == recordings::kKeyFrame ? 1 : 0;
    track.bytes += frame.size;
}

} // namespace

void NotedFrames::Add(const recordings::Frame& frame) {
    if (count++ == 0) {
        channel = frame.channel;
        block = frame.block;
        time = frame.time;
    }
}

bool Copier::AddTrack(const Track& track, const recordings::Frame& first) {
    return AddTrack(track, first, m_sink);
}

bool Copier::AddTrack(const Track& track, const recordings::Frame& first, Sink& sink) {
    Places& places = m_places[{track.channel, !track.isVideo}];
    places.all.push_back(Add(track, first, sink));
    places.current = places.all.size() - 1;
    return places.all.back().sink != nullptr;
}

void Copier::PrepareTrack(const Track& track, const recordings::Frame& first, Sink& sink) {
    m_places[{track.channel, !track.isVideo}].all.push_back(Add(track, first, sink));
}

Copier::Place Copier::Add(const Track& track, const recordings::Frame& first, Sink& sink) {
    Track taken = track;
    Place place;
    place.track = track;
    if (const std::optional<LeftOutReason> refusal = sink.Add(taken, first)) {
        place.entry = m_leftOut.size();
        LeaveOut(track, *refusal);
        return place;
    }
    place.sink = &sink;
    place.index = m_taken[&sink]++;
    place.entry = m_tracks.size();
    m_tracks.push_back(std::move(taken));
    return place;
}

void Copier::Refuse(const Track& track, LeftOutReason reason) {
    Places& places = m_places[{track.channel, !track.isVideo}];
    const size_t entry = m_leftOut.size();
    LeaveOut(track, reason);
    places.all.push_back({track, nullptr, 0, entry});
    places.current = places.all.size() - 1;
}

/// Whether a frame that may show another encoding belongs to a place. Where frames are left out, the codec tells.
bool Copier::Belongs(const Place& place, const Track& now, const recordings::Frame& frame) {
    return place.sink != nullptr
               ? place.sink->Continues(place.index, now, frame)
               : now.Codec() == place.track.Codec() && now.audio.sampleRate == place.track.audio.sampleRate;
}

// Not to places that were left before: a channel's tracks follow each other.

bool Copier::Follow(const Track& now, const recordings::Frame& frame) {
    return FollowFrom(m_places[TrackKey::Of(frame)].current, now, frame);
}

bool Copier::GoOn(const Track& now, const recordings::Frame& frame) {
    return FollowFrom(m_places[TrackKey::Of(frame)].current + 1, now, frame);
}

bool Copier::FollowFrom(size_t first, const Track& now, const recordings::Frame& frame) {
    Places& places = m_places[TrackKey::Of(frame)];
    const auto found = std::find_if(places.all.begin() + static_cast<ptrdiff_t>(first), places.all.end(),
                                    [&](const Place& place) { return Belongs(place, now, frame); });
    if (found == places.all.end()) {
        return false;
    }
    places.current = static_cast<size_t>(found - places.all.begin());
    return true;
}

bool Copier::IsNew(const Track& track, const recordings::Frame& frame) const {
    const auto places = m_places.find(TrackKey::Of(frame));
    if (places == m_places.end()) {
        return true;
    }
    const auto current = places->second.all.begin() + static_cast<ptrdiff_t>(places->second.current);
    return std::none_of(current, places->second.all.end(),
                        [&](const Place& place) { return Belongs(place, track, frame); });
}

std::optional<int64_t> Copier::LatestBeside(const TrackKey& key) const {
    const auto places = m_places.find(key);
    if (places == m_places.end()) {
        return std::nullopt;
    }
    const auto latest = m_latest.find(places->second.all[places->second.current].sink);
    return latest == m_latest.end() ? std::nullopt : std::optional(latest->second);
}

/// Holds a frame's time against that of the one before it.
void Copier::Compare(Places& places, const recordings::Frame& frame) {
    const bool collides = places.last && frame.time <= *places.last && frame.time + kClockSet >= *places.last;
    if (collides) {
        places.collisions.Add(frame);
    }
    places.last = frame.time;
}

std::vector<NotedFrames> Copier::AllCollisions() const {
    std::vector<NotedFrames> all;
    for (const auto& [key, places] : m_places) {
        if (places.collisions.count != 0) {
            all.push_back(places.collisions);
        }
    }
    return all;
}

void Copier::Copy(const recordings::Frame& frame) {
    Places& places = m_places[TrackKey::Of(frame)];
    const Place& place = places.all[places.current];
    Compare(places, frame);
    if (place.sink == nullptr) {
        ++m_leftOut[place.entry].frames;
    } else if (frame.size > place.sink->LargestFrame()) {
        LeaveOutTooLarge(m_tracks[place.entry]);
    } else {
        place.sink->Write(place.index, frame);
        const auto latest = m_latest.emplace(place.sink, frame.time).first;
        latest->second = std::max(latest->second, frame.time);
        CountFrame(m_tracks[place.entry], frame);
    }
}

/// Before its place is taken: what has a place by now comes first.
void Copier::LeaveOut(const Track& track, LeftOutReason reason) {
    const std::vector<Place>& places = m_places[{track.channel, !track.isVideo}].all;
    const auto before =
        std::count_if(places.begin(), places.end(), [](const Place& place) { return place.sink != nullptr; });
    m_leftOut.push_back({track.channel, track.isVideo, 0, reason, Describe(reason, m_container, track),
                         static_cast<size_t>(before)});
}

void Copier::LeaveOutTooLarge(const Track& track) {
    const auto known = std::find_if(m_leftOut.begin(), m_leftOut.end(), [&track](const LeftOut& item) {
        return item.channel == track.channel && item.isVideo == track.isVideo &&
               item.reason == LeftOutReason::FrameTooLarge;
    });
    if (known != m_leftOut.end()) {
        ++known->frames;
        return;
    }
    m_leftOut.push_back({track.channel, track.isVideo, 1, LeftOutReason::FrameTooLarge,
                         Describe(LeftOutReason::FrameTooLarge, m_container, track)});
}

} // namespace media
