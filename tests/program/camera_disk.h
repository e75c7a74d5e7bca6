#ifndef TESTS_PROGRAM_CAMERA_DISK_H
#define TESTS_PROGRAM_CAMERA_DISK_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>

#include "media/cameras.h"
#include "media/container_file.h"
#include "media/sink.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace test_support {

constexpr uint32_t kCameraStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// A disk whose cameras send H.264 that containers take: a key frame each second and a picture between, A-law on request.
/// Blocks of 64 KiB, normal layout.
class CameraDisk : public SearchFixture {
protected:
    using Json = nlohmann::json;

    CameraDisk() { media::QuietContainers(); }

    /// What a camera sends from one second after the start to another.
    struct Stretch {
        uint32_t channel = 0;
        uint32_t from = 0;
        uint32_t to = 0;
        bool audio = false;
        media_test::Bytes sets = media_test::kH264Sets;
    };

    void Begin(uint32_t channels = 3, uint32_t blocks = 32) {
        Format format;
        format.blockCount = blocks;
        MakeDisk(format);
        m_settings.channels = channels;
        m_settings.vehicleNum = "4711";
        m_settings.vehicleId = "bus";
        for (auto& properties : m_settings.properties) {
            properties.AType = 1;
            properties.Sample = 8000;
        }
        m_recorder.emplace(Disk(), m_settings);
    }

    /// Stretches that go on at the same time.
    void Record(const std::vector<Stretch>& stretches) {
        uint32_t first = UINT32_MAX;
        uint32_t last = 0;
        for (const Stretch& stretch : stretches) {
            first = std::min(first, stretch.from);
            last = std::max(last, stretch.to);
        }
        for (uint32_t second = first; second < last; ++second) {
            for (const int64_t part : {0, 500000}) {
                for (const Stretch& stretch : stretches) {
                    if (stretch.from <= second && second < stretch.to) {
                        RecordAt(stretch, Pts(kCameraStart + second) + part, part == 0);
                    }
                }
            }
        }
    }

    /// @param types of the event
    void Event(uint32_t second, uint64_t types, uint32_t channel = 0) {
        m_recorder->WriteEvent(Pts(kCameraStart + second), types, channel);
    }

    void End() { m_recorder->PowerOff(); }

    static std::string At(uint32_t second) { return "@" + std::to_string(kCameraStart + second); }

    std::vector<std::string> Command(std::vector<std::string> options) const {
        options.insert(options.begin(), {DISKACCESS_PROGRAM, "export", File("disk"), "--utc"});
        return options;
    }
    ProgramResult Export(const std::vector<std::string>& options, const ProgramSetting& setting = {}) const {
        return RunProgram(Command(options), setting);
    }

    /// A manifest, which keeps to its schema.
    Json Manifest(const std::string& name) const {
        const Json manifest = Json::parse(ReadFile(File(name)));
        EXPECT_EQ(SchemaErrors("manifest", manifest), "");
        return manifest;
    }

    media_test::ContainerFile Container(const std::string& name) const {
        return media_test::ContainerFile::Read(File(name));
    }

private:
    void RecordAt(const Stretch& stretch, int64_t time, bool key) {
        Write(key ? media_test::KeyFrame(stretch.channel, time, 3000, stretch.sets)
                  : media_test::Picture(stretch.channel, time, 500));
        if (stretch.audio) {
            Write(media_test::Sound(stretch.channel, time, 4000)); // half a second
        }
    }

    void Write(const media_test::OwnedFrame& owned) {
        sample_recorder::Frame frame;
        frame.pts = owned.frame.time;
        frame.type = owned.frame.type;
        frame.channel = owned.frame.channel;
        frame.payload = owned.payload;
        m_recorder->Write(frame);
    }

    sample_recorder::RecorderSettings m_settings;
    std::optional<sample_recorder::Recorder> m_recorder;
};

} // namespace test_support

#endif // TESTS_PROGRAM_CAMERA_DISK_H
