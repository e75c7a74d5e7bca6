#include "pace_check.h"

#include <algorithm>
#include <optional>

#include "event_payload.h"
#include "picture_kind.h"

namespace recordings {

namespace {

/// Tracks with fewer frames do not tell that one is too many.
constexpr size_t kFewestToTell = 8;

/// Frames of a track beside which a single one of the same channel's other track does not occur.
constexpr size_t kFewestBeside = 6;

/// Audio frames that make a size.
constexpr size_t kFewestAlike = 3;

/// Whether two stretches of time are alike, by a part of the pace.
bool Alike(int64_t a, int64_t b, int64_t slack) {
    return TimeApart(a, b) <= slack;
}

bool SameTrack(const FoundFrame& a, const FoundFrame& b) {
    return a.IsMedia() == b.IsMedia() && Tracks::Of(a) == Tracks::Of(b);
}

} // namespace

PaceCheck::PaceCheck(FoundFrames& found, const BlockFacts& facts, FrameArea& area, const Tracks& tracks)
    : m_found(found), m_frames(found.frames), m_facts(facts), m_area(area), m_tracks(tracks) {
    for (const FoundFrame& frame : m_frames) {
        ++m_ofType[frame.type];
    }
}

void PaceCheck::Run() {
    for (const Track& track : m_tracks.All()) {
        if (track.steady) {
            CheckSlots(track);
        }
    }
    ReportEvents();
    ReportUnknownChannels();
}

// ---- holes, and what fills them

void PaceCheck::CheckSlots(const Track& track) {
    const size_t last = track.frames.size() - 1;
    for (size_t place = 0; place < last; ++place) {
        const int64_t step = TimeBetween(TimeOf(track, place), TimeOf(track, place + 1));
        if (Alike(step, 2 * track.pace, track.pace / 5)) {
            CheckSlot({&track, TimeOf(track, place) + step / 2, track.frames[place], track.frames[place + 1],
                       true, true});
        }
    }
    // A track that begins later than others, or ends earlier, may lack a frame there.
    const auto isMedia = [](const FoundFrame& frame) { return frame.IsMedia(); };
    const int64_t begin = std::find_if(m_frames.begin(), m_frames.end(), isMedia)->time;
    const int64_t end = std::find_if(m_frames.rbegin(), m_frames.rend(), isMedia)->time;
    CheckSlot({&track, TimeAfter(TimeOf(track, 0), -track.pace), 0, track.frames[0],
               TimeBetween(begin, TimeOf(track, 0)) >= track.pace, false});
    CheckSlot({&track, TimeAfter(TimeOf(track, last), track.pace), track.frames[last], m_frames.size(),
               TimeBetween(TimeOf(track, last), end) >= track.pace, false});
}

void PaceCheck::CheckSlot(const Slot& slot) {
    if (LostBetween(slot.from, slot.to)) {
        return; // the frame is lost
    }
    std::vector<size_t> fitting;
    for (size_t entry = slot.from; entry < slot.to; ++entry) {
        if (Fills(slot, m_frames[entry], entry)) {
            fitting.push_back(entry);
        }
    }
    if (fitting.empty()) {
        return;
    }
    MoveInto(slot, m_frames[BestOf(slot, fitting)]);
}

/// Of several frames that would fill a hole, the one whose payload tells, or that lies where frames of the track usually
/// do: after one of the same other track.
size_t PaceCheck::BestOf(const Slot& slot, const std::vector<size_t>& fitting) {
    const size_t beside = slot.from != 0 ? slot.from : slot.to; // a frame of the track
    const auto told = std::find_if(fitting.begin(), fitting.end(),
                                   [&](size_t entry) { return PayloadTells(*slot.track, m_frames[entry]); });
    const auto placed = std::find_if(fitting.begin(), fitting.end(), [&](size_t entry) {
        return entry != 0 && beside != 0 && beside < m_frames.size() &&
               SameTrack(m_frames[entry - 1], m_frames[beside - 1]);
    });
    return told != fitting.end() ? *told : placed != fitting.end() ? *placed : fitting.front();
}

bool PaceCheck::LostBetween(size_t from, size_t to) const {
    for (size_t entry = from + 1; entry < to; ++entry) {
        if (m_frames[entry].afterLoss) {
            return true;
        }
    }
    return to < m_frames.size() ? m_frames[to].afterLoss : m_found.lostAtEnd;
}

/// Whether a frame lies where the track lacks one, at the time at which it lacks one, and fits nothing else.
bool PaceCheck::Fills(const Slot& slot, const FoundFrame& frame, size_t entry) {
    const bool indexed = m_facts.Index() != nullptr;
    const bool ofTrack = Tracks::Of(frame) == static_cast<size_t>(slot.track - m_tracks.All().data());
    if (frame.damaged || (frame.IsMedia() && ofTrack) ||
        (indexed && (!frame.IsMedia() || frame.channel != slot.track->channel)) ||
        !Alike(frame.time, slot.time, slot.track->pace / 10)) {
        return false;
    }
    if (frame.IsMedia()) {
        return IsAlien(entry) || IsAloneBeside(slot, frame);
    }
    return frame.type != kEventFrame && m_ofType[frame.type] == 1 &&
           (slot.due || PayloadTells(*slot.track, frame));
}

/// Whether a frame is the only one of its own track, and that of the same channel as a long one that lacks it, or audio as
/// large as that of the track that lacks it.
bool PaceCheck::IsAloneBeside(const Slot& slot, const FoundFrame& frame) const {
    const Track& track = *slot.track;
    const bool alone = m_tracks.All().at(Tracks::Of(frame)).frames.size() == 1;
    const bool within = slot.inside && track.frames.size() >= kFewestBeside;
    const bool asLarge = HasSizeOf(track, frame) || (within && HasSizeAsOf(track, frame));
    return alone &&
           ((within && frame.channel == track.channel) || (track.audio && frame.IsAudio() && asLarge));
}

/// Whether a track has frames that are no smaller than a frame, and such that are no larger.
bool PaceCheck::HasSizeAsOf(const Track& track, const FoundFrame& frame) const {
    const auto [smallest, largest] =
        std::minmax_element(track.frames.begin(), track.frames.end(),
                            [this](size_t a, size_t b) { return m_frames[a].size < m_frames[b].size; });
    return m_frames[*smallest].size <= frame.size && frame.size <= m_frames[*largest].size;
}

/// Whether all frames of a track have the size of a frame.
bool PaceCheck::HasSizeOf(const Track& track, const FoundFrame& frame) const {
    return std::all_of(track.frames.begin(), track.frames.end(),
                       [&](size_t entry) { return m_frames[entry].size == frame.size; });
}

/// Whether the payload of a frame that is no media tells that it belongs to a track: audio frames are all of one size, and
/// video begins as encoders have it.
bool PaceCheck::PayloadTells(const Track& track, const FoundFrame& frame) {
    if (track.audio) {
        return HasSizeOf(track, frame);
    }
    return PictureKindAt(m_area, frame) != PictureKind::Unknown;
}

void PaceCheck::MoveInto(const Slot& slot, FoundFrame& frame) {
    m_found.NoteDamaged(frame);
    frame.channel = slot.track->channel;
    if (slot.track->audio) {
        frame.type = kAudioFrame;
    } else if (frame.type > kKeyFrame) {
        frame.type = kPictureFrame;
    }
}

// ---- frames that do not fit their track

/// Whether a media frame is one too many in its track, alone there, or audio of another size than the rest.
bool PaceCheck::IsAlien(size_t entry) const {
    const Track& track = m_tracks.All().at(Tracks::Of(m_frames[entry]));
    const auto at = std::lower_bound(track.frames.begin(), track.frames.end(), entry);
    if (at == track.frames.end() || *at != entry) {
        return false; // it was moved here
    }
    const auto place = static_cast<size_t>(at - track.frames.begin());
    return !Declared(track.channel) || (track.steady && IsExtra(track, place)) ||
           (track.audio && HasOddSize(track, place));
}

/// Whether all frames of a track but this one are of one size.
bool PaceCheck::HasOddSize(const Track& track, size_t place) const {
    if (track.frames.size() <= kFewestAlike) {
        return false;
    }
    const auto sizeOf = [&](size_t at) { return m_frames[track.frames[at]].size; };
    const uint32_t size = sizeOf(place == 0 ? 1 : 0);
    size_t alike = 0;
    for (size_t at = 0; at < track.frames.size(); ++at) {
        alike += sizeOf(at) == size ? 1u : 0u;
    }
    return sizeOf(place) != size && alike + 1 == track.frames.size();
}

/// Whether the step after a place keeps the pace.
bool PaceCheck::Usual(const Track& track, size_t place) const {
    return Alike(TimeBetween(TimeOf(track, place), TimeOf(track, place + 1)), track.pace, track.pace / 10);
}

/// Whether the track keeps its pace without this frame, and does not with it.
bool PaceCheck::IsExtra(const Track& track, size_t place) const {
    const size_t last = track.frames.size() - 1;
    if (track.frames.size() < kFewestToTell) {
        return false;
    }
    if (place == 0) {
        return !Usual(track, 0) && Usual(track, 1) && Usual(track, 2) &&
               TimeBetween(TimeOf(track, 0), TimeOf(track, 1)) < track.pace;
    }
    if (place == last) {
        return !Usual(track, last - 1) && Usual(track, last - 2) && Usual(track, last - 3) &&
               TimeBetween(TimeOf(track, last - 1), TimeOf(track, last)) < track.pace;
    }
    const int64_t without = TimeBetween(TimeOf(track, place - 1), TimeOf(track, place + 1));
    return Alike(without, track.pace, track.pace / 10) && (place < 2 || Usual(track, place - 2)) &&
           (place + 1 >= last || Usual(track, place + 1));
}

/// Events that are marked as media: they come when no frame of the track is due.
void PaceCheck::ReportEvents() {
    for (size_t entry = 0; entry < m_frames.size(); ++entry) {
        FoundFrame& frame = m_frames[entry];
        if (frame.IsMedia() && !frame.damaged && frame.size == sizeof(EventHead_t) && IsAlien(entry)) {
            const std::optional<EventHead_t> event = EventAt(m_area, frame);
            if (event && IsLikeEvent(*event)) {
                m_found.NoteDamaged(frame);
            }
        }
    }
}

/// Whether the block's head names a channel, as far as it can be believed.
bool PaceCheck::Declared(uint32_t channel) const {
    return !m_facts.Of().headSound || m_facts.Of().channels.Has(channel);
}

/// A single media frame of a channel that the block's head does not name had another channel.
void PaceCheck::ReportUnknownChannels() {
    size_t count[kChannels] = {};
    for (const FoundFrame& frame : m_frames) {
        count[frame.channel] += frame.IsMedia() ? 1u : 0u;
    }
    for (FoundFrame& frame : m_frames) {
        if (frame.IsMedia() && count[frame.channel] == 1 && !Declared(frame.channel)) {
            m_found.NoteDamaged(frame);
        }
    }
}

} // namespace recordings
