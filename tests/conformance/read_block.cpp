// CReadBlock: every member on every block.

#include "conformance/choices.h"
#include "conformance/sections.h"

namespace conformance {

namespace {

class ReadBlockCalls {
public:
    ReadBlockCalls(const Disk& disk, const std::string& seed) : m_disk(disk), m_random(seed) {}

    void Call(uint32_t block, int rebuild) {
        PartAccess_t access = m_disk.access;
        const auto opened =
            Result(m_block.OpenBlock(block, m_disk.head.BlkSize, &access, m_disk.head.FmtVersion, rebuild),
                   "OpenBlock(%u, %d)", block, rebuild);
        GetInfo(block);
        if (opened == 0) {
            Result(m_block.OpenBlock(block, m_disk.head.BlkSize, &access, m_disk.head.FmtVersion, rebuild),
                   "OpenBlock again");
            ReadFrames(block % 4 == 0 ? 1000 : 10);
            for (int i = 0; i < 6; ++i) {
                Seek(block);
                Step();
                ReadFrames(6);
            }
            ReadAt();
            CheckHeads();
            Reindex(block);
        }
        Result(m_block.CloseBlock(), "CloseBlock");
    }

private:
    RecordItem_t Record(uint32_t block) {
        RecordItem_t record = {};
        record.chn = m_random.Of(kPlayChannels);
        record.recId = block << 16 | record.chn << 9 | (m_random.Below(4) == 0 ? m_random.Below(512) : 0);
        record.startTime = m_random.Below(3) == 0 ? m_disk.Time(m_random) : 0;
        record.endTime = m_random.Below(3) == 0 ? m_disk.Time(m_random) : 0x7FFFFFFF;
        record.size = m_random.Below(0x4000);
        record.flag = m_random.Below(4);
        return record;
    }

    void GetInfo(uint32_t block) {
        auto head = Blank<BlockHead_t>();
        auto tail = Blank<BlockTail_t>();
        Result(m_block.GetBlockInfo(&head, &tail), "GetBlockInfo");
        Show(head);
        Show(tail);
        for (const uint32_t chn : {0u, 1u, 31u, 127u}) {
            for (const uint32_t segment : {0u, 1u}) {
                RecordItem_t record = {};
                record.recId = block << 16 | chn << 9 | segment;
                auto found = Blank<RecSegItem_t>();
                Result(m_block.GetRecSegInfo(&record, &found), "GetRecSegInfo(%08x)", record.recId);
                Show(found);
            }
        }
    }

    /// Reads frames up to the first other result, no more than @p most.
    void ReadFrames(int most) {
        auto frame = Blank<FrameHead_t>();
        for (int i = 0; i < most; ++i) {
            if (!m_payload.Show(m_block.ReadFrame(&frame, m_payload.Place()), "ReadFrame", frame)) {
                return;
            }
        }
    }

    void Seek(uint32_t block) {
        RecordItem_t record = Record(block);
        const int all = static_cast<int>(m_random.Below(2));
        const uint32_t time = m_disk.Time(m_random);
        const uint32_t pos = m_random.Below(4) == 0 ? m_random.Word() : m_random.Below(20000);
        const int keyFrames = static_cast<int>(m_random.Below(3));
        Show(record);
        if (m_random.Below(2) == 0) {
            Result(m_block.SeekTime(all, &record, Long(time)), "SeekTime(%d, %u)", all, time);
        } else {
            Result(m_block.SeekOffs(all, &record, pos, keyFrames), "SeekOffs(%d, %u, %d)", all, pos,
                   keyFrames);
        }
    }

    void Step() {
        auto frame = Blank<FrameHead_t>();
        for (int i = 0; i < 8; ++i) {
            switch (m_random.Below(5)) {
            case 0:
                Result(m_block.GetIFrameIndex(), "GetIFrameIndex");
                break;
            case 1:
                m_payload.Show(m_block.ReadPrevIFrame(&frame, m_payload.Place()), "ReadPrevIFrame", frame);
                break;
            case 2:
                m_payload.Show(m_block.ReadBlockFrame(&frame, m_payload.Place()), "ReadBlockFrame", frame);
                break;
            case 3:
                m_payload.Show(m_block.ForwardReadFrame(&frame, m_payload.Place()), "ForwardReadFrame",
                               frame);
                break;
            default:
                m_payload.Show(m_block.ReadNextIFrame(&frame, m_payload.Place()), "ReadNextIFrame", frame);
            }
        }
    }

    void ReadAt() {
        const std::vector<uint32_t> offsets = {
            0,          24,         m_disk.head.BlkSize, m_disk.head.BlkSize - 0x2000,
            0x7FFFFFFF, 0x80000000, 0xFFFFFFE8,          0xFFFFFFFF};
        auto frame = Blank<FrameHead_t>();
        for (int i = 0; i < 16; ++i) {
            const uint32_t offset = i % 2 == 0 ? m_random.Of(offsets) : m_random.Below(3000);
            Result(m_block.GetOffset(offset), "GetOffset(%u)", offset);
            int skipped = 0x5A5A5A5A;
            m_payload.Show(m_block.GetFrame(offset, &frame, m_payload.Place(), &skipped), "GetFrame", frame);
            Note("  skipped %d", skipped);
            Result(m_block.GetFrame(offset, &frame, nullptr, &skipped), "GetFrame(head)");
            m_payload.Show(m_block.ReadIFrame(offset, &frame, m_payload.Place()), "ReadIFrame", frame);
        }
    }

    FrameHead_t Head() {
        FrameHead_t head = {};
        head.pts = static_cast<int64_t>(m_disk.Stamp(m_random));
        head.sync = m_random.Below(4) == 0 ? 0xFFFFFFFF : BLOCK_MAGIC;
        head.type = m_random.Below(4) == 0 ? 0xFFFFFFFF : m_random.Below(6);
        head.chn = m_random.Below(4) == 0 ? 0xFFFFFFFF : m_random.Of(kPlayChannels);
        head.len = m_random.Below(4) == 0 ? 0xFFFFFFFF : m_random.Word();
        if (m_random.Below(4) == 0) {
            head.pts = 0xFFFFFFFF;
        }
        return head;
    }

    void CheckHeads() {
        for (int i = 0; i < 24; ++i) {
            FrameHead_t head = Head();
            Show(head);
            Result(m_block.CheckValidChn(&head), "CheckValidChn");
            Result(m_block.CheckFrameHead(&head), "CheckFrameHead");
        }
    }

    void Reindex(uint32_t block) {
        Result(m_block.RebuiltBlockIndex(), "RebuiltBlockIndex");
        GetInfo(block);
        for (int i = 0; i < 8; ++i) {
            const FrameHead_t head = Head();
            FrameInfo_t frame = {static_cast<uint64_t>(head.pts), head.type, head.chn, head.len};
            EventHead_t event = {m_random.Word(), 0, static_cast<uint8_t>(m_random.Below(2)), {}};
            Result(m_block.RefreshBlockIndex(&frame, m_random.Word(), &event), "RefreshBlockIndex");
        }
        Seek(block);
        Step();
        Result(m_block.ReadBlockIndex(), "ReadBlockIndex");
        Result(m_block.GetBlockIndex(0), "GetBlockIndex(0)");
        Result(m_block.GetBlockIndex(1), "GetBlockIndex(1)");
        GetInfo(block);
        Seek(block);
        Step();
    }

    const Disk& m_disk;
    Random m_random;
    CReadBlock m_block;
    Payload m_payload;
};

} // namespace

void CallReadBlock(const Disk& disk, const std::string& seed) {
    ReadBlockCalls calls(disk, seed);
    for (const uint32_t block : disk.blocks) {
        calls.Call(block, 0);
        calls.Call(block, 1);
    }
}

} // namespace conformance
