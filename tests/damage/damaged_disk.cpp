#include "damage/damaged_disk.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"

namespace test_support {

namespace {

using namespace sample_recorder;

constexpr uint32_t kBlocks = 12;
constexpr uint32_t kBlockSize = 0x4000;
constexpr uint32_t kStart = 1700000000;
constexpr uint64_t kTablesEnd = 0x6000;

Format SmallFormat(uint32_t fmtVersion) {
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = kBlocks;
    format.blockSize = kBlockSize;
    format.encrypt = 1;
    format.encryptMap = 0x2;
    format.password = "secret";
    return format;
}

/// A ring that has wrapped, with events, two journeys, one bad and one suspect block, its newest block open.
void RecordRing(PartitionImage& image) {
    image.SetBad(3);
    image.SetSuspect(7, 1);
    RecorderSettings settings;
    settings.channels = 0x80000007;
    Recorder recorder(image, settings);
    for (const uint32_t start : {kStart, kStart + 90000}) {
        MergedSource frames;
        for (const uint32_t chn : {0u, 1u, 2u, 31u}) {
            GeneratedCamera camera;
            camera.channel = chn;
            camera.framesPerSecond = 2;
            camera.gop = 3;
            camera.iFrameBytes = 700;
            camera.pFrameBytes = 200;
            frames.Add(std::make_unique<GeneratedSource>(camera, 5, start, 40));
        }
        Frame frame;
        uint32_t count = 0;
        while (frames.Next(frame)) {
            recorder.Write(frame);
            if (++count % 20 == 0) {
                recorder.WriteEvent(frame.pts, uint64_t{1} << count / 20 % 8, 0);
            }
        }
        recorder.PowerOff();
    }
    MergedSource last;
    last.Add(std::make_unique<GeneratedSource>(GeneratedCamera(), 6, kStart + 90100, 2));
    Frame frame;
    while (last.Next(frame)) {
        recorder.Write(frame);
    }
    recorder.CutPower();
}

} // namespace

DamagedDisk::DamagedDisk(uint32_t fmtVersion)
    : m_image(PartitionImage::Create(m_dir.File("disk"), SmallFormat(fmtVersion))) {
    RecordRing(m_image);
    m_size = m_end = m_image.BlockStart(kBlocks);
    m_structures = {
        {0, sizeof(PartHead_t)}, {m_image.Head().BBTabOffs, 2}, {m_image.Head().BBCounterOffs, kBlocks}};
    for (uint32_t block = 0; block < kBlocks; ++block) {
        m_structures.push_back({m_image.HeadOffset(block), 76});
        m_structures.push_back({m_image.IndexOffset(block), sizeof(BlkIndexHead_t)});
        m_structures.push_back({m_image.IndexOffset(block) + sizeof(BlkIndexHead_t), 600});
        m_structures.push_back({m_image.TailOffset(block), 32});
    }
    FindFrames();
    for (const auto& [start, end] :
         {std::pair<uint64_t, uint64_t>{0, kTablesEnd}, {BLOCK_BASE_OFFSET, m_size}}) {
        std::vector<uint8_t> bytes(static_cast<size_t>(end - start));
        m_image.Read(start, bytes.data(), bytes.size());
        m_pristine.emplace_back(start, std::move(bytes));
    }
}

void DamagedDisk::FindFrames() {
    for (uint32_t block = 0; block < kBlocks; ++block) {
        uint32_t pos = 0;
        while (pos + sizeof(FrameHead_t) <= m_image.FrameAreaSize()) {
            const uint64_t offset = m_image.FrameOffset(block, pos);
            const auto head = m_image.Get<FrameHead_t>(offset);
            if (head.sync != BLOCK_MAGIC) {
                break;
            }
            m_frames.push_back(offset);
            pos += static_cast<uint32_t>(sizeof head) + head.len;
        }
    }
}

void DamagedDisk::Restore() {
    if (m_end != m_size) {
        m_image.Truncate(m_size);
        m_end = m_size;
    }
    for (const auto& [start, bytes] : m_pristine) {
        m_image.Write(start, bytes.data(), bytes.size());
    }
    m_story.clear();
}

void DamagedDisk::Damage(uint32_t seed) {
    Restore();
    m_random.seed(seed);
    const uint32_t times = 1 + Random(4);
    for (uint32_t i = 0; i < times; ++i) {
        DamageOnce();
    }
}

void DamagedDisk::DamageWithFrames(uint32_t seed) {
    Damage(seed);
    for (uint32_t count = Random(4); count > 0; --count) {
        ForgeFrame();
    }
}

PartHead_t DamagedDisk::Head() const {
    return m_end < sizeof(PartHead_t) ? PartHead_t() : m_image.Get<PartHead_t>(0);
}

uint32_t DamagedDisk::Random(uint32_t below) {
    return static_cast<uint32_t>(m_random() % below);
}

uint32_t DamagedDisk::HostileValue(uint32_t old) {
    // Extremes, neighbours, and counts whose product with an entry's size wraps to little.
    const uint32_t values[] = {0,          1,          2,          0x7FFFFFFF, 0x80000000,
                               0xFFFFFFFE, 0xFFFFFFFF, old + 1,    old - 1,    old ^ 1,
                               ~old,       0x10000001, 0x0CCCCCCD, 0x0AAAAAAB, 0x20000000,
                               0x00010000, 0x0000FFFF, 0x00000200, old << 8,   old >> 8};
    const uint32_t choice = Random(24);
    return choice < std::size(values) ? values[choice] : static_cast<uint32_t>(m_random());
}

uint64_t DamagedDisk::StructureOffset() {
    // The few bytes before the blocks decide the most; they take a fifth of the hits.
    const Area& area = Random(5) == 0 ? m_structures[Random(3)]
                                      : m_structures[Random(static_cast<uint32_t>(m_structures.size()))];
    return area.start + Random(static_cast<uint32_t>(area.size));
}

void DamagedDisk::PutWord(uint64_t offset, uint32_t value) {
    if (offset + sizeof value <= m_end) {
        m_image.Put(offset, value);
        std::ostringstream story;
        story << "word at 0x" << std::hex << offset << " = 0x" << value << "; ";
        m_story += story.str();
    }
}

void DamagedDisk::FlipBits() {
    const uint32_t count = 1 + Random(8);
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t offset = StructureOffset();
        if (offset < m_end) {
            const auto byte = m_image.Get<uint8_t>(offset);
            m_image.Put(offset, static_cast<uint8_t>(byte ^ 1u << Random(8)));
            m_story += "bit flipped at " + std::to_string(offset) + "; ";
        }
    }
}

void DamagedDisk::FillArea() {
    const uint64_t start = StructureOffset();
    const uint64_t wanted = uint64_t{1} << Random(14);
    const uint64_t size = start < m_end ? std::min(wanted, m_end - start) : 0;
    const uint8_t fill = Random(2) == 0 ? 0x00 : 0xFF;
    const std::vector<uint8_t> bytes(static_cast<size_t>(size), fill);
    m_image.Write(start, bytes.data(), bytes.size());
    m_story +=
        std::to_string(size) + " bytes of " + std::to_string(fill) + " from " + std::to_string(start) + "; ";
}

void DamagedDisk::ForgeField() {
    const uint64_t offset = StructureOffset() & ~uint64_t{3};
    PutWord(offset, HostileValue(offset + 4 <= m_end ? m_image.Get<uint32_t>(offset) : 0));
}

void DamagedDisk::ForgeGeometry() {
    constexpr uint64_t kFields[] = {4, 8, 12, 16, 20}; // version, count, size, table offsets
    const uint64_t offset = kFields[Random(5)];
    PutWord(offset, HostileValue(offset + 4 <= m_end ? m_image.Get<uint32_t>(offset) : 0));
}

void DamagedDisk::ForgeCount() {
    const uint32_t block = Random(kBlocks);
    const uint64_t offset = m_image.IndexOffset(block) + 4 * uint64_t{Random(65)};
    PutWord(offset, HostileValue(offset + 4 <= m_end ? m_image.Get<uint32_t>(offset) : 0));
}

void DamagedDisk::CutOff() {
    const uint64_t place = Random(3) == 0 ? Random(static_cast<uint32_t>(m_size)) : StructureOffset();
    m_end = std::min(m_end, place);
    m_image.Truncate(m_end);
    m_story += "cut off at " + std::to_string(m_end) + "; ";
}

void DamagedDisk::CopyStructure() {
    std::vector<uint8_t> bytes(kBlockSize);
    const uint64_t from = m_image.BlockStart(Random(kBlocks));
    const uint64_t to = m_image.BlockStart(Random(kBlocks));
    if (std::max(from, to) + bytes.size() <= m_end) {
        m_image.Read(from, bytes.data(), bytes.size());
        m_image.Write(to, bytes.data(), bytes.size());
        m_story += "block at " + std::to_string(from) + " copied to " + std::to_string(to) + "; ";
    }
}

void DamagedDisk::ForgeFrame() {
    const uint64_t head = m_frames[Random(static_cast<uint32_t>(m_frames.size()))];
    if (Random(4) == 0) {
        // A length that leads back to earlier frames, if sums wrap.
        PutWord(head + offsetof(FrameHead_t, len), 0u - Random(2 * kBlockSize));
        return;
    }
    const uint64_t offset = head + 4 * uint64_t{Random(sizeof(FrameHead_t) / 4)};
    PutWord(offset, HostileValue(offset + 4 <= m_end ? m_image.Get<uint32_t>(offset) : 0));
}

void DamagedDisk::DamageOnce() {
    switch (Random(16)) {
    case 0:
    case 1:
    case 2:
        return FlipBits();
    case 3:
    case 4:
        return FillArea();
    case 5:
    case 6:
        return ForgeGeometry();
    case 7:
    case 8:
    case 9:
        return ForgeCount();
    case 10:
        return CutOff();
    case 11:
        return CopyStructure();
    default:
        return ForgeField();
    }
}

} // namespace test_support
