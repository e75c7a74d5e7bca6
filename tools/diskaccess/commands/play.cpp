#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <optional>
#include <regex>

#include "commands/commands.h"
#include "findings.h"
#include "frame_types.h"
#include "recorded_blocks.h"

namespace diskaccess {

namespace {

constexpr uint32_t kWholeBlock = 1;
constexpr uint32_t kIndexed = 0;

/// A reader of the library's, stopped at the end of its scope.
class Reader {
public:
    Reader(CReadDisk& disk, int allChannels, RecordItem_t record)
        : m_disk(disk), m_handle(disk.StartRead(allChannels, &record)) {}
    ~Reader() {
        std::free(m_payload);
        m_disk.StopRead(m_handle);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    int Read(FrameInfo_t& frame) { return m_disk.ReadFrame(m_handle, &frame, &m_payload); }
    int Next(FrameInfo_t& frame) { return m_disk.ReadNextIFrame(m_handle, &frame, &m_payload); }
    bool Seek(int64_t seconds) {
        auto time = static_cast<long>(seconds);
        return m_disk.SeekTime(m_handle, &time) == 0;
    }

private:
    CReadDisk& m_disk;
    void* m_handle;
    void* m_payload = nullptr;
};

std::string KindOf(uint32_t type) {
    switch (type) {
    case 0:
        return "P-frame";
    case kKeyFrame:
        return "I-frame";
    case 2:
        return "audio";
    case kEventFrame:
        return "event";
    default:
        return fmt::format("type {}", type);
    }
}

Table FrameTable() {
    return {"frames",
            {{"time", "TIME", 23},
             {"channel", "CHANNEL"},
             {"frame_kind", "KIND", 7},
             {"frame_type", ""},
             {"payload_bytes", "LENGTH", 8}},
            {},
            true};
}

/// Plays records, a line a frame.
class Player {
public:
    explicit Player(Job& job) : m_job(job), m_range(job.WantedRange()), m_answer(job.Answer()) {
        m_answer.BeginTable(FrameTable());
        PartAccess_t access = job.Disk().Access();
        m_disk.Init(&access);
        if (job.Wanted().to.empty()) {
            m_range.last =
                std::numeric_limits<uint32_t>::max(); // a block may bear times that no search reaches
        }
        if (!job.Wanted().seek.empty()) {
            m_seek = job.ReadDiskTime(job.Wanted().seek);
        }
    }
    ~Player() { m_disk.Quit(); }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// Plays one channel of a record, on into the block that continues it.
    void PlayRecord(const RecordItem_t& record) {
        if (m_seek && record.flag == kIndexed && record.endTime < *m_seek) {
            return;
        }
        Reader reader(m_disk, 0, record);
        if (m_job.Wanted().iframes) {
            PlayKeyFrames(reader, record);
        } else {
            SeekIn(reader, record);
            PlayOn(reader, record);
        }
    }

    /// Plays every channel of a block, from its first frame to its last.
    void PlayUnit(uint32_t unit) {
        RecordItem_t record = {};
        record.recId = unit << 16;
        record.flag = kWholeBlock;
        Reader reader(m_disk, 1, record);
        FrameInfo_t frame = {};
        int64_t last = 0;
        while (reader.Read(frame) == 0) {
            Show(frame);
            last = std::max(last, SecondsOf(frame)); // recorders may count events in the end that they note
        }
        const auto ends = m_job.Disk().EndsOf(unit);
        if (ends && ends->closed) {
            NoteEarlyEnd(fmt::format("block {}", unit), last, ends->tail.EndTime);
        }
    }

    ExitCode Finish() {
        m_answer.EndTable();
        m_answer.ShowFacts(
            {{"frame_count", "Frames", m_frames}, {"payload_bytes", "Payload", Bytes{m_bytes}}});
        return m_job.Finish();
    }

private:
    bool Hidden(uint32_t channel) const {
        return channel < 32 && (m_job.HiddenChannels() >> channel & 1) != 0;
    }

    void Show(const FrameInfo_t& frame) {
        const bool inRange =
            !IsMedia(frame) || (SecondsOf(frame) >= m_range.first && SecondsOf(frame) <= m_range.last);
        if (!inRange || Hidden(frame.chn)) {
            return;
        }
        m_answer.ShowRow({m_job.TrueInstant(static_cast<int64_t>(frame.pts)), uint64_t{frame.chn},
                          KindOf(frame.type), uint64_t{frame.type}, uint64_t{frame.len}});
        m_lastShown.at(frame.chn % 32) = frame.pts;
        ++m_frames;
        m_bytes += frame.len;
    }

    void SeekIn(Reader& reader, const RecordItem_t& record) {
        if (m_seek && *m_seek > record.startTime && !reader.Seek(*m_seek)) {
            m_job.Note(fmt::format("block {}, channel {}: has no {} to seek by; played from its start",
                                   record.recId >> 16, record.chn,
                                   record.flag == kIndexed ? "key frame" : "index"),
                       kDone);
        }
    }

    void PlayOn(Reader& reader, const RecordItem_t& record) {
        FrameInfo_t frame = {};
        int64_t last = 0;
        // The record before was played on into this one's block, up to the block's first key frame.
        const auto lastShown = static_cast<int64_t>(m_lastShown.at(record.chn % 32));
        bool mayRepeat =
            lastShown / 1000000 >= record.startTime && lastShown / 1000000 <= int64_t{record.endTime} + 1;
        while (reader.Read(frame) == 0) {
            if (IsMedia(frame) && SecondsOf(frame) > m_range.last) {
                return;
            }
            mayRepeat = mayRepeat && frame.type != kKeyFrame && static_cast<int64_t>(frame.pts) <= lastShown;
            if (!mayRepeat) {
                Show(frame);
            }
            // What lies behind the record's end is the next block's.
            last = IsMedia(frame) && SecondsOf(frame) <= record.endTime ? SecondsOf(frame) : last;
        }
        if (record.flag == kIndexed) {
            NoteEarlyEnd(fmt::format("block {}, channel {}", record.recId >> 16, record.chn), last,
                         record.endTime);
        }
    }

    /// Says so when frames end before they should. The result of the last read does not tell: a block that is
    /// full to its end fails to deliver more, and behind damage a reader may go on with the next block.
    void NoteEarlyEnd(const std::string& what, int64_t last, uint32_t end) {
        if (last + 1 < end) {
            const auto text = [this](int64_t time) {
                return m_job.Zone().Text(m_job.TrueTime(static_cast<uint32_t>(time)).seconds);
            };
            const std::string beyond = last == 0 ? "" : " beyond " + text(last);
            m_job.Note(fmt::format(
                           "{}: cannot be played{}, though recorded to {}; `diskaccess export` passes damage",
                           what, beyond, text(end)),
                       kDataLost);
        }
    }

    /// Shows the key frames of a record, from the first or, backwards, from the last.
    void PlayKeyFrames(Reader& reader, const RecordItem_t& record) {
        const bool backward = m_job.Wanted().backward;
        std::vector<FrameInfo_t> frames =
            record.flag == kIndexed ? KeyFramesByIndex(reader) : KeyFramesWithoutIndex(reader);
        if (backward) {
            std::reverse(frames.begin(), frames.end());
        }
        for (const FrameInfo_t& frame : frames) {
            if (!m_seek || (backward ? SecondsOf(frame) <= *m_seek : SecondsOf(frame) >= *m_seek)) {
                Show(frame);
            }
        }
    }

    static std::vector<FrameInfo_t> KeyFramesByIndex(Reader& reader) {
        // The first step leads to the key frame behind the frame at hand, which it passes.
        std::vector<FrameInfo_t> frames;
        FrameInfo_t frame = {};
        if (reader.Read(frame) == 0 && frame.type == kKeyFrame) {
            frames.push_back(frame);
        }
        while (reader.Next(frame) == 0) {
            frames.push_back(frame);
        }
        return frames;
    }

    static std::vector<FrameInfo_t> KeyFramesWithoutIndex(Reader& reader) {
        std::vector<FrameInfo_t> frames;
        FrameInfo_t frame = {};
        while (reader.Read(frame) == 0) {
            if (frame.type == kKeyFrame) {
                frames.push_back(frame);
            }
        }
        return frames;
    }

    Job& m_job;
    CReadDisk m_disk;
    Range m_range;
    std::optional<uint32_t> m_seek;
    Renderer& m_answer;
    std::array<uint64_t, 32> m_lastShown = {}; ///< per channel: time stamp
    uint64_t m_frames = 0;
    uint64_t m_bytes = 0;
};

/// The whole records that the range touches. Cut to it, they would begin with its first key frame, and the
/// frames before that would be left out.
std::vector<RecordItem_t> RecordsToPlay(Job& job) {
    const Range range = job.WantedRange();
    const uint32_t channels = job.WantedChannels();
    // A search leaves out pieces of a second or less, and the record before may lead on into the range.
    Range wider = range;
    wider.first -= std::min(range.first, 3u);
    wider.endOfMedia = std::min(range.endOfMedia, 0x7FFFFFFFu - 2) + 2;
    std::vector<uint32_t> blocks;
    for (const RecordItem_t& record : FindRecords(job, wider)) {
        if (blocks.empty() || blocks.back() != record.recId >> 16) {
            blocks.push_back(record.recId >> 16);
        }
    }
    std::vector<RecordItem_t> records;
    for (const uint32_t block : blocks) {
        CCommList<RecordItem_t> found;
        job.Search().SearchUnitMedia(block, &found, nullptr);
        for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
            const RecordItem_t& record = node->data;
            // A record that ends right before the range leads on into a block that begins in it; and where one of a
            // block that was never closed ends is not known.
            const bool over = record.flag == kIndexed && record.endTime < wider.first;
            if ((channels >> record.chn & 1) != 0 && record.startTime <= range.last && !over) {
                records.push_back(record);
            }
        }
    }
    return records;
}

/// The record that the user named as BLOCK/CHANNEL/SEGMENT.
RecordItem_t NamedRecord(Job& job, const std::string& name) {
    static const std::regex pattern("([0-9]{1,5})/([0-9]{1,2})(/([0-9]{1,3}))?");
    std::smatch parts;
    if (!std::regex_match(name, parts, pattern)) {
        throw WrongUse("--record: '" + name +
                       "' is no record; give BLOCK/CHANNEL/SEGMENT as list shows them, like 3/0/0");
    }
    const auto number = [&](size_t i) {
        return parts[i].matched ? static_cast<uint32_t>(std::stoul(parts[i])) : 0;
    };
    CCommList<RecordItem_t> found;
    job.Search().SearchUnitMedia(number(1), &found, nullptr);
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        const RecordItem_t& record = node->data;
        if (record.chn == number(2) && (record.recId & 0x1FF) == number(4)) {
            return record;
        }
    }
    throw Failure(job.Wanted().partition + ": holds no record " + name + "; list shows those there are");
}

} // namespace

ExitCode Play(Job& job) {
    const Options& wanted = job.Wanted();
    Player player(job);
    if (wanted.unit) {
        if (*wanted.unit >= job.Disk().Head().BlkCount) {
            throw Failure(fmt::format("{}: has {} blocks, from 0 on: there is no block {}", wanted.partition,
                                      job.Disk().Head().BlkCount, *wanted.unit));
        }
        player.PlayUnit(*wanted.unit);
    } else if (!wanted.record.empty()) {
        player.PlayRecord(NamedRecord(job, wanted.record));
    } else {
        std::vector<RecordItem_t> records = RecordsToPlay(job);
        if (records.empty() && TimesMislead(job)) {
            job.AskEveryBlock();
            records = RecordsToPlay(job);
        }
        if (wanted.backward) {
            std::reverse(records.begin(), records.end());
        }
        for (const RecordItem_t& record : records) {
            player.PlayRecord(record);
        }
    }
    return player.Finish();
}

} // namespace diskaccess
