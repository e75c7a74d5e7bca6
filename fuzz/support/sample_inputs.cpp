#include "support/sample_inputs.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "media/cameras.h"
#include "sample_recorder/generated_source.h"
#include "sample_recorder/indexed_ring.h"
#include "sample_recorder/recorder.h"
#include "support/script.h"

namespace fuzzing {

namespace {

using namespace sample_recorder;

/// The smallest round size: half of it is the index area.
constexpr uint32_t kBlockSize = 0x2000;

/// A shorter run of zeros inside an extent costs less than the next extent's head.
constexpr size_t kShortestGap = 8;

/// Where the tables end, which lie after the partition head.
constexpr uint64_t kTablesEnd = 0x6000;

/// A name in the directory for temporary files that nobody else has; the file is removed in the end.
class TemporaryFile {
public:
    TemporaryFile()
        : m_path(std::filesystem::temp_directory_path() / ("sample-input-" + std::to_string(getpid()))) {
        std::filesystem::remove(m_path);
    }
    ~TemporaryFile() { std::filesystem::remove(m_path); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string Path() const { return m_path.string(); }

private:
    std::filesystem::path m_path;
};

/// What a payload holds decides nothing to the recorder's library, unless it is an event's.
void BlankPayloads(PartitionImage& image) {
    for (uint32_t block = 0; block < image.BlockCount(); ++block) {
        uint32_t pos = 0;
        while (pos + sizeof(FrameHead_t) <= image.FrameAreaSize()) {
            const auto head = image.Get<FrameHead_t>(image.FrameOffset(block, pos));
            if (head.sync != BLOCK_MAGIC) {
                break;
            }
            pos += static_cast<uint32_t>(sizeof head);
            if (head.type != kEvent) {
                const std::vector<uint8_t> blank(head.len);
                image.Write(image.FrameOffset(block, pos), blank.data(), blank.size());
            }
            pos += head.len;
        }
    }
}

void AddExtents(const PartitionImage& image, uint64_t start, uint64_t end, std::vector<Extent>& extents) {
    std::vector<uint8_t> bytes(static_cast<size_t>(end - start));
    image.Read(start, bytes.data(), bytes.size());
    const auto isSet = [](uint8_t byte) { return byte != 0; };
    auto from = std::find_if(bytes.begin(), bytes.end(), isSet);
    while (from != bytes.end()) {
        auto to = from + 1;
        for (auto next = to; next != bytes.end() && static_cast<size_t>(next - to) < kShortestGap; ++next) {
            to = *next != 0 ? next + 1 : to;
        }
        extents.push_back({static_cast<uint32_t>(start) + static_cast<uint32_t>(from - bytes.begin()),
                           std::vector<uint8_t>(from, to)});
        from = std::find_if(to, bytes.end(), isSet);
    }
}

} // namespace

PartitionInput Describe(const PartitionImage& image) {
    PartitionInput input;
    const uint64_t size = image.BlockStart(image.BlockCount());
    input.head.deviceSize = static_cast<uint32_t>(size);
    input.head.blockSize = image.BlockSize();
    input.head.blockCount = static_cast<uint8_t>(image.BlockCount());
    input.head.fmtVersion = image.Extended() ? 1 : 0;
    input.head.diskType = static_cast<uint8_t>(image.Access().DiskType);
    AddExtents(image, 0, kTablesEnd, input.extents);
    for (uint32_t block = 0; block < image.BlockCount(); ++block) {
        AddExtents(image, image.BlockStart(block), image.BlockStart(block + 1), input.extents);
    }
    return input;
}

namespace {

Format Small(uint32_t blocks, uint32_t fmtVersion) {
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = blocks;
    format.blockSize = kBlockSize;
    format.description.clear();
    return format;
}

RecorderSettings Settings() {
    RecorderSettings settings;
    settings.channels = 0x80000003;
    settings.preRecordSeconds = 2;
    settings.alarmDelaySeconds = 3;
    return settings;
}

/// Records @p seconds of two cameras, the last of the ring's channels among them.
void RecordJourney(Recorder& recorder, uint32_t start, uint32_t seconds) {
    MergedSource frames;
    for (const uint32_t chn : {0u, 1u, 31u}) {
        GeneratedCamera camera;
        camera.channel = chn;
        camera.framesPerSecond = 1;
        camera.gop = 2;
        camera.iFrameBytes = 220;
        camera.pFrameBytes = 90;
        camera.audioFrameBytes = chn == 1 ? 20 : 0;
        camera.audioFrameMillis = 3000;
        frames.Add(std::make_unique<GeneratedSource>(camera, 7, start, seconds));
    }
    Frame frame;
    uint32_t count = 0;
    while (frames.Next(frame)) {
        recorder.Write(frame);
        if (++count % 11 == 0) {
            recorder.WriteEvent(frame.pts, uint64_t{1} << count % 5, 0, count % 2 == 0);
        }
    }
}

/// Records a frame with the payload that it has.
void Write(Recorder& recorder, const media_test::OwnedFrame& owned) {
    Frame frame;
    frame.pts = owned.frame.time;
    frame.type = owned.frame.type;
    frame.channel = owned.frame.channel;
    frame.payload = owned.payload;
    recorder.Write(frame);
}

using Writer = std::function<void(PartitionImage&)>;

void OneShortJourney(PartitionImage& image) {
    Recorder recorder(image, Settings());
    RecordJourney(recorder, kSampleStart, 12);
    recorder.PowerOff();
}

void TwoJourneysRoundTheRing(PartitionImage& image) {
    Recorder recorder(image, Settings());
    RecordJourney(recorder, kSampleStart, 24);
    recorder.PowerOff();
    RecordJourney(recorder, kSampleStart + kNextJourney, 14);
    recorder.PowerOff();
}

void WornAndCutOff(PartitionImage& image) {
    image.SetBad(2);
    image.SetSuspect(3, 1);
    image.EditHead([](PartHead_t& head) {
        head.Encrypt = 1;
        head.EncryptMap = 2;
        head.CipherCode[0] = 'k';
    });
    Recorder recorder(image, Settings());
    RecordJourney(recorder, kSampleStart, 30);
    recorder.CutPower();
}

void CutOffAfterIndex(PartitionImage& image) {
    RecorderSettings settings = Settings();
    settings.extensionParameter = 0x2;
    Recorder recorder(image, settings);
    RecordJourney(recorder, kSampleStart, 12);
    recorder.CutPowerAfterIndex();
    RecordJourney(recorder, kSampleStart + kNextJourney, 6);
    recorder.CutPowerAfterIndex();
}

void CutOffWithoutEndMarks(PartitionImage& image) {
    RecorderSettings settings = Settings();
    settings.endMarker = false;
    Recorder recorder(image, settings);
    RecordJourney(recorder, kSampleStart, 6);
    recorder.CutPower();
}

void IndexesOfManyDays(PartitionImage& image) {
    IndexedRing ring;
    ring.newest = 2;
    ring.firstTime = kSampleStart;
    ring.secondsPerBlock = 40000;
    ring.channels = 2;
    ring.segmentsPerChannel = 2;
    ring.iframesPerChannel = 1;
    ring.eventsPerBlock = 2;
    WriteIndexedRing(image, ring);
}

/// Cameras of which the encoding can be told: one changes its pictures' size on the way, one has sound.
void EncodedPictures(PartitionImage& image) {
    RecorderSettings settings = Settings();
    settings.properties.at(1).AType = 1;
    settings.properties.at(1).Sample = 8000;
    Recorder recorder(image, settings);
    for (uint32_t second = 0; second < 16; ++second) {
        const int64_t time = (kSampleStart + second) * kMicrosPerSecond;
        const bool larger = second >= 10;
        Write(recorder, media_test::KeyFrame(0, time, 20,
                                             larger ? media_test::kLargerH264Sets : media_test::kH264Sets));
        Write(recorder, media_test::KeyFrame(1, time, 20, media_test::kH265Sets));
        Write(recorder, media_test::Sound(1, time, 16));
        Write(recorder, media_test::Picture(0, time + kMicrosPerSecond / 2, 20));
        if (second % 5 == 0) {
            recorder.WriteEvent(time, 1, 0);
        }
    }
    recorder.PowerOff();
}

/// How a partition is made.
struct Recipe {
    Format format;
    Writer write;
    bool keepsPayloads = false;
};

} // namespace

std::vector<PartitionInput> SampleInputs() {
    Format alternative = Small(3, 1);
    alternative.diskType = 52;
    const Recipe recipes[] = {
        {Small(3, 0), OneShortJourney},       {Small(4, 1), TwoJourneysRoundTheRing},
        {Small(5, 0), WornAndCutOff},         {Small(4, 1), CutOffAfterIndex},
        {Small(4, 0), [](auto&) {}},          {Small(3, 0), CutOffWithoutEndMarks},
        {Small(6, 0), IndexesOfManyDays},     {alternative, OneShortJourney},
        {Small(3, 0), EncodedPictures, true}, {Small(3, 1), EncodedPictures, true},
    };
    std::vector<PartitionInput> inputs;
    for (const Recipe& recipe : recipes) {
        const TemporaryFile file;
        PartitionImage image = PartitionImage::Create(file.Path(), recipe.format);
        recipe.write(image);
        if (!recipe.keepsPayloads) {
            BlankPayloads(image);
        }
        inputs.push_back(Describe(image));
    }
    return inputs;
}

} // namespace fuzzing
