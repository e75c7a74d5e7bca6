#ifndef SAMPLE_RECORDER_GENERATED_SOURCE_H
#define SAMPLE_RECORDER_GENERATED_SOURCE_H

#include "sample_recorder/frame.h"

namespace sample_recorder {

/// A camera that does not exist.
struct GeneratedCamera {
    uint32_t channel = 0;
    uint32_t framesPerSecond = 10;
    uint32_t gop = 10;              ///< frames from one I-frame to the next
    uint32_t iFrameBytes = 2000;    ///< mean payload of an I-frame
    uint32_t pFrameBytes = 400;     ///< mean payload of the others
    uint32_t audioFrameBytes = 0;   ///< payload of an audio frame; 0: no audio
    uint32_t audioFrameMillis = 40; ///< from one audio frame to the next
};

/// Frames made from a seed: the same seed, camera and start give the same bytes on every host.
class GeneratedSource : public FrameSource {
public:
    /// @param start, seconds first second and length of the recording
    GeneratedSource(const GeneratedCamera& camera, uint32_t seed, uint32_t start, uint32_t seconds);
    bool Next(Frame& frame) override;

private:
    void Fill(Frame& frame, uint32_t meanBytes) const;

    GeneratedCamera m_camera;
    uint32_t m_seed;
    int64_t m_start;
    int64_t m_end;
    uint64_t m_videoFrames = 0;
    uint64_t m_audioFrames = 0;
};

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_GENERATED_SOURCE_H
