#include "media/cameras.h"

namespace media_test {

namespace {

/// A slice's bytes: none of them is zero, so that no start code is among them.
void AddSlice(Bytes& payload, const Bytes& header, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        payload.push_back(i < header.size() ? header[i] : static_cast<uint8_t>(1 + i % 255));
    }
}

OwnedFrame Make(uint32_t channel, uint32_t type, int64_t time, Bytes payload) {
    OwnedFrame owned;
    owned.payload = std::move(payload);
    owned.frame.channel = channel;
    owned.frame.type = type;
    owned.frame.time = time;
    return owned;
}

} // namespace

const Bytes kH264Sets = {0,    0,    0,    1,    0x67, 0x42, 0xC0, 0x0A, 0xD9, 0x04, 0x7B, 0x01,
                         0x10, 0x00, 0x00, 0x03, 0x00, 0x10, 0x00, 0x00, 0x03, 0x03, 0x20, 0xF1,
                         0x22, 0x64, 0x80, 0,    0,    0,    1,    0x68, 0xCB, 0x83, 0xCB, 0x20};

const Bytes kLargerH264Sets = {0,    0,    0,    1,    0x67, 0x42, 0xC0, 0x0A, 0xD9, 0x02, 0x0D, 0xB0,
                               0x11, 0x00, 0x00, 0x03, 0x00, 0x01, 0x00, 0x00, 0x03, 0x00, 0x0A, 0x0F,
                               0x12, 0x26, 0x48, 0,    0,    0,    1,    0x68, 0xCB, 0x83, 0xCB, 0x20};

const Bytes kH265Sets = {0,    0,    0,    1,    0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00,
                         0x03, 0x00, 0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x1E, 0x95, 0x98, 0x09,
                         0,    0,    0,    1,    0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90,
                         0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x1E, 0xA0, 0x20, 0x83, 0x16, 0x59, 0x59,
                         0xAE, 0x4C, 0xAF, 0x01, 0x68, 0x08, 0x00, 0x00, 0x03, 0x00, 0x08, 0x00, 0x00, 0x03,
                         0x00, 0x08, 0x40, 0,    0,    0,    1,    0x44, 0x01, 0xC1, 0x73, 0xD0, 0x89};

recordings::Frame OwnedFrame::Get() const {
    recordings::Frame whole = frame;
    whole.data = payload.empty() ? nullptr : payload.data();
    whole.size = static_cast<uint32_t>(payload.size());
    return whole;
}

OwnedFrame KeyFrame(uint32_t channel, int64_t time, size_t slice, const Bytes& sets) {
    Bytes payload = sets;
    payload.insert(payload.end(), {0, 0, 1});
    AddSlice(payload, sets == kH265Sets ? Bytes{0x28, 0x01, 0xAF} : Bytes{0x65, 0x88, 0x84}, slice);
    return Make(channel, recordings::kKeyFrame, time, payload);
}

OwnedFrame Picture(uint32_t channel, int64_t time, size_t slice) {
    Bytes payload = {0, 0, 0, 1};
    AddSlice(payload, {0x41, 0x9A, 0x24}, slice);
    return Make(channel, recordings::kPictureFrame, time, payload);
}

OwnedFrame Sound(uint32_t channel, int64_t time, size_t size) {
    return Make(channel, recordings::kAudioFrame, time, Bytes(size, 0xD5));
}

media::Track VideoTrack(uint32_t channel, media::VideoCodec codec) {
    media::Track track;
    track.channel = channel;
    track.video = codec;
    return track;
}

media::Track AudioTrack(uint32_t channel, const std::string& codec) {
    media::Track track;
    track.channel = channel;
    track.isVideo = false;
    track.audio = {codec, 8000};
    return track;
}

} // namespace media_test
