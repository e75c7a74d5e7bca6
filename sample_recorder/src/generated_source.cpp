#include "sample_recorder/generated_source.h"

#include <random>

namespace sample_recorder {

namespace {

/// A number from a frame's own seed. (The standard distributions differ from library to library.)
uint32_t Below(std::mt19937& random, uint32_t limit) {
    return limit == 0 ? 0 : static_cast<uint32_t>(random() % limit);
}

} // namespace

GeneratedSource::GeneratedSource(const GeneratedCamera& camera, uint32_t seed, uint32_t start,
                                 uint32_t seconds)
    : m_camera(camera), m_seed(seed), m_start(int64_t{start} * kMicrosPerSecond),
      m_end((int64_t{start} + seconds) * kMicrosPerSecond) {}

void GeneratedSource::Fill(Frame& frame, uint32_t meanBytes) const {
    std::mt19937 random(m_seed ^ static_cast<uint32_t>(frame.pts / 1000) ^ frame.channel << 24 ^
                        frame.type << 29);
    frame.payload.resize(meanBytes / 2 + Below(random, meanBytes + 1));
    for (uint8_t& byte : frame.payload) {
        byte = static_cast<uint8_t>(random());
    }
}

bool GeneratedSource::Next(Frame& frame) {
    const int64_t video =
        m_start + static_cast<int64_t>(m_videoFrames) * kMicrosPerSecond / m_camera.framesPerSecond;
    const int64_t audio = m_camera.audioFrameBytes == 0 ? m_end
                                                        : m_start + static_cast<int64_t>(m_audioFrames) *
                                                                        m_camera.audioFrameMillis * 1000;
    frame.channel = m_camera.channel;
    if (audio < video) {
        frame.pts = audio;
        frame.type = kAudio;
        frame.payload.assign(m_camera.audioFrameBytes, static_cast<uint8_t>(m_audioFrames));
        ++m_audioFrames;
    } else {
        frame.pts = video;
        frame.type = m_videoFrames % m_camera.gop == 0 ? kVideoI : kVideoP;
        Fill(frame, frame.type == kVideoI ? m_camera.iFrameBytes : m_camera.pFrameBytes);
        ++m_videoFrames;
    }
    return frame.pts < m_end;
}

} // namespace sample_recorder
