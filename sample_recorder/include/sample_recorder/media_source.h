#ifndef SAMPLE_RECORDER_MEDIA_SOURCE_H
#define SAMPLE_RECORDER_MEDIA_SOURCE_H

/// @file media_source.h
/// Frames from real video and audio files.

#include <cstdint>
#include <memory>
#include <string>

#include "disk_format.h"
#include "sample_recorder/frame.h"

namespace sample_recorder {

/// The sample recorder's own codes in ChnProp_t.
enum VideoCode : uint8_t { kVideoNone = 0, kVideoH264 = 1, kVideoH265 = 2 };
enum AudioCode : uint8_t { kAudioNone = 0, kAudioALaw = 1, kAudioMuLaw = 2, kAudioPcm16 = 3 };
enum ResolutionCode : uint8_t { kOtherSize = 0, kCif = 1, k360p = 2, kD1 = 3, k720p = 4, k1080p = 5 };

/// The span of time that a file is recorded over. A file that is shorter is repeated, with time moving on.
struct RecordingSpan {
    uint32_t start = 0;   ///< first second
    uint32_t seconds = 0; ///< length
};

/// Frames of an H.264 or H.265 elementary stream, as a camera delivers them: the stream cut into access
/// units, not a byte changed. Also enters what the stream is into the channel's properties.
/// @param framesPerSecond the camera's rate; elementary streams have no times
std::unique_ptr<FrameSource> OpenVideo(const std::string& path, uint32_t channel, uint32_t framesPerSecond,
                                       const RecordingSpan& span, ChnProp_t& properties);

/// Frames of a WAV file of A-law, mu-law or 16-bit PCM audio, one channel. Also enters what it is into the
/// channel's properties.
/// @param frameBytes bytes an audio frame
std::unique_ptr<FrameSource> OpenAudio(const std::string& path, uint32_t channel, uint32_t frameBytes,
                                       const RecordingSpan& span, ChnProp_t& properties);

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_MEDIA_SOURCE_H
