#include "media/stills.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "media/track.h"
#include "picture_decoder.h"
#include "recordings/error.h"
#include "recordings/range_frames.h"

namespace media {

namespace {

using recordings::Frame;
using recordings::SecondOf;

/// Frames of a channel from a key frame on are kept up to this: no camera comes near it.
constexpr size_t kMostFrames = 10000;
constexpr size_t kMostBytes = size_t{256} << 20;

/// The video of a channel from its last key frame before a time up to that time.
struct Pictures {
    std::vector<std::vector<uint8_t>> frames;
    size_t bytes = 0;
    bool any = false;        ///< video of the channel was met, whether or not it is needed
    bool keyMissing = false; ///< the last of it needs a key frame that is not there
    int64_t keyTime = 0;
    int64_t time = 0;
    uint32_t block = 0;
    uint32_t offset = 0;

    void Take(const Frame& frame) {
        if (frame.type == recordings::kKeyFrame) {
            frames.clear();
            bytes = 0;
            keyTime = frame.time;
        }
        if ((frames.empty() && frame.type != recordings::kKeyFrame) || frames.size() == kMostFrames ||
            bytes + frame.size > kMostBytes) {
            return;
        }
        frames.emplace_back(frame.data, frame.data + frame.size);
        bytes += frame.size;
        time = frame.time;
        block = frame.block;
        offset = frame.offset;
    }
};

using Channels = std::array<Pictures, recordings::kChannels>;

/// Whether a problem ends before the key frames that the pictures begin with: it takes nothing from them.
bool LiesBefore(const recordings::Problem& problem, const Channels& channels) {
    if (!problem.after) {
        return false;
    }
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        const Pictures& pictures = channels.at(channel);
        const bool concerned = pictures.any && problem.channel.value_or(channel) == channel;
        if (concerned && (pictures.frames.empty() || pictures.keyTime < *problem.after)) {
            return false;
        }
    }
    return true;
}

/// Notes the channels whose last frames before a time are left out for want of their key frame.
void NoteMissingKeyFrames(const std::vector<recordings::Problem>& problems, int64_t time,
                          Channels& channels) {
    for (const recordings::Problem& problem : problems) {
        const bool reachesTime = !problem.after || *problem.after > time;
        if (problem.kind == recordings::ProblemKind::NotDecodable && problem.channel && reachesTime) {
            Pictures& pictures = channels.at(*problem.channel);
            pictures.any = true;
            pictures.keyMissing = true;
        }
    }
}

/// Reads what it takes to show each channel at a time.
Channels ReadPictures(const recordings::Disk& disk, const recordings::BlockList& blocks,
                      const StillQuery& query, const recordings::ProblemSink& problems,
                      const recordings::Watch& watch) {
    recordings::FrameQuery wanted;
    // The time of a damaged event may be any.
    wanted.range = {query.time < kLongestShown ? 0 : SecondOf(query.time - kLongestShown),
                    SecondOf(query.time)};
    wanted.channels = query.channels;
    Channels channels;
    std::vector<recordings::Problem> met; // which of them matter is known in the end
    recordings::RangeFrames frames(
        disk, blocks, wanted, [&met](const recordings::Problem& problem) { met.push_back(problem); }, watch);
    for (Frame frame; frames.Next(frame);) {
        if (frame.IsVideo()) {
            Pictures& pictures = channels.at(frame.channel);
            pictures.any = true;
            if (frame.time <= query.time) {
                pictures.Take(frame);
            }
        }
    }
    NoteMissingKeyFrames(met, query.time, channels);
    for (const recordings::Problem& problem : met) {
        if (problems && !LiesBefore(problem, channels)) {
            problems(problem);
        }
    }
    return channels;
}

Still StillOf(uint32_t channel, const Pictures& pictures, int64_t time,
              const std::function<void()>& meanwhile) {
    Still still;
    still.channel = channel;
    if (pictures.frames.empty() || time - pictures.time > kLongestShown) {
        still.state = pictures.keyMissing ? StillState::KeyFrameMissing : StillState::NotRecorded;
        return still;
    }
    still.time = pictures.time;
    still.block = pictures.block;
    still.offset = pictures.offset;
    const std::vector<uint8_t>& key = pictures.frames.front();
    const VideoCodec codec = DetectVideo(key.data(), key.size());
    if (codec == VideoCodec::Unknown) {
        still.state = StillState::UnknownCodec;
        return still;
    }
    std::optional<Decoded> decoded = DecodeLast(codec, pictures.frames, meanwhile);
    if (!decoded) {
        still.state = StillState::NotDecodable;
        return still;
    }
    still.state = decoded->damaged ? StillState::Damaged : StillState::Whole;
    still.picture = std::move(decoded->picture);
    return still;
}

} // namespace

std::vector<Still> TakeStills(const recordings::Disk& disk, const recordings::BlockList& blocks,
                              const StillQuery& query, const recordings::ProblemSink& problems,
                              const recordings::Watch& watch) {
    const auto channels = ReadPictures(disk, blocks, query, problems, watch);
    const auto meanwhile = [&disk, &watch] {
        if (watch && !watch({1, 1, 0})) { // all was read
            throw recordings::Error(recordings::ErrorKind::Cancelled, disk.Bytes().Name() + ": interrupted");
        }
    };
    std::vector<Still> stills;
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        if (channels.at(channel).any) {
            stills.push_back(StillOf(channel, channels.at(channel), query.time, meanwhile));
        }
    }
    return stills;
}

} // namespace media
