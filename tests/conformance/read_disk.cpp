// CReadDisk: what a search found, what it could not have found, and whole blocks, played to their ends.

#include "conformance/choices.h"
#include "conformance/sections.h"

namespace conformance {

namespace {

/// More frames than a block of a small disk and its continuation hold.
constexpr int kMostFrames = 600;

/// One reader and its buffer.
class Reader {
public:
    Reader(CReadDisk& disk, const Disk& about, Random& random)
        : m_disk(disk), m_about(about), m_random(random) {}
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void Start(RecordItem_t record) {
        const int type = static_cast<int>(m_random.Below(3));
        const int rebuild = static_cast<int>(m_random.Below(2));
        Show(record);
        auto parameters = Blank<EncodeParam_t>();
        Result(m_disk.GetInfo(&parameters, &record, rebuild), "GetInfo(%d)", rebuild);
        Show(parameters);
        m_handle = m_disk.StartRead(type, &record);
        Result(m_handle == nullptr ? 0 : 1, "StartRead(%d)", type);
    }
    void StartUnit(uint32_t block) {
        m_handle = m_disk.StartUnitRead(static_cast<int>(block));
        Result(m_handle == nullptr ? 0 : 1, "StartUnitRead(%d)", static_cast<int>(block));
    }
    void Stop() { Result(m_disk.StopRead(m_handle), "StopRead"); }
    void StopUnit() { Result(m_disk.StopUnitRead(m_handle), "StopUnitRead"); }

    void Operate() {
        long time = Long(m_about.Time(m_random));
        unsigned int pos = m_random.Below(5) == 0 ? m_random.Word() : m_random.Below(0x4000);
        switch (m_random.Below(7)) {
        case 0:
            Result(m_disk.SeekTime(m_handle, &time), "SeekTime(%u)", static_cast<unsigned int>(time));
            break;
        case 1:
            Result(m_disk.SeekPos(m_handle, &pos), "SeekPos(%u)", pos);
            break;
        case 2:
        case 3:
            Read(&CReadDisk::ReadNextIFrame, "ReadNextIFrame");
            break;
        case 4:
            Read(&CReadDisk::ReadPrevIFrame, "ReadPrevIFrame");
            break;
        default:
            Read(&CReadDisk::ReadFrame, "ReadFrame");
        }
    }
    void ToTheEnd() {
        for (int i = 0; i < kMostFrames && Read(&CReadDisk::ReadFrame, "ReadFrame"); ++i) {
        }
    }
    void UnitToTheEnd() {
        for (int i = 0; i < kMostFrames && Read(&CReadDisk::ReadUnitFrame, "ReadUnitFrame"); ++i) {
        }
    }

private:
    bool Read(int (CReadDisk::*read)(void*, FrameInfo_t*, void**), const char* name) {
        auto frame = Blank<FrameInfo_t>();
        const int result = (m_disk.*read)(m_handle, &frame, m_payload.Place());
        return m_payload.Show(result, name, frame);
    }

    CReadDisk& m_disk;
    const Disk& m_about;
    Random& m_random;
    void* m_handle = nullptr;
    Payload m_payload;
};

void PlayUnit(CReadDisk& disk, uint32_t block, const Disk& about, Random& random) {
    Reader reader(disk, about, random);
    reader.StartUnit(block);
    reader.UnitToTheEnd();
    reader.StopUnit();
}

/// What a search finds: of a large disk no more than is recorded in a thousand seconds.
std::vector<RecordItem_t> Found(const Disk& about, Random& random) {
    PartAccess_t access = about.access;
    CSearchDisk search;
    search.Init(&access);
    RecordList list;
    SearchParam_t everything = {0, 0, 0x7FFFFFFF, 0xFFFFFFFF};
    if (!about.small) {
        everything.startTime = everything.endTime = about.Time(random);
        everything.endTime += 1000;
    }
    search.SearchMedia(&everything, &list);
    std::vector<RecordItem_t> records;
    for (const auto* node = list.m_pHead; node != nullptr; node = node->pNext) {
        records.push_back(node->data);
    }
    search.Quit();
    return records;
}

RecordItem_t MadeUpRecord(const Disk& about, Random& random) {
    RecordItem_t record = {};
    record.chn = random.Of(kPlayChannels);
    record.recId = about.RecordId(random, record.chn, 3);
    record.startTime = random.Below(3) == 0 ? 0 : about.Time(random);
    record.endTime = random.Below(3) == 0 ? 0x7FFFFFFF : about.Time(random);
    record.size = random.Below(0x4000);
    record.flag = random.Below(4);
    return record;
}

/// Plays a record from its start on, through a few random steps and seeks to the end.
void PlayRecord(CReadDisk& disk, RecordItem_t record, const Disk& about, Random& random) {
    Reader reader(disk, about, random);
    reader.Start(record);
    for (uint32_t count = random.Below(8); count > 0; --count) {
        reader.Operate();
    }
    reader.ToTheEnd();
    reader.Stop();
}

/// Finds and plays records: @p count of those found, and as many made up.
void PlayRecords(CReadDisk& disk, const Disk& about, Random& random, int count) {
    const std::vector<RecordItem_t> found = Found(about, random);
    for (int i = 0; i < count; ++i) {
        if (!found.empty()) {
            PlayRecord(disk, random.Of(found), about, random);
        }
        PlayRecord(disk, MadeUpRecord(about, random), about, random);
    }
}

/// Two readers read in turn, one of them beyond Quit().
void PlayInTurn(CReadDisk& disk, const Disk& about, Random& random) {
    Reader one(disk, about, random);
    Reader other(disk, about, random);
    one.Start(MadeUpRecord(about, random));
    other.Start(MadeUpRecord(about, random));
    for (int i = 0; i < 10; ++i) {
        one.Operate();
        other.Operate();
    }
    other.Stop();
    Result(disk.Quit(), "Quit");
    one.Operate();
    one.Stop();
}

} // namespace

void CallReadDisk(const Disk& disk, const std::string& seed) {
    Random random(seed);
    PartAccess_t access = disk.access;
    CReadDisk player;
    Result(player.Init(&access), "Init");
    for (const char* const text : {"secret", "wrong"}) {
        std::vector<unsigned char> password(text, text + std::strlen(text) + 1);
        Result(player.CheckEncryptInfo(password.data()), "CheckEncryptInfo(%s)", text);
    }
    PlayRecords(player, disk, random, 12);
    for (int i = 0; i < 4; ++i) {
        PlayUnit(player, disk.Block(random), disk, random);
    }
    PlayInTurn(player, disk, random);
}

void PlayDamaged(const Disk& disk, Random& random) {
    PartAccess_t access = disk.access;
    CReadDisk player;
    Result(player.Init(&access), "Init");
    PlayRecords(player, disk, random, 2);
    PlayUnit(player, disk.Block(random), disk, random);
    Result(player.Quit(), "Quit");
}

} // namespace conformance
