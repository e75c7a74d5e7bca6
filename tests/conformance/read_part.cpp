// CReadPart: every member.

#include "conformance/choices.h"
#include "conformance/sections.h"

namespace conformance {

namespace {

class ReadPartCalls {
public:
    ReadPartCalls(const Disk& disk, const std::string& seed) : m_disk(disk), m_random(seed) {}

    void Call() {
        PartAccess_t access = m_disk.access;
        access.DiskType = access.DiskType == 52 ? 1 : 34;
        Result(m_part.Init(&access), "Init of another type");
        Result(m_part.PrintInitInfo(), "PrintInitInfo");
        access.DiskType = m_disk.access.DiskType;
        Result(m_part.Init(&access), "Init");
        Result(m_part.PrintInitInfo(), "PrintInitInfo");
        Result(m_part.GetBadBlockTab(), "GetBadBlockTab");
        CallLock();
        CallBlocks();
        for (const uint32_t block : m_disk.blocks) {
            Play(block);
        }
        Result(m_part.Quit(), "Quit");
    }

private:
    void CallLock() {
        unsigned int map = 0xA5A5A5A5;
        unsigned int mode = 0xA5A5A5A5;
        for (const int length : {0, 1, 6, 8, 128, 140, -1}) {
            std::vector<unsigned char> password(160, 0xA5);
            Result(m_part.GetEncrypt(&map, &mode, password.data(), length), "GetEncrypt(%d)", length);
            ShowDigest(password.size(), Digest(password.data(), password.size()));
            Note("  map %08x mode %u", map, mode);
        }
        for (const char* const text : {"secret", "wrong", ""}) {
            std::vector<unsigned char> password(text, text + std::strlen(text) + 1);
            Result(m_part.CheckEncrypt(password.data()), "CheckEncrypt(%s)", text);
        }
    }

    void CallBlocks() {
        for (const uint32_t block : m_disk.blocks) {
            for (uint32_t mode = 0; mode < 6; ++mode) {
                const uint32_t seq = m_random.Below(40);
                Result(m_part.IsValidBlock(block, mode, seq), "IsValidBlock(%u, %u, %u)", block, mode, seq);
            }
            const uint32_t mode = m_random.Below(6);
            const uint32_t to = m_disk.small ? m_disk.Block(m_random) : block;
            unsigned int found = 0xA5A5A5A5;
            Result(m_part.GetPrevValidBlock(mode, 1, block, to, &found), "GetPrevValidBlock(%u, %u, %u)",
                   mode, block, to);
            Show(found);
            Result(m_part.GetNextValidBlock(mode, 1, block, to, &found), "GetNextValidBlock(%u, %u, %u)",
                   mode, block, to);
            Show(found);
        }
    }

    void Play(uint32_t block) {
        RecordItem_t record = {};
        const uint32_t chn = m_random.Of(kPlayChannels);
        record.recId = block << 16 | chn << 9 | m_random.Below(2);
        record.startTime = m_random.Below(2) == 0 ? m_disk.Time(m_random) : 0;
        record.endTime = m_random.Below(2) == 0 ? m_disk.Time(m_random) : 0x7FFFFFFF;
        record.size = m_random.Below(0x2000);
        record.flag = m_random.Below(3);
        for (const int rebuild : {0, 1}) {
            auto parameters = Blank<EncodeParam_t>();
            Result(m_part.GetRecInfo(&parameters, &record, rebuild), "GetRecInfo(%d)", rebuild);
            Show(parameters);
            Show(record);
        }
        const int type = static_cast<int>(m_random.Below(3));
        PartReadHandle_st* const reader = m_part.BeginReader(type, &record);
        Result(reader == nullptr ? 0 : 1, "BeginReader(%d)", type);
        if (reader != nullptr) {
            Show(*reader);
            Operate(reader);
            Show(*reader);
        }
        Result(m_part.EndReader(reader), "EndReader");
    }

    void Operate(PartReadHandle_st* reader) {
        auto frame = Blank<FrameInfo_t>();
        for (int i = 0; i < 14; ++i) {
            long time = Long(m_disk.Time(m_random));
            unsigned int pos = m_random.Below(0x4000);
            switch (m_random.Below(8)) {
            case 0:
                Result(m_part.SeekTime(reader, &time), "SeekTime(%u)", static_cast<unsigned int>(time));
                break;
            case 1:
                Result(m_part.SeekPos(reader, &pos), "SeekPos(%u)", pos);
                break;
            case 2:
                m_payload.Show(m_part.ReadNextIFrame(reader, &frame, m_payload.Place()), "ReadNextIFrame",
                               frame);
                break;
            case 3:
                m_payload.Show(m_part.ReadPrevIFrame(reader, &frame, m_payload.Place()), "ReadPrevIFrame",
                               frame);
                break;
            case 4:
                m_payload.Show(m_part.ReadUnitFrame(reader, &frame, m_payload.Place()), "ReadUnitFrame",
                               frame);
                break;
            default:
                m_payload.Show(m_part.ReadFrame(reader, &frame, m_payload.Place()), "ReadFrame", frame);
            }
        }
    }

    const Disk& m_disk;
    Random m_random;
    CReadPart m_part;
    Payload m_payload;
};

} // namespace

void CallReadPart(const Disk& disk, const std::string& seed) {
    ReadPartCalls(disk, seed).Call();
}

} // namespace conformance
