#ifndef TESTS_PROGRAM_EXPORT_FIXTURE_H
#define TESTS_PROGRAM_EXPORT_FIXTURE_H

#include <filesystem>
#include <nlohmann/json.hpp>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "search/search_fixture.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/schema.h"

namespace test_support {

using Json = nlohmann::json;

constexpr uint32_t kExportStart = 1795183200; // 2026-11-20 14:00:00 UTC
constexpr uint32_t kSectorSize = 512;         // what a worn disk fails to deliver at least

/// A frame as it was recorded.
struct Recorded {
    uint32_t block;
    uint32_t offset; ///< in the frame area
    sample_recorder::Frame frame;
    bool lost = false; ///< for the test to mark
};

/// Two cameras, the second with audio, recorded for a minute and a half on blocks of 64 KiB: some eight blocks,
/// the last one never closed. A key frame each second.
class ExportFixture : public SearchFixture {
protected:
    void Record(uint32_t seconds = 90, bool endMarker = true) {
        sample_recorder::Format format;
        format.fmtVersion = 1;
        format.blockCount = 16;
        MakeDisk(format);
        sample_recorder::RecorderSettings settings;
        settings.channels = 3;
        settings.endMarker = endMarker;
        settings.properties[1].AType = 1;
        settings.properties[1].Sample = 8000;
        sample_recorder::Recorder recorder(Disk(), settings);
        sample_recorder::MergedSource source;
        source.Add(std::make_unique<sample_recorder::GeneratedSource>(
            sample_recorder::GeneratedCamera{0, 10, 10, 1000, 300, 0, 40}, 1, kExportStart, seconds));
        source.Add(std::make_unique<sample_recorder::GeneratedSource>(
            sample_recorder::GeneratedCamera{1, 5, 5, 800, 200, 32, 40}, 2, kExportStart, seconds));
        sample_recorder::Frame frame;
        uint32_t block = 0;
        uint32_t offset = 0;
        while (source.Next(frame)) {
            recorder.Write(frame);
            offset = recorder.CurrentBlock() == block ? offset : 0;
            block = *recorder.CurrentBlock();
            m_recorded.push_back({block, offset, frame});
            offset += 24 + static_cast<uint32_t>(frame.payload.size());
        }
        recorder.CutPower();
    }

    /// Records one camera of channel 0, and closes the last block.
    void RecordOneCamera(const sample_recorder::GeneratedCamera& camera, uint32_t seconds) {
        sample_recorder::Format format;
        format.blockCount = 16;
        MakeDisk(format);
        sample_recorder::RecorderSettings settings;
        settings.channels = 1;
        sample_recorder::Recorder recorder(Disk(), settings);
        sample_recorder::GeneratedSource source(camera, 1, kExportStart, seconds);
        for (sample_recorder::Frame frame; source.Next(frame);) {
            recorder.Write(frame);
            m_recorded.push_back({*recorder.CurrentBlock(), 0, frame});
        }
        recorder.PowerOff();
    }

    static std::string At(uint32_t second) { return "@" + std::to_string(kExportStart + second); }

    ProgramResult Run(std::vector<std::string> options, const ProgramSetting& setting = {}) {
        options.insert(options.begin(),
                       {DISKACCESS_PROGRAM, "export", File("disk"), "--utc", "-o", File("out")});
        return RunProgram(options, setting);
    }

    /// A disk that does not deliver some bytes.
    ProgramSetting BadBytes(uint64_t from, uint64_t size) {
        ProgramSetting setting;
        setting.environment = {"LD_PRELOAD=" DEVICE_SHIM, "SHIM_BAD_FILE=" + File("disk"),
                               "SHIM_BAD_FROM=" + std::to_string(from),
                               "SHIM_BAD_TO=" + std::to_string(from + size)};
        return setting;
    }

    /// Exports elementary streams, and compares them with what was recorded and not lost.
    Json Compare(int exitCode, std::vector<std::string> options = {}, const ProgramSetting& setting = {}) {
        options.insert(options.begin(), {"--raw", "--force"});
        const ProgramResult result = Run(options, setting);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        m_messages = result.err;
        const Json manifest = Json::parse(ReadFile(File("out.json")));
        EXPECT_EQ(SchemaErrors("manifest", manifest), "");
        EXPECT_EQ(Bytes("out-ch0.video"), Expected(0, true));
        EXPECT_EQ(Bytes("out-ch1.video"), Expected(1, true));
        EXPECT_EQ(Bytes("out-ch1.alaw"), Expected(1, false));
        return manifest;
    }

    /// A digest would do; the length tells more when it fails.
    std::pair<size_t, size_t> Bytes(const std::string& name) {
        const std::string path = File(name);
        const std::string bytes = std::filesystem::exists(path) ? ReadFile(path) : "";
        return {bytes.size(), std::hash<std::string>()(bytes)};
    }

    std::pair<size_t, size_t> Expected(uint32_t channel, bool video) {
        std::string bytes;
        for (const Recorded& recorded : m_recorded) {
            const bool isVideo = recorded.frame.type <= sample_recorder::kVideoI;
            if (!recorded.lost && recorded.frame.channel == channel && isVideo == video) {
                bytes.append(recorded.frame.payload.begin(), recorded.frame.payload.end());
            }
        }
        return {bytes.size(), std::hash<std::string>()(bytes)};
    }

    /// The entry of the n-th frame of a block.
    size_t FrameOf(uint32_t block, size_t n) {
        size_t i = 0;
        while (m_recorded.at(i).block != block) {
            ++i;
        }
        return i + n;
    }

    /// Marks frames as lost, and with them all video after them up to the next key frame of each channel that the reader
    /// knows to have lost something, or cannot tell.
    void Lose(size_t first, size_t last, uint32_t channels = 3) {
        bool waiting[2] = {(channels & 1u) != 0, (channels & 2u) != 0};
        for (size_t i = first; i < m_recorded.size(); ++i) {
            Recorded& recorded = m_recorded[i];
            const bool video = recorded.frame.type <= sample_recorder::kVideoI;
            if (i > last && recorded.frame.type == sample_recorder::kVideoI) {
                waiting[recorded.frame.channel] = false;
            }
            recorded.lost = recorded.lost || i <= last || (video && waiting[recorded.frame.channel]);
        }
    }

    /// Where a frame ends in its block's frame area.
    uint32_t EndOf(size_t entry) const {
        return m_recorded[entry].offset + 24 + static_cast<uint32_t>(m_recorded[entry].frame.payload.size());
    }

    /// Marks as lost what lies in a sector of a block's frame area, as Lose().
    void LoseSector(uint32_t block, uint32_t sector) {
        size_t first = FrameOf(block, 0);
        while (EndOf(first) <= sector) {
            ++first;
        }
        size_t last = first;
        while (m_recorded[last + 1].offset < sector + kSectorSize) {
            ++last;
        }
        Lose(first, last);
    }

    uint64_t HeadOf(size_t entry) {
        return Disk().FrameOffset(m_recorded[entry].block, m_recorded[entry].offset);
    }

    std::vector<Recorded> m_recorded;
    std::string m_messages;
};

/// The kinds of the problems in a list of the manifest.
inline std::vector<std::string> KindsOf(const Json& problems) {
    std::vector<std::string> kinds;
    for (const Json& problem : problems) {
        kinds.push_back(problem["problem"]);
    }
    return kinds;
}

} // namespace test_support

#endif // TESTS_PROGRAM_EXPORT_FIXTURE_H
