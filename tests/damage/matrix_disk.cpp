#include "damage/matrix_disk.h"

#include <set>
#include <utility>

namespace test_support {

namespace {

using namespace sample_recorder;

constexpr uint32_t kFirstStart = 1700000000;
constexpr uint32_t kSecondsFromBlockToBlock = 40000; ///< the blocks are days apart
constexpr uint32_t kSecondsABlock = 8;
constexpr uint32_t kOtherData = 5; ///< a frame type that is neither media nor event

Format MatrixFormat(uint32_t fmtVersion) {
    Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = MatrixDisk::kBlocks;
    format.blockSize = MatrixDisk::kBlockSize;
    format.encryptMap = 0x1;
    format.password = "secret";
    return format;
}

Frame MakeFrame(uint32_t time, uint32_t type, uint32_t channel, size_t bytes) {
    Frame frame;
    frame.pts = int64_t{time} * 1000000;
    frame.type = type;
    frame.channel = channel;
    frame.payload.assign(bytes, static_cast<uint8_t>(time));
    return frame;
}

void RecordSeconds(Recorder& recorder, uint32_t start, uint32_t seconds) {
    for (uint32_t i = 0; i < seconds; ++i) {
        const uint32_t time = start + i;
        const bool key = i % 4 == 0;
        recorder.Write(MakeFrame(time, key ? kVideoI : kVideoP, 0, key ? 60 : 20));
        recorder.Write(MakeFrame(time, key ? kVideoI : kVideoP, 31, key ? 50 : 10));
        if (i % 3 == 0) {
            recorder.Write(MakeFrame(time, kAudio, 0, 16));
        }
        if (i % 4 == 1) {
            recorder.WriteEvent(int64_t{time} * 1000000, uint64_t{1} << i, 0);
        }
        if (i == 2) {
            recorder.Write(MakeFrame(time, kOtherData, 31, 8));
        }
    }
}

void RecordRing(PartitionImage& image) {
    image.SetBad(MatrixDisk::kBad);
    RecorderSettings settings;
    settings.channels = 0x80000001;
    settings.extensionParameter = 0x80000001;
    settings.preRecordSeconds = 1;
    settings.alarmDelaySeconds = 2;
    for (ChnProp_t& properties : settings.properties) {
        properties = {2000, 1, 25, 3, 50, 8000, 16, 320, 2, 1, {}};
    }
    Recorder recorder(image, settings);
    uint32_t start = kFirstStart;
    for (uint32_t turn = 0; turn < 4; ++turn) {
        RecordSeconds(recorder, start, kSecondsABlock);
        recorder.PowerOff();
        start += kSecondsFromBlockToBlock;
    }
    RecordSeconds(recorder, start, kSecondsABlock / 2);
    recorder.CutPower();
}

} // namespace

MatrixDisk::MatrixDisk(uint32_t fmtVersion)
    : m_image(PartitionImage::Create(m_dir.File("disk"), MatrixFormat(fmtVersion))) {
    RecordRing(m_image);
    Add(kPartHeadFields, 0, sizeof(PartHead_t), "");
    AddTables();
    for (uint32_t block = 0; block < kBlocks; ++block) {
        AddBlock(block);
    }
}

std::vector<uint64_t> MatrixDisk::FrameHeads(uint32_t block) const {
    std::vector<uint64_t> heads;
    uint64_t pos = 0; // which no forged length makes wrap
    while (pos + sizeof(FrameHead_t) <= m_image.FrameAreaSize()) {
        const uint64_t offset = m_image.FrameOffset(block, 0) + pos;
        const auto head = m_image.Get<FrameHead_t>(offset);
        if (head.sync != BLOCK_MAGIC && head.sync != 0xFFFFFFFF) {
            break;
        }
        heads.push_back(offset);
        if (head.sync != BLOCK_MAGIC) {
            break;
        }
        pos += sizeof head + uint64_t{head.len};
    }
    return heads;
}

void MatrixDisk::Add(const FormatStructure& fields, uint64_t offset, uint64_t size,
                     const std::string& where) {
    m_structures.push_back({offset, size});
    AppendPlaces(fields, offset, where, m_fields);
}

void MatrixDisk::AddTables() {
    const PartHead_t& head = m_image.Head();
    const std::pair<uint32_t, uint32_t> tables[] = {{head.BBTabOffs, 1}, {head.BBCounterOffs, kBlocks}};
    for (const auto& [offset, bytes] : tables) {
        m_structures.push_back({offset, bytes});
        for (uint32_t i = 0; i < bytes; ++i) {
            m_fields.push_back({"table byte " + std::to_string(offset + i), uint64_t{offset} + i, 1, 1});
        }
    }
}

void MatrixDisk::AddBlock(uint32_t block) {
    const std::string where = " of block " + std::to_string(block);
    AddHead(block, where);
    if (block != kBad) {
        AddFrames(block, where);
        AddIndex(block, where);
        AddTails(block, where);
    }
}

void MatrixDisk::AddHead(uint32_t block, const std::string& where) {
    Add(kBlockHeadFields, m_image.HeadOffset(block), sizeof(BlockHead_t), where);
    for (uint32_t chn = 0; chn < 32; ++chn) {
        if (block == kMiddle || (block == kOldest && chn == 31)) {
            AppendPlaces(kChnPropFields,
                         m_image.HeadOffset(block) + offsetof(BlockHead_t, prop) + chn * sizeof(ChnProp_t),
                         " " + std::to_string(chn) + where, m_fields);
        }
    }
    if (m_image.Extended()) {
        Add(kBlkExtHeadFields, m_image.ExtHeadOffset(block), sizeof(BlkExtHead_t), where);
    }
}

void MatrixDisk::AddFrames(uint32_t block, const std::string& where) {
    // The first frame of each kind, and the last: the others are read as these are.
    std::set<std::pair<uint32_t, uint32_t>> kinds;
    const std::vector<uint64_t> heads = FrameHeads(block);
    for (const uint64_t offset : heads) {
        const auto head = m_image.Get<FrameHead_t>(offset);
        const std::string name = " at " + std::to_string(offset) + where;
        m_structures.push_back({offset, sizeof head});
        if (kinds.insert({head.chn, head.type}).second || offset == heads.back()) {
            AppendPlaces(kFrameHeadFields, offset, name, m_fields);
        }
        if (head.type == kEvent) {
            Add(kEventHeadFields, offset + sizeof head, sizeof(EventHead_t), name);
        }
    }
}

void MatrixDisk::AddIndex(uint32_t block, const std::string& where) {
    const uint64_t start = m_image.IndexOffset(block);
    const auto index = m_image.Get<BlkIndexHead_t>(start);
    std::vector<FieldPlace> counts;
    AppendPlaces(kBlkIndexHeadFields, start, where, counts);
    for (const FieldPlace& count : counts) {
        if (block == kMiddle || m_image.Get<uint32_t>(count.offset) != 0) {
            m_fields.push_back(count);
        }
    }
    m_structures.push_back({start, sizeof index});
    uint64_t offset = start + sizeof index;
    const auto addTable = [&](const FormatStructure& fields, uint32_t entries, size_t size) {
        for (uint32_t i = 0; i < entries; ++i, offset += size) {
            Add(fields, offset, size, " at " + std::to_string(offset) + where);
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

void MatrixDisk::AddTails(uint32_t block, const std::string& where) {
    Add(kBlockTailFields, m_image.TailOffset(block), sizeof(BlockTail_t), where);
    if (m_image.Extended()) {
        Add(kBlockTailExFields, m_image.TailExOffset(block), sizeof(BlockTailEx_t), where);
    }
}

} // namespace test_support
