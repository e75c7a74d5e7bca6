#include "picture_decoder.h"

#include <cstring>
#include <memory>

#include "child.h"
#include "video_decoder.h"

namespace media {

namespace {

constexpr uint32_t kBytesAPixel = 3;

/// What a child answers before the pixels.
struct AnswerHead {
    uint32_t width;
    uint32_t height;
    uint32_t damaged;
};

// ---- in the child

/// Decodes all frames.
/// @param damaged set when one of them is
/// @return the picture of the last one; null when none comes of it
FramePointer Decode(VideoDecoder& decoder, const std::vector<std::vector<uint8_t>>& frames, bool& damaged) {
    FramePointer last;
    const auto take = [&](const AVFrame& picture, int64_t number) {
        damaged = damaged || VideoDecoder::Damaged(picture);
        if (number == static_cast<int64_t>(frames.size()) - 1) {
            last.reset(av_frame_clone(&picture));
        }
    };
    for (const std::vector<uint8_t>& frame : frames) {
        damaged = !decoder.Take(frame, take) || damaged;
    }
    decoder.Finish(take);
    return last;
}

/// The picture's colours as red, green and blue.
bool Convert(const AVFrame& frame, std::vector<uint8_t>& pixels) {
    const Scaler scaler(sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format),
                                       frame.width, frame.height, AV_PIX_FMT_RGB24,
                                       SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler) {
        return false;
    }
    SetColours(*scaler, frame, SWS_CS_DEFAULT);
    PaddedRows rows(static_cast<uint32_t>(frame.width), static_cast<uint32_t>(frame.height));
    uint8_t* const planes[4] = {rows.Start(), nullptr, nullptr, nullptr};
    const int strides[4] = {rows.Stride(), 0, 0, 0};
    if (sws_scale(scaler.get(), frame.data, frame.linesize, 0, frame.height, planes, strides) !=
        frame.height) {
        return false;
    }
    pixels = rows.Pixels();
    return true;
}

bool DecodeInto(int answer, VideoCodec kind, const std::vector<std::vector<uint8_t>>& frames) {
    VideoDecoder decoder(kind);
    bool damaged = false;
    const FramePointer picture = decoder.Ready() ? Decode(decoder, frames, damaged) : nullptr;
    std::vector<uint8_t> pixels;
    if (!picture || !SizeAllowed(picture->width, picture->height) || !Convert(*picture, pixels)) {
        return false;
    }
    const AnswerHead head = {static_cast<uint32_t>(picture->width), static_cast<uint32_t>(picture->height),
                             damaged ? 1u : 0u};
    return WriteAll(answer, &head, sizeof head) && WriteAll(answer, pixels.data(), pixels.size());
}

} // namespace

std::optional<Decoded> DecodeLast(VideoCodec codec, const std::vector<std::vector<uint8_t>>& frames,
                                  const std::function<void()>& meanwhile) {
    const auto work = [&](int answer) { return DecodeInto(answer, codec, frames); };
    ChildLimits limits;
    limits.answer = sizeof(AnswerHead) + kLargestPicture * kBytesAPixel;
    const std::optional<std::vector<uint8_t>> answer = InChild(work, limits, meanwhile);
    AnswerHead head = {};
    if (!answer || answer->size() < sizeof head) {
        return std::nullopt;
    }
    std::memcpy(&head, answer->data(), sizeof head);
    if (!SizeAllowed(head.width, head.height) ||
        answer->size() - sizeof head != uint64_t{head.width} * head.height * kBytesAPixel) {
        return std::nullopt;
    }
    Decoded decoded;
    decoded.damaged = head.damaged != 0;
    decoded.picture = {head.width, head.height, {answer->begin() + sizeof head, answer->end()}};
    return decoded;
}

} // namespace media
