#include "playback/part_fixture.h"

#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <sstream>

namespace test_support {

namespace {

constexpr uint32_t kUsualBytes = 100;
constexpr uint32_t kOtherData = 5;

constexpr char kTypeLetters[] = "PIA?ED";

/// Room for the longest word.
constexpr size_t kWordBytes = 64;

/// Writes a frame's word without allocating.
size_t PutWord(char (&word)[kWordBytes], const FrameInfo_t& frame) {
    const char type = frame.type <= kOtherData ? kTypeLetters[frame.type] : '?';
    const auto second = static_cast<long long>(frame.pts / 1000000);
    const int length =
        frame.len == kUsualBytes
            ? std::snprintf(word, sizeof word, "%c%u@%lld", type, frame.chn, second)
            : std::snprintf(word, sizeof word, "%c%u@%lld:%u", type, frame.chn, second, frame.len);
    return static_cast<size_t>(length);
}

RecordItem_t MadeRecord(uint32_t block, uint32_t chn, uint32_t segment, uint32_t flag) {
    RecordItem_t record = {};
    record.recId = block << 16 | chn << 9 | segment;
    record.chn = chn;
    record.flag = flag;
    return record;
}

} // namespace

sample_recorder::Frame FrameOf(const std::string& word) {
    std::istringstream text(word);
    char type = 0;
    char separator = 0;
    uint32_t second = 0;
    uint32_t bytes = kUsualBytes;
    sample_recorder::Frame frame;
    text >> type >> frame.channel >> separator >> second;
    if (text >> separator) {
        text >> bytes;
    }
    frame.type = static_cast<uint32_t>(std::strchr(kTypeLetters, type) - kTypeLetters);
    frame.pts = Pts(second);
    for (uint32_t i = 0; i < bytes; ++i) {
        frame.payload.push_back(static_cast<uint8_t>(word[i % word.size()]));
    }
    return frame;
}

std::string WordOf(const FrameInfo_t& frame) {
    char word[kWordBytes];
    return {word, PutWord(word, frame)};
}

bool PayloadFits(const FrameInfo_t& frame, const void* payload) {
    char word[kWordBytes];
    const size_t length = PutWord(word, frame);
    const auto* const bytes = static_cast<const char*>(payload);
    for (uint32_t i = 0; i < frame.len; ++i) {
        if (bytes[i] != word[i % length]) {
            return false;
        }
    }
    return true;
}

RecordItem_t SegmentRecord(uint32_t block, uint32_t chn, uint32_t segment, uint32_t start, uint32_t end) {
    RecordItem_t record = MadeRecord(block, chn, segment, 0);
    record.startTime = start;
    record.endTime = end;
    return record;
}

RecordItem_t WholeBlockRecord(uint32_t block, uint32_t chn) {
    return MadeRecord(block, chn, 0, 1);
}

RecordItem_t WindowRecord(uint32_t block, uint32_t chn, uint32_t start, uint32_t end, uint32_t offset) {
    RecordItem_t record = MadeRecord(block, chn, 0, 2);
    record.startTime = start;
    record.endTime = end;
    record.size = offset;
    return record;
}

FrameTaker::~FrameTaker() {
    std::free(m_payload);
}

std::string FrameTaker::Take(Step step) {
    FrameInfo_t untouched;
    std::memset(&untouched, 0xEE, sizeof untouched);
    FrameInfo_t info = untouched;
    const int result = Call(step, &info, &m_payload);
    if (result != 0) {
        EXPECT_EQ(std::memcmp(&info, &untouched, sizeof info), 0); // only a frame fills it
        EXPECT_TRUE(result >= -1 && result <= 2) << result;
        return result == 1 ? "end" : result == 2 ? "none" : "failed";
    }
    const std::string word = WordOf(info);
    EXPECT_TRUE(PayloadFits(info, m_payload)) << word;
    return word;
}

std::string FrameTaker::TakeAll(Step step) {
    std::string words;
    for (;;) {
        const std::string word = Take(step);
        words += words.empty() ? word : ' ' + word;
        if (word.find('@') == std::string::npos) {
            return words;
        }
    }
}

PartPlayer::PartPlayer(CReadPart& part, int chnType, RecordItem_t record) : m_part(part) {
    m_messages = PrintedWithoutLines([&] { m_reader = part.BeginReader(chnType, &record); });
}

PartPlayer::~PartPlayer() {
    EXPECT_EQ(m_part.EndReader(m_reader), m_reader == nullptr ? -1 : 0);
}

int PartPlayer::Call(Step step, FrameInfo_t* info, void** payload) {
    switch (step) {
    case Step::Frame:
        return m_part.ReadFrame(m_reader, info, payload);
    case Step::NextIFrame:
        return m_part.ReadNextIFrame(m_reader, info, payload);
    case Step::PrevIFrame:
        return m_part.ReadPrevIFrame(m_reader, info, payload);
    default:
        return m_part.ReadUnitFrame(m_reader, info, payload);
    }
}

DiskPlayer::DiskPlayer(CReadDisk& disk, int chnType, RecordItem_t record) : m_disk(disk) {
    m_messages = PrintedWithoutLines([&] { m_handle = disk.StartRead(chnType, &record); });
}

DiskPlayer::DiskPlayer(CReadDisk& disk, int unit) : m_disk(disk) {
    m_messages = PrintedWithoutLines([&] { m_handle = disk.StartUnitRead(unit); });
}

void DiskPlayer::Stop() {
    EXPECT_EQ(m_disk.StopRead(m_handle), 0);
    m_handle = nullptr;
}

int DiskPlayer::Call(Step step, FrameInfo_t* info, void** payload) {
    switch (step) {
    case Step::Frame:
        return m_disk.ReadFrame(m_handle, info, payload);
    case Step::NextIFrame:
        return m_disk.ReadNextIFrame(m_handle, info, payload);
    case Step::PrevIFrame:
        return m_disk.ReadPrevIFrame(m_handle, info, payload);
    default:
        return m_disk.ReadUnitFrame(m_handle, info, payload);
    }
}

const char* const kRoundScript =
    "P0@1000 I0@1001 P1@1001 E0@1001:16 I0@1002 P0@1003 P0@1004:700 I0@1005 P0@1006 I1@1007 | "
    "P0@1008 A0@1008:160 P0@1009 I0@1010 P0@1011 | I0@1012 P0@1013 I1@1013 P1@1014 /";

namespace {

/// Counts what calls deliver into one buffer.
class RoundPlayer {
public:
    explicit RoundPlayer(CReadDisk& disk) : m_disk(disk) {}
    ~RoundPlayer() { std::free(m_payload); }
    RoundPlayer(const RoundPlayer&) = delete;
    RoundPlayer& operator=(const RoundPlayer&) = delete;

    using Read = int (CReadDisk::*)(void*, FrameInfo_t*, void**);

    bool Take(Read read, void* handle) {
        FrameInfo_t info = {};
        const int result = (m_disk.*read)(handle, &info, &m_payload);
        ++m_outcome.results[result + 1];
        if (result == 0) {
            ++m_outcome.frames;
            m_outcome.wrongPayloads += PayloadFits(info, m_payload) ? 0 : 1;
        }
        // The buffer is null or the caller's to use, from its first byte to its last.
        if (const size_t size = malloc_usable_size(m_payload)) {
            std::memset(m_payload, 0xAB, size);
        }
        return result == 0;
    }
    void TakeAll(Read read, void* handle) {
        for (int i = 0; i < 100 && Take(read, handle); ++i) {
        }
    }
    const RoundOutcome& Outcome() const { return m_outcome; }

private:
    CReadDisk& m_disk;
    void* m_payload = nullptr;
    RoundOutcome m_outcome;
};

} // namespace

RoundOutcome PlayRound(PartAccess_t access) {
    CReadDisk disk;
    disk.Init(&access);
    unsigned char password[] = "password";
    disk.CheckEncryptInfo(password);
    RoundPlayer player(disk);
    EncodeParam_t parameters = {};
    RecordItem_t segment = SegmentRecord(0, 0, 0, 1000, 1900);
    RecordItem_t inside = SegmentRecord(0, 0, 0, 1002, 1006);
    RecordItem_t window = WindowRecord(1, 0, 1009, 1900, 308); // after 24 + 100 and 24 + 160 bytes
    RecordItem_t incomplete = SegmentRecord(2, 1, 0, 1012);
    disk.GetInfo(&parameters, &segment, 0);
    disk.GetInfo(&parameters, &incomplete, 1);
    long time = 1002;
    unsigned int pos = 150;

    void* const one = disk.StartRead(0, &segment);
    void* const all = disk.StartRead(1, &inside);
    player.Take(&CReadDisk::ReadFrame, one);
    player.Take(&CReadDisk::ReadFrame, all);
    disk.SeekTime(one, &time);
    player.Take(&CReadDisk::ReadNextIFrame, one);
    player.Take(&CReadDisk::ReadPrevIFrame, one);
    player.Take(&CReadDisk::ReadPrevIFrame, one);
    player.Take(&CReadDisk::ReadPrevIFrame, all);
    player.Take(&CReadDisk::ReadNextIFrame, all);
    disk.SeekPos(one, &pos);
    player.TakeAll(&CReadDisk::ReadFrame, one); // on into block 1
    player.TakeAll(&CReadDisk::ReadFrame, all);
    disk.SeekTime(one, &time);
    player.Take(&CReadDisk::ReadUnitFrame, one);
    disk.StopRead(one);

    void* const own = disk.StartRead(0, &window);
    player.TakeAll(&CReadDisk::ReadFrame, own);
    disk.StopRead(own);
    void* const unclosed = disk.StartRead(0, &incomplete);
    player.TakeAll(&CReadDisk::ReadFrame, unclosed);
    void* const unit = disk.StartUnitRead(0);
    player.TakeAll(&CReadDisk::ReadUnitFrame, unit);
    disk.StopUnitRead(unit);
    disk.StopRead(unclosed);
    disk.Quit();
    player.Take(&CReadDisk::ReadFrame, all); // left open
    disk.StopRead(all);
    return player.Outcome();
}

void RecordScript(sample_recorder::Recorder& recorder, const std::string& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
        if (word == "|") {
            recorder.PowerOff();
        } else if (word == "/") {
            recorder.CutPower();
        } else {
            recorder.Write(FrameOf(word));
        }
    }
}

void PartFixture::Record(const std::string& script) {
    if (!m_recorder) {
        sample_recorder::RecorderSettings settings;
        settings.channels = kScriptChannels;
        m_recorder.emplace(Disk(), settings);
    }
    RecordScript(*m_recorder, script);
}

PartitionImage& PartFixture::RecordOnNewDisk(const std::string& script) {
    MakeDisk();
    Record(script);
    return Disk();
}

void PartFixture::SetCloseState(uint32_t block, uint32_t state) {
    Disk().Change<BlockTail_t>(Disk().TailOffset(block), [state](auto& tail) { tail.CloseState = state; });
}

void PartFixture::Renumber(uint32_t block, uint32_t sequence) {
    Disk().Change<BlockHead_t>(Disk().HeadOffset(block), [sequence](auto& head) { head.RecSeq = sequence; });
    Disk().Change<BlockTail_t>(Disk().TailOffset(block), [sequence](auto& tail) { tail.RecSeq = sequence; });
}

} // namespace test_support
