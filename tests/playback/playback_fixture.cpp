#include "playback/playback_fixture.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <regex>
#include <sstream>

namespace test_support {

FrameHead_t Frame(uint32_t type, uint32_t chn, int64_t seconds, uint32_t len) {
    return {Pts(seconds), BLOCK_MAGIC, type, chn, len};
}

FrameHead_t EndMark() {
    return {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
}

std::vector<uint8_t> PayloadOf(const FrameHead_t& head) {
    std::vector<uint8_t> payload(head.len);
    for (uint32_t i = 0; i < head.len; ++i) {
        payload[i] = static_cast<uint8_t>(head.pts / 1000000 + head.chn * 31 + i);
    }
    return payload;
}

std::string Describe(const FrameHead_t& head) {
    static const char* const media[] = {"P", "I", "A"};
    EXPECT_EQ(head.sync, BLOCK_MAGIC);
    std::ostringstream line;
    if (head.type < 3) {
        line << media[head.type];
    } else {
        line << 'T' << uint32_t{head.type} << '.';
    }
    line << uint32_t{head.chn} << ' ' << head.pts / 1000000;
    return line.str();
}

std::string Describe(const RecSegItem_t& segment) {
    std::ostringstream line;
    line << segment.s << '-' << segment.e << " at " << segment.spos << '-' << segment.epos << ", "
         << segment.totalsize << " bytes";
    return line.str();
}

RecordItem_t Record(uint32_t chn, uint32_t segment, uint32_t start, uint32_t end) {
    RecordItem_t record = {};
    record.recId = chn << 9 | segment;
    record.startTime = start;
    record.endTime = end;
    return record;
}

RecordItem_t OwnWindow(uint32_t chn, uint32_t start, uint32_t end, uint32_t offs) {
    RecordItem_t record = Record(chn, 0, start, end);
    record.size = offs;
    record.flag = 2;
    return record;
}

RecordItem_t WholeBlock(uint32_t chn) {
    RecordItem_t record = Record(chn, 0);
    record.flag = 1;
    return record;
}

Lines CallsInBlock(const SystemCallLog& log, const PartitionImage& disk, uint32_t block) {
    const auto start = static_cast<int64_t>(disk.BlockStart(block));
    Lines lines;
    for (const Call& call : log.Calls()) {
        const std::string place = std::to_string(call.offset - start);
        switch (call.kind) {
        case CallKind::Open:
            lines.push_back("open");
            break;
        case CallKind::Seek:
            lines.push_back("seek " + place);
            break;
        case CallKind::Read:
            lines.push_back("read " + std::to_string(call.length) + " at " + place);
            break;
        case CallKind::Close:
            lines.push_back("close");
            break;
        case CallKind::Sync:
            lines.push_back("sync");
            break;
        case CallKind::Control:
            lines.push_back("control");
            break;
        }
    }
    return lines;
}

std::function<Fate(const Call&, size_t)> FailingCall(size_t index) {
    return [index](const Call&, size_t at) { return at == index ? Fate::Failing() : Fate(); };
}

std::function<Fate(const Call&, size_t)> ShortCall(size_t index) {
    return [index](const Call& call, size_t at) {
        return at == index && call.kind == CallKind::Read ? Fate::Shortened(call.length - 1) : Fate();
    };
}

PartitionImage& PlaybackFixture::MakeExtendedDisk() {
    Format format;
    format.fmtVersion = 1;
    return MakeDisk(format);
}

void PlaybackFixture::PutHead(uint32_t block, uint32_t pos, const FrameHead_t& head) {
    Disk().Put(Disk().FrameOffset(block, pos), head);
}

uint32_t PlaybackFixture::PutFrames(uint32_t block, uint32_t pos, const std::vector<FrameHead_t>& frames) {
    for (const FrameHead_t& head : frames) {
        const std::vector<uint8_t> payload = PayloadOf(head);
        PutHead(block, pos, head);
        pos += static_cast<uint32_t>(sizeof head);
        Disk().Write(Disk().FrameOffset(block, pos), payload.data(), payload.size());
        pos += head.len;
    }
    return pos;
}

void PlaybackFixture::PutEvent(uint32_t block, uint32_t pos, const FrameHead_t& head, uint64_t type,
                               uint8_t indexed) {
    EventHead_t event = {};
    event.type = type;
    event.Indexed = indexed;
    PutFrames(block, pos, {head});
    Disk().Put(Disk().FrameOffset(block, pos) + sizeof head, event);
}

void PlaybackFixture::WriteRecording(uint32_t block, uint32_t base) {
    PutFrames(block, 0,
              {PFrame(0, base), KeyFrame(0, base), KeyFrame(1, base + 1), PFrame(0, base + 2),
               PFrame(1, base + 3), KeyFrame(0, base + 4), PFrame(0, base + 6), KeyFrame(1, base + 7),
               KeyFrame(0, base + 8), PFrame(0, base + 10)});
    PutHead(block, 1000, EndMark());
    Disk().WriteBlock(block, BlockContents::Closed(block + 1, base, base + 10)
                                 .IFrame(0, Pts(base), 100)
                                 .IFrame(0, Pts(base + 4), 500)
                                 .IFrame(0, Pts(base + 8), 800)
                                 .IFrame(1, Pts(base + 1), 200)
                                 .IFrame(1, Pts(base + 7), 700)
                                 .Segment(0, base, base + 10, 996)
                                 .Segment(1, base + 1, base + 7, 596, 200));
}

BlockReader::BlockReader(const PartitionImage& disk, uint32_t block, int rebuild)
    : m_headAreaSize(disk.HeadAreaSize()) {
    PartAccess_t access = disk.Access();
    EXPECT_EQ(m_block.OpenBlock(block, disk.BlockSize(), &access, disk.Head().FmtVersion, rebuild), 0);
}

BlockReader::~BlockReader() {
    m_block.CloseBlock();
    std::free(m_payload);
}

std::string BlockReader::Take(ReadOperation read) {
    FrameHead_t head = {};
    const int result = (m_block.*read)(&head, &m_payload);
    return Taken(result, head);
}

std::string BlockReader::IFrameAt(uint32_t offs) {
    FrameHead_t head = {};
    const int result = m_block.ReadIFrame(offs, &head, &m_payload);
    return Taken(result, head);
}

std::string BlockReader::Taken(int result, const FrameHead_t& head) {
    if (result != 0) {
        return std::to_string(result);
    }
    EXPECT_NE(m_payload, nullptr);
    const std::vector<uint8_t> payload = PayloadOf(head);
    EXPECT_TRUE(payload.empty() || std::memcmp(m_payload, payload.data(), payload.size()) == 0)
        << Describe(head);
    return Describe(head);
}

Lines BlockReader::ReadAll() {
    Lines lines;
    do {
        lines.push_back(Read());
    } while (lines.back().size() > 2);
    return lines;
}

int BlockReader::SeekTime(int allChn, RecordItem_t record, long time) {
    int result = 0;
    Quietly([&] { result = m_block.SeekTime(allChn, &record, time); });
    return result;
}

int BlockReader::SeekOffs(int allChn, RecordItem_t record, uint32_t pos, int keyFrames) {
    int result = 0;
    Quietly([&] { result = m_block.SeekOffs(allChn, &record, pos, keyFrames); });
    return result;
}

int BlockReader::KindAt(uint32_t second) {
    FrameHead_t head = PFrame(0, second);
    while (m_block.CheckValidChn(&head) != 0) {
        ++head.chn;
    }
    return m_block.CheckFrameHead(&head);
}

::testing::AssertionResult BlockReader::HasWindow(uint32_t start, uint32_t end, uint32_t offs) {
    // Media pass from 5 seconds before the window to its last second.
    const bool starts =
        start > 5 ? KindAt(start - 5) == 0 && KindAt(start - 6) == 3 : start == 0 && KindAt(1) == 0;
    if (!starts) {
        return ::testing::AssertionFailure() << "the window does not start at " << start;
    }
    if (KindAt(end) != 0 || KindAt(end + 1) != 3) {
        return ::testing::AssertionFailure() << "the window does not end at " << end;
    }
    if (m_block.GetOffset(offs) != static_cast<int>(m_headAreaSize + offs) ||
        (offs != 0 && m_block.GetOffset(offs - 1) != -1)) {
        return ::testing::AssertionFailure() << "the window does not begin at offset " << offs;
    }
    return ::testing::AssertionSuccess();
}

Lines BlockReader::Segments() {
    Lines lines;
    for (uint32_t chn = 0; chn < 32; ++chn) {
        for (uint32_t i = 0; i < 512; ++i) {
            RecordItem_t record = Record(chn, i);
            RecSegItem_t segment = {};
            if (m_block.GetRecSegInfo(&record, &segment) != 0) {
                break;
            }
            lines.push_back(std::to_string(chn) + '/' + std::to_string(i) + ' ' + Describe(segment));
        }
    }
    return lines;
}

Lines BlockReader::IFrames(uint32_t chn) {
    static const std::regex message(R"(.*\((-?[0-9]+), (-?[0-9]+)\)\n)");
    Lines lines;
    RecordItem_t record = Record(chn, 0);
    for (int64_t time = std::numeric_limits<int32_t>::min();;) {
        const std::string printed = Printed([&] { m_block.SeekTime(0, &record, static_cast<long>(time)); });
        std::smatch match;
        if (!std::regex_match(printed, match, message)) {
            return lines;
        }
        const std::string line = match[1].str() + " at " + match[2].str();
        if (!lines.empty() && line == lines.back()) {
            return lines;
        }
        lines.push_back(line);
        time = std::stoll(match[1].str()) / 1000000 + 1;
    }
}

} // namespace test_support
