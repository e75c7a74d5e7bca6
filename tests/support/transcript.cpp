#include "support/transcript.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>

namespace test_support {

namespace {

constexpr uint32_t kAllOfThem = 0xFFFFFFFF;
constexpr uint64_t kEveryAlarm = 0xFFFFFFFFFFFFFFFF;
constexpr uint32_t kEndOfTime = 0x7FFFFFFF;

/// The 64-bit checksum of Fowler, Noll and Vo.
class Checksum {
public:
    void Add(const void* data, size_t size) {
        const auto* const bytes = static_cast<const uint8_t*>(data);
        for (size_t i = 0; i < size; ++i) {
            m_sum = (m_sum ^ bytes[i]) * 0x100000001B3;
        }
    }
    uint64_t Value() const { return m_sum; }

private:
    uint64_t m_sum = 0xCBF29CE484222325;
};

template <typename Item, typename Print>
void PrintList(std::ostringstream& out, const char* name, int result, const CCommList<Item>& list,
               Print print) {
    out << name << ": " << result << '\n';
    for (const auto* node = list.m_pHead; node != nullptr; node = node->pNext) {
        out << "  ";
        print(node->data);
        out << '\n';
    }
}

/// What a reader delivered so far.
class Delivery {
public:
    Delivery() = default;
    ~Delivery() { std::free(m_payload); }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    using Read = int (CReadDisk::*)(void*, FrameInfo_t*, void**);

    int One(CReadDisk& disk, Read read, void* reader) {
        FrameInfo_t info = {};
        const int result = (disk.*read)(reader, &info, &m_payload);
        if (result == 0) {
            ++m_frames;
            m_bytes += info.len;
            m_sum.Add(&info, sizeof info);
            m_sum.Add(m_payload, info.len);
        }
        return result;
    }
    int ToTheEnd(CReadDisk& disk, Read read, void* reader) {
        int result = 0;
        while (result == 0) {
            result = One(disk, read, reader);
        }
        return result;
    }
    void Print(std::ostringstream& out, int result) const {
        out << m_frames << " frames, " << m_bytes << " bytes, " << std::hex << m_sum.Value() << std::dec
            << ", ended with " << result << '\n';
    }

private:
    void* m_payload = nullptr;
    size_t m_frames = 0;
    uint64_t m_bytes = 0;
    Checksum m_sum;
};

void PlayRecord(std::ostringstream& out, CReadDisk& disk, RecordItem_t record, int chnType) {
    EncodeParam_t parameters = {};
    Checksum properties;
    const int info = disk.GetInfo(&parameters, &record, 1);
    properties.Add(&parameters, sizeof parameters);
    out << "play " << std::hex << record.recId << " type " << chnType << " info " << info << ' '
        << properties.Value() << std::dec << ": ";
    void* const reader = disk.StartRead(chnType, &record);
    Delivery all;
    all.Print(out, all.ToTheEnd(disk, &CReadDisk::ReadFrame, reader));
    const unsigned int middle = record.startTime + (record.endTime - record.startTime) / 2;
    long time = static_cast<long>(middle);
    unsigned int position = 500;
    out << "  seek " << disk.SeekTime(reader, &time) << ": ";
    Delivery steps;
    steps.One(disk, &CReadDisk::ReadNextIFrame, reader);
    steps.Print(out, steps.One(disk, &CReadDisk::ReadPrevIFrame, reader));
    out << "  position " << disk.SeekPos(reader, &position) << ": ";
    Delivery rest;
    rest.Print(out, rest.ToTheEnd(disk, &CReadDisk::ReadFrame, reader));
    disk.StopRead(reader);
}

void PlayUnit(std::ostringstream& out, CReadDisk& disk, uint32_t unit) {
    out << "unit " << unit << ": ";
    void* const reader = disk.StartUnitRead(static_cast<int>(unit));
    Delivery all;
    all.Print(out, all.ToTheEnd(disk, &CReadDisk::ReadUnitFrame, reader));
    disk.StopUnitRead(reader);
}

} // namespace

std::string SearchTranscript(CSearchDisk& disk) {
    std::ostringstream out;
    const auto record = [&out](const RecordItem_t& item) {
        out << std::hex << item.recId << std::dec << ' ' << item.startTime << '-' << item.endTime << " size "
            << item.size << " alarm " << uint64_t{item.alarmType} << " flag " << item.flag;
    };
    const auto unit = [&out](const UnitItem_t& item) { out << item.unitId << ' ' << item.recTime; };

    SearchParam_t plain = {0, 0, kEndOfTime, kAllOfThem};
    SearchParam_t alarms = {kEveryAlarm, 0, kEndOfTime, kAllOfThem};
    CCommList<RecordItem_t> records;
    CCommList<RecordItem_t> around;
    CCommList<RecordItem_t> mixed;
    CCommList<EventItem_t> events;
    CCommList<UnitItem_t> units;
    CCommList<UnitItem_t> invalid;
    CCommList<unsigned int> days;
    DiskSpaceInfo_t space = {};
    PrintList(out, "records", disk.SearchMedia(&plain, &records), records, record);
    PrintList(out, "around alarms", disk.SearchMedia(&alarms, &around), around, record);
    PrintList(out, "mixed", disk.MixSearch(&plain, &mixed), mixed, record);
    PrintList(out, "events", disk.SearchEvent(&alarms, &events), events, [&out](const EventItem_t& item) {
        out << std::hex << item.eventId << ' ' << uint64_t{item.alarmType} << std::dec << ' ' << item.time;
    });
    PrintList(out, "units", disk.GetUnitInfo(&units), units, unit);
    PrintList(out, "invalid units", disk.GetInvalidUnit(&invalid), invalid, unit);
    PrintList(out, "days", disk.GetDateInfo(&days), days, [&out](unsigned int day) { out << day; });
    out << "space: " << disk.GetSpaceInfo(&space) << ' ' << uint64_t{space.totalSize} << ' '
        << uint64_t{space.freeSize} << '\n';
    out << "newest: " << disk.GetLastRecBlockId() << '\n';
    return out.str();
}

std::string PlaybackTranscript(CReadDisk& disk, CSearchDisk& searches) {
    std::ostringstream out;
    SearchParam_t plain = {0, 0, kEndOfTime, kAllOfThem};
    CCommList<RecordItem_t> records;
    searches.SearchMedia(&plain, &records);
    for (const auto* node = records.m_pHead; node != nullptr; node = node->pNext) {
        PlayRecord(out, disk, node->data, 0);
        PlayRecord(out, disk, node->data, 1);
    }
    CCommList<UnitItem_t> units;
    searches.GetUnitInfo(&units);
    for (const auto* node = units.m_pHead; node != nullptr; node = node->pNext) {
        PlayUnit(out, disk, node->data.unitId);
    }
    return out.str();
}

std::string Transcript(PartAccess_t access) {
    CSearchDisk searches;
    CReadDisk playback;
    searches.Init(&access);
    playback.Init(&access);
    std::string text = SearchTranscript(searches) + PlaybackTranscript(playback, searches);
    playback.Quit();
    searches.Quit();
    return text;
}

} // namespace test_support
