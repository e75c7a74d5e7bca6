#include "media/picture_check.h"

#include "picture_states.h"

namespace media {

namespace {

using recordings::Frame;
using recordings::ProblemSink;

/// Pictures from one key frame to the next, and bytes of those of all channels: no cameras come near it.
constexpr size_t kMostFrames = 10000;
constexpr size_t kMostBytes = size_t{512} << 20;

} // namespace

void PictureCheck::Take(const Frame& frame, bool afterLoss, const ProblemSink& problems) {
    if (afterLoss) {
        Finish(problems); // what comes needs pictures that may be lost
    }
    if (!frame.IsVideo()) {
        return;
    }
    Group& group = m_groups.at(frame.channel);
    if (frame.type == recordings::kKeyFrame) {
        Decode(frame.channel, problems);
        Begin(group, frame);
    }
    if (group.frames.size() == kMostFrames || m_bytes + frame.size > kMostBytes) {
        Decode(frame.channel, problems);
    }
    const bool goesOn = frame.type == recordings::kKeyFrame || !group.frames.empty();
    if (!goesOn || group.codec == VideoCodec::Unknown || m_bytes + frame.size > kMostBytes) {
        ++m_leftOut;
        return;
    }
    group.frames.emplace_back();
    if (frame.data != nullptr) {
        group.frames.back().assign(frame.data, frame.data + frame.size);
    }
    group.places.push_back({frame.block, frame.offset, frame.time});
    group.bytes += frame.size;
    m_bytes += frame.size;
}

void PictureCheck::Begin(Group& group, const Frame& frame) {
    const VideoCodec codec =
        frame.data == nullptr ? VideoCodec::Unknown : DetectVideo(frame.data, frame.size);
    group.codec = codec == VideoCodec::Unknown ? group.codec : codec;
}

void PictureCheck::Finish(const ProblemSink& problems) {
    for (uint32_t channel = 0; channel < recordings::kChannels; ++channel) {
        Decode(channel, problems);
    }
}

void PictureCheck::Decode(uint32_t channel, const ProblemSink& problems) {
    Group& group = m_groups.at(channel);
    if (group.frames.empty()) {
        return;
    }
    const std::vector<bool> whole = DecodePictures(group.codec, group.frames, m_meanwhile);
    recordings::Problem row;
    const auto report = [&] {
        if (row.count != 0) {
            problems(row);
        }
        row = {};
    };
    for (size_t i = 0; i < whole.size(); ++i) {
        const Place& place = group.places[i];
        if (whole[i] || row.block != place.block) {
            report();
        }
        if (!whole[i]) {
            if (row.count++ == 0) {
                row.kind = recordings::ProblemKind::PicturesDamaged;
                row.block = place.block;
                row.channel = channel;
                row.offset = place.offset;
                row.before = place.time;
            } else {
                row.after = place.time;
            }
        }
    }
    report();
    m_decoded += group.frames.size();
    m_bytes -= group.bytes;
    group.frames.clear();
    group.places.clear();
    group.bytes = 0;
}

} // namespace media
