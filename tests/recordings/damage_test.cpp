// Every field of every head, tail, index entry and frame head of small disks, damaged one at a time: the frames stay the
// same, or a problem names the block and is a loss.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string_view>

#include "damage/format_fields.h"
#include "recordings/error.h"
#include "recordings/health.h"
#include "recordings/range_frames.h"
#include "recordings/recordings_fixture.h"
#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"

namespace test_support {

namespace {

using namespace sample_recorder;
using recordings::BlockList;
using recordings::Problem;
using recordings::Severity;

constexpr uint32_t kStart = 1795183200; // 2026-11-20 14:00:00 UTC

/// Every nth field is damaged: all of them, but where the sanitizers watch a part, since other builds take all.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kStride = 10;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr size_t kStride = 10;
#else
constexpr size_t kStride = 1;
#endif
#else
constexpr size_t kStride = 1;
#endif

/// A disk in memory, whose bytes a test changes.
class MemorySource : public recordings::Source {
public:
    explicit MemorySource(const PartitionImage& image)
        : m_bytes(static_cast<size_t>(image.BlockStart(image.BlockCount()))) {
        image.Read(0, m_bytes.data(), m_bytes.size());
    }

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_bytes.size(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        const uint64_t end = std::min<uint64_t>(m_bytes.size(), offset + size);
        const size_t got = offset < end ? static_cast<size_t>(end - offset) : 0;
        std::memcpy(data, m_bytes.data() + std::min<uint64_t>(offset, m_bytes.size()), got);
        return got;
    }
    uint8_t* At(uint64_t offset) { return m_bytes.data() + offset; }

private:
    std::string m_name = "memory";
    std::vector<uint8_t> m_bytes;
};

/// A view of a source that a test keeps.
class View : public recordings::Source {
public:
    explicit View(const recordings::Source& source) : m_source(source) {}
    const std::string& Name() const override { return m_source.Name(); }
    uint64_t Size() const override { return m_source.Size(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        return m_source.Read(offset, data, size);
    }

private:
    const recordings::Source& m_source;
};

/// A frame that was delivered.
struct Delivered {
    uint32_t block;
    uint32_t channel;
    uint32_t type;
    int64_t time;
    size_t digest;
    bool operator==(const Delivered& other) const {
        return std::tie(block, channel, type, time, digest) ==
               std::tie(other.block, other.channel, other.type, other.time, other.digest);
    }
};

struct Reading {
    std::vector<Delivered> frames;
    std::vector<Problem> problems;

    bool NamesAsLost(uint32_t block) const {
        return std::any_of(problems.begin(), problems.end(), [block](const Problem& problem) {
            const bool here = problem.block == block || problem.blockAfter == block;
            return problem.severity == Severity::Loss && here;
        });
    }
};

Reading ReadAll(const recordings::Source& source) {
    Reading reading;
    recordings::ProblemList problems;
    const recordings::Disk disk(std::make_unique<View>(source));
    const BlockList blocks = BlockList::Read(disk);
    recordings::RangeFrames frames(disk, blocks, {}, problems.Sink());
    for (recordings::Frame frame; frames.Next(frame);) {
        const std::string_view payload(reinterpret_cast<const char*>(frame.data), frame.size);
        reading.frames.push_back(
            {frame.block, frame.channel, frame.type, frame.time, std::hash<std::string_view>()(payload)});
    }
    reading.problems = problems.All();
    return reading;
}

/// Whether a frame is the very first or the very last one of the block that was never closed.
enum class BlockEnd : uint8_t { None, First, Last };

/// A field of a block.
struct Place {
    FieldPlace field;
    uint32_t block;
    bool ofOpen = false; ///< in a frame of the block that was never closed
    bool edge = false;   ///< in one of the first or last frames of the block that was never closed
    BlockEnd end = BlockEnd::None;
};

/// A ring of six blocks that has wrapped: two cameras, the first with audio, and events; block 5 was never closed, and
/// holds frames of the ring's first turn after its own.
class DamagedRing : public ::testing::TestWithParam<uint32_t> {
protected:
    static constexpr uint32_t kBlocks = 6;
    static constexpr uint32_t kOpen = 3;
    static constexpr size_t kEdgeFrames = 3;

    DamagedRing() : m_image(MakeImage(m_dir.File("disk"))) {
        Record();
        m_source = std::make_unique<MemorySource>(m_image);
        for (uint32_t block = 0; block < kBlocks; ++block) {
            AddPlaces(block);
        }
    }

    static PartitionImage MakeImage(const std::string& path) {
        Format format;
        format.fmtVersion = GetParam();
        format.blockCount = kBlocks;
        format.blockSize = 0x6000;
        return PartitionImage::Create(path, format);
    }

    /// Records until block 3 is written for the second time, and cuts the power in it.
    void Record() {
        RecorderSettings settings;
        settings.channels = 3;
        settings.properties[0].AType = 1;
        settings.properties[0].Sample = 8000;
        Recorder recorder(m_image, settings);
        MergedSource source;
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{0, 5, 5, 900, 250, 64, 200}, 1, kStart, 600));
        source.Add(
            std::make_unique<GeneratedSource>(GeneratedCamera{1, 5, 5, 700, 200, 0, 40}, 2, kStart, 600));
        uint32_t count = 0;
        uint32_t inLast = 0;
        for (Frame frame; inLast < 25 && source.Next(frame);) {
            recorder.Write(frame);
            if (++count % 20 == 7) {
                recorder.WriteEvent(frame.pts, uint64_t{1} << (count % 5), frame.channel);
            }
            inLast += recorder.BlocksOpened() == kBlocks + kOpen + 1 ? 1u : 0u;
        }
        ASSERT_EQ(recorder.CurrentBlock(), kOpen);
        recorder.CutPower();
    }

    void Add(const FormatStructure& structure, uint64_t offset, uint32_t block) {
        std::vector<FieldPlace> fields;
        AppendPlaces(structure, offset, " of block " + std::to_string(block), fields);
        for (const FieldPlace& field : fields) {
            m_places.push_back({field, block, false, false, BlockEnd::None});
        }
    }

    void AddPlaces(uint32_t block) {
        Add(kBlockHeadFields, m_image.HeadOffset(block), block);
        Add(kBlockTailFields, m_image.TailOffset(block), block);
        if (m_image.Extended()) {
            Add(kBlkExtHeadFields, m_image.ExtHeadOffset(block), block);
            Add(kBlockTailExFields, m_image.TailExOffset(block), block);
        }
        AddFrames(block);
        if (block != kOpen) {
            AddIndex(block);
        }
    }

    void AddFrames(uint32_t block) {
        std::vector<size_t> begins; // of each frame's fields
        uint32_t pos = 0;
        for (;;) {
            const auto head = m_image.Get<FrameHead_t>(m_image.FrameOffset(block, pos));
            const bool ownTurn = block != kOpen || m_frames == 0 || head.pts >= m_newest;
            if (head.sync != BLOCK_MAGIC || !ownTurn ||
                pos + sizeof head + head.len > m_image.FrameAreaSize()) {
                break;
            }
            begins.push_back(m_places.size());
            Add(kFrameHeadFields, m_image.FrameOffset(block, pos), block);
            m_newest = block == kOpen ? head.pts : 0;
            m_frames = block == kOpen ? m_frames + 1 : 0;
            pos += static_cast<uint32_t>(sizeof head) + head.len;
        }
        m_frames = 0;
        begins.push_back(m_places.size());
        for (size_t i = 0; block == kOpen && i + 1 < begins.size(); ++i) {
            const bool edge = i < kEdgeFrames || i + 1 + kEdgeFrames >= begins.size();
            for (size_t place = begins[i]; place < begins[i + 1]; ++place) {
                m_places[place].ofOpen = true;
                m_places[place].edge = edge;
                m_places[place].end = i == 0                   ? BlockEnd::First
                                      : i + 2 == begins.size() ? BlockEnd::Last
                                                               : BlockEnd::None;
            }
        }
    }

    void AddIndex(uint32_t block) {
        const auto index = m_image.Get<BlkIndexHead_t>(m_image.IndexOffset(block));
        Add(kBlkIndexHeadFields, m_image.IndexOffset(block), block);
        uint64_t at = m_image.IndexOffset(block) + sizeof index;
        const auto addTable = [&](const FormatStructure& fields, uint32_t count, size_t size) {
            for (uint32_t i = 0; i < count; ++i, at += size) {
                Add(fields, at, block);
            }
        };
        for (const uint32_t count : index.iframeCount) {
            addTable(kIFrameItemFields, count, sizeof(IFrameItem_t));
        }
        for (const uint32_t count : index.recSegCount) {
            addTable(kRecSegItemFields, count, sizeof(RecSegItem_t));
        }
        addTable(kEventIndexItemFields, index.eventCount, sizeof(EventIndexItem_t));
    }

    /// The values that a field is set to: extremes, neighbours, and one changed bit.
    static std::vector<std::vector<uint8_t>> Values(const std::vector<uint8_t>& held, size_t width) {
        std::vector<std::vector<uint8_t>> values = HostileValues(held, width);
        if (held.size() == width) {
            for (const size_t bit : {2u, 7u, 9u, 12u, 17u, 22u, 27u, 30u, 36u, 43u, 50u, 60u}) {
                if (bit / 8 < held.size()) {
                    values.push_back(held);
                    values.back()[bit / 8] = static_cast<uint8_t>(values.back()[bit / 8] ^ 1u << bit % 8);
                }
            }
        }
        return values;
    }

    TempDir m_dir;
    PartitionImage m_image;
    std::unique_ptr<MemorySource> m_source;
    std::vector<Place> m_places;
    uint32_t m_frames = 0;
    int64_t m_newest = 0;
};

/// What looks like a sound disk.
/// - A time stamp that stays near those of the frames around it: nothing repeats it, and the streams of one recording may be
///   a second apart.
/// - In the block that was never closed, at its two ends: the channel, the length, and which of the media types it is. There
///   is no index, and no frame on the other side whose pace or place would tell: a camera may begin later than another, or
///   stop before, and the last frame may be of any size.
/// - Anywhere in that block, a picture that is marked as a key frame: a camera may be told to send one out of turn. Most
///   are told by their size.
/// - At its ends, the time of the first frame by less than half a minute, as heads are not written at once with them; and
///   any time of the last one that a clock has: it may have been set then.
bool CannotBeTold(const Place& place, const std::vector<uint8_t>& held, const std::vector<uint8_t>& value) {
    const auto is = [&](const char* field) {
        return place.field.name.rfind("FrameHead_t." + std::string(field), 0) == 0;
    };
    int64_t before = 0;
    int64_t after = 0;
    std::memcpy(&before, held.data(), std::min(held.size(), sizeof before));
    std::memcpy(&after, value.data(), std::min(value.size(), sizeof after));
    if (is("pts")) {
        constexpr int64_t kMicros = 1000000;
        return std::abs(before - after) < kMicros ||
               (place.end == BlockEnd::First && before - after < 30 * kMicros) ||
               (place.end == BlockEnd::Last && 0 <= after && after / kMicros <= UINT32_MAX);
    }
    const bool becomesKey = is("type") && before == 0 && after == 1;
    return (place.ofOpen && becomesKey) ||
           (place.edge && (is("chn") || is("len") || (is("type") && before <= 2 && after <= 2)));
}

TEST_P(DamagedRing, HasNoProblemWhileItIsSound) {
    const Reading sound = ReadAll(*m_source);
    EXPECT_GT(sound.frames.size(), 200u);
    for (const Problem& problem : sound.problems) {
        EXPECT_NE(problem.severity, Severity::Loss) << Brief(problem);
    }
}

TEST_P(DamagedRing, LosesNothingInSilence) {
    const Reading sound = ReadAll(*m_source);
    size_t cases = 0;
    std::map<std::string, size_t> silent;
    std::map<std::string, std::string> examples;
    for (size_t i = 0; i < m_places.size(); i += kStride) {
        const Place& place = m_places[i];
        uint8_t* const bytes = m_source->At(place.field.offset);
        const std::vector<uint8_t> held(bytes, bytes + place.field.bytes);
        for (const std::vector<uint8_t>& value : Values(held, place.field.numberWidth)) {
            std::copy(value.begin(), value.end(), bytes);
            const Reading reading = ReadAll(*m_source);
            ++cases;
            const bool same = reading.frames == sound.frames;
            if (!same && !reading.NamesAsLost(place.block) && !CannotBeTold(place, held, value)) {
                const std::string kind = place.field.name.substr(0, place.field.name.find(' '));
                ++silent[kind];
                examples[kind] = place.field.name + " to " + ::testing::PrintToString(value) + " from " +
                                 ::testing::PrintToString(held) + ": " +
                                 std::to_string(reading.frames.size()) + " frames of " +
                                 std::to_string(sound.frames.size());
            }
        }
        std::copy(held.begin(), held.end(), bytes);
    }
    for (const auto& [kind, count] : silent) {
        ADD_FAILURE() << kind << ": " << count << " in silence, like " << examples[kind];
    }
    EXPECT_GE(cases * kStride, 5000u);
    RecordProperty("cases", static_cast<int>(cases));
}

// ---- what a check finds of the same damage

/// What a check finds, each as a line; of a disk that cannot be opened the reason.
std::vector<std::string> CheckAll(const recordings::Source& source) {
    std::vector<std::string> lines;
    try {
        const recordings::Disk disk(std::make_unique<View>(source));
        recordings::CheckRequest request;
        request.full = true;
        recordings::CheckHealth(disk, BlockList::Read(disk), request,
                                [&](const recordings::Finding& finding) {
                                    lines.push_back(Brief(finding.problem) + " " + finding.fields);
                                });
    } catch (const recordings::Error& error) {
        lines.emplace_back(error.what());
    }
    return lines;
}

/// The same rings, with what lies before them, and with what heads say of the channels.
class CheckedRing : public DamagedRing {
protected:
    static constexpr uint32_t kNoBlock = 0xFFFFFFFF;

    CheckedRing() {
        for (uint32_t block = 0; block < kBlocks; ++block) {
            const uint64_t properties = m_image.HeadOffset(block) + offsetof(BlockHead_t, prop);
            for (const uint32_t channel : {0u, 31u}) {
                Add(kChnPropFields, properties + channel * sizeof(ChnProp_t), block);
            }
        }
        Add(kPartHeadFields, 0, kNoBlock);
        const PartHead_t& head = m_image.Head();
        for (const uint32_t table : {head.BBTabOffs, head.BBTabBakOffs}) {
            m_places.push_back({{"bad-block table", table, 1, 1}, kNoBlock});
        }
        for (const uint32_t table : {head.BBCounterOffs, head.BBCounterBakOffs}) {
            for (uint32_t block = 0; block < kBlocks; ++block) {
                m_places.push_back({{"suspect table", table + block, 1, 1}, kNoBlock});
            }
        }
    }

    static bool HasAny(const std::string& name, const std::vector<const char*>& parts) {
        return std::any_of(parts.begin(), parts.end(),
                           [&](const char* part) { return name.find(part) != std::string::npos; });
    }

    static int64_t Apart(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
        uint32_t first = 0;
        uint32_t second = 0;
        std::memcpy(&first, a.data(), std::min(sizeof first, a.size()));
        std::memcpy(&second, b.data(), std::min(sizeof second, b.size()));
        return std::abs(int64_t{first} - int64_t{second});
    }

    /// Whether a field of a frame's head is one of an event's.
    bool OfEvent(const Place& place, const char* name, size_t offset) {
        if (place.field.name.rfind(name, 0) != 0) {
            return false;
        }
        FrameHead_t head = {};
        std::memcpy(&head, m_source->At(place.field.offset - offset), sizeof head);
        return head.type == sample_recorder::kEvent;
    }

    /// What no check can find, since nothing on the disk repeats it.
    bool CannotBeFound(const Place& place, const std::vector<uint8_t>& held,
                       const std::vector<uint8_t>& value) {
        const std::string& name = place.field.name;
        // Without a use, or of a use that readers do not know.
        if (HasAny(name, {"Reserved", "CloseState", "ExtPara", "Description", "Encrypt", "CipherCode"})) {
            return true;
        }
        // Tables may lie anywhere before the ring, the bits after the last block mean nothing, and of layouts one is 1.
        uint32_t number = 0;
        std::memcpy(&number, value.data(), std::min(sizeof number, value.size()));
        if (name.rfind("PartHead_t.BB", 0) == 0) {
            const bool none = number == 0 && name.find("Bak") != std::string::npos;
            return none || (number >= sizeof(PartHead_t) && uint64_t{number} + kBlocks <= BLOCK_BASE_OFFSET);
        }
        if (name.rfind("PartHead_t.FmtVersion", 0) == 0) {
            return (number == 1) == m_image.Extended();
        }
        if (name == "bad-block table") {
            return (number & ((1u << kBlocks) - 1)) == 0;
        }
        // The tail of the ring's previous turn.
        if (place.block == kOpen && HasAny(name, {"BlockTail_t", "BlockTailEx_t"})) {
            return true;
        }
        // Settings at the seam of the ring: they may have been changed.
        const bool setting =
            HasAny(name, {"ChnProp_t", "pre_RecTime", "AlmDelayTime", "Vehicle", "media_chn_bitmap"});
        if (setting && (place.block == kOpen || place.block == kOpen + 1)) {
            return true;
        }
        if (HasAny(name, {"RecTime", "StartTime", "EndTime"})) {
            return Apart(held, value) <= 5; // streams do not begin and end together
        }
        if (name.rfind("RecSegItem_t.epos", 0) == 0) {
            return Apart(held, value) == 4; // some recorders count so
        }
        // An event's channel stands nowhere else, and where there is no index its type and time do not either.
        const bool open = place.block == kOpen;
        return OfEvent(place, "FrameHead_t.chn", offsetof(FrameHead_t, chn)) ||
               (open && OfEvent(place, "FrameHead_t.type", offsetof(FrameHead_t, type))) ||
               (open && OfEvent(place, "FrameHead_t.pts", offsetof(FrameHead_t, pts))) ||
               CannotBeTold(place, held, value);
    }
};

TEST_P(CheckedRing, HasNoFindingWhileItIsSound) {
    EXPECT_EQ(CheckAll(*m_source), std::vector<std::string>());
}

TEST_P(CheckedRing, EachDamageIsFound) {
    std::map<std::string, size_t> silent;
    std::map<std::string, std::string> examples;
    for (size_t i = 0; i < m_places.size(); i += kStride) {
        const Place& place = m_places[i];
        uint8_t* const bytes = m_source->At(place.field.offset);
        const std::vector<uint8_t> held(bytes, bytes + place.field.bytes);
        for (const std::vector<uint8_t>& value : Values(held, place.field.numberWidth)) {
            if (CannotBeFound(place, held, value)) {
                continue;
            }
            std::copy(value.begin(), value.end(), bytes);
            if (CheckAll(*m_source).empty()) {
                ++silent[place.field.name];
                examples[place.field.name] =
                    ::testing::PrintToString(value) + " from " + ::testing::PrintToString(held);
            }
            std::copy(held.begin(), held.end(), bytes);
        }
    }
    for (const auto& [name, count] : silent) {
        ADD_FAILURE() << name << ": " << count << " not found, like " << examples[name];
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, CheckedRing, ::testing::Values(0u, 1u),
                         [](const auto& layout) { return layout.param == 1 ? "Extended" : "Normal"; });

INSTANTIATE_TEST_SUITE_P(Layouts, DamagedRing, ::testing::Values(0u, 1u),
                         [](const auto& layout) { return layout.param == 1 ? "Extended" : "Normal"; });

} // namespace

} // namespace test_support
