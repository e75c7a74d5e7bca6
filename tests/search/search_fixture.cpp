#include "search/search_fixture.h"

#include <sstream>

namespace test_support {

std::string Describe(const RecordItem_t& record) {
    EXPECT_EQ(record.chn, record.recId >> 9 & 0x7F);
    std::ostringstream line;
    line << (record.recId >> 16) << '/' << record.chn << '/' << (record.recId & 0x1FF) << ' '
         << record.startTime << '-' << record.endTime << " size " << record.size << " alarm " << std::hex
         << uint64_t{record.alarmType} << " flag " << record.flag;
    return line.str();
}

std::vector<std::string> Describe(const RecordList& records) {
    std::vector<std::string> lines;
    for (const RecordItem_t& record : Elements(records)) {
        lines.push_back(Describe(record));
    }
    return lines;
}

std::vector<std::string> Describe(const EventList& events) {
    std::vector<std::string> lines;
    for (const EventItem_t& event : Elements(events)) {
        std::ostringstream line;
        line << (event.eventId >> 16) << '/' << (event.eventId & 0xFFFF) << ' ' << event.time << " type "
             << std::hex << uint64_t{event.alarmType};
        lines.push_back(line.str());
    }
    return lines;
}

std::vector<std::string> Describe(const UnitList& units) {
    std::vector<std::string> lines;
    for (const UnitItem_t& unit : Elements(units)) {
        lines.push_back(std::to_string(unit.unitId) + ' ' + std::to_string(unit.recTime));
    }
    return lines;
}

PartitionImage& SearchFixture::MakeDisk(const Format& format) {
    m_disk.emplace(PartitionImage::Create(m_dir.File("disk"), format));
    return *m_disk;
}

PartitionImage& SearchFixture::MakeDisk(uint32_t blockCount) {
    Format format;
    format.blockCount = blockCount;
    return MakeDisk(format);
}

void SearchFixture::WriteRing(const std::vector<uint32_t>& sequence) {
    for (uint32_t block = 0; block < sequence.size(); ++block) {
        const uint32_t seq = sequence[block];
        if (seq != 0) {
            const uint32_t start = seq * 1000;
            Disk().WriteBlock(
                block, BlockContents::Closed(seq, start, start + 900).Segment(0, start, start + 900, 9000));
        }
    }
}

} // namespace test_support
