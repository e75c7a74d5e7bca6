#ifndef TESTS_PROGRAM_ONE_CAMERA_H
#define TESTS_PROGRAM_ONE_CAMERA_H

#include <functional>
#include <string>
#include <vector>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"

namespace test_support {

struct OneCameraRecording {
    uint32_t blocks = 4;
    std::string description = Format().description;
    bool audio = false; ///< frames of 32 bytes, 25 a second
    uint32_t seconds = 10;
    ChnProp_t properties = {};                          ///< of the channel
    std::vector<uint32_t> events;                       ///< of type 1, seconds after the start
    std::function<void(sample_recorder::Frame&)> alter; ///< asked of each frame before it is written
};

/// One camera of channel 0, recorded from 2026-11-20 14:00:00 UTC on into the first of some blocks of 64 KiB, the last of
/// them closed. Five pictures a second, the first a key frame: bytes from a seed, that no decoder knows.
class OneCamera : public SearchFixture {
protected:
    void Record(const OneCameraRecording& recording = {}) {
        Format format;
        format.blockCount = recording.blocks;
        format.description = recording.description;
        MakeDisk(format);
        sample_recorder::RecorderSettings settings;
        settings.channels = 1;
        settings.properties[0] = recording.properties;
        sample_recorder::Recorder recorder(Disk(), settings);
        sample_recorder::GeneratedCamera camera = {0, 5, 5, 800, 200, recording.audio ? 32u : 0u, 40};
        sample_recorder::GeneratedSource source(camera, 1, 1795183200, recording.seconds);
        for (sample_recorder::Frame frame; source.Next(frame);) {
            if (recording.alter) {
                recording.alter(frame);
            }
            recorder.Write(frame);
        }
        for (const uint32_t second : recording.events) {
            recorder.WriteEvent((int64_t{1795183200} + second) * 1000000, 1, 0);
        }
        recorder.PowerOff();
    }
};

} // namespace test_support

#endif // TESTS_PROGRAM_ONE_CAMERA_H
