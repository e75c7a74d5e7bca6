#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <optional>
#include <regex>

#include "commands.h"
#include "findings.h"
#include "frame_types.h"

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
    int Previous(FrameInfo_t& frame) { return m_disk.ReadPrevIFrame(m_handle, &frame, &m_payload); }
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

Report FrameTable() {
    Report report;
    report.command = "play";
    report.tables = {{"frames",
                      {{"time", "TIME"},
                       {"channel", "CHANNEL"},
                       {"kind", "KIND"},
                       {"type", ""},
                       {"length_bytes", "LENGTH"}},
                      {}}};
    return report;
}

/// Plays records, a line a frame.
class Player {
public:
    explicit Player(Job& job)
        : m_job(job), m_range(job.WantedRange()),
          m_rows(job.Wanted().format, job.Zone(), Table(job), {23, 7, 7, 0, 8}) {
        PartAccess_t access = job.Disk().Access();
        m_disk.Init(&access);
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
        const Options& wanted = m_job.Wanted();
        if (wanted.iframes && record.flag != kIndexed) {
            StepWithoutIndex(reader);
        } else if (wanted.backward) {
            StepBackwards(reader, record);
        } else {
            SeekIn(reader, record);
            if (wanted.iframes) {
                StepForwards(reader);
            } else {
                PlayOn(reader, record);
            }
        }
    }

    /// Plays every channel of a block, from its first frame to its last.
    void PlayUnit(uint32_t unit) {
        RecordItem_t record = {};
        record.recId = unit << 16;
        record.flag = kWholeBlock;
        Reader reader(m_disk, 1, record);
        FrameInfo_t frame = {};
        while (reader.Read(frame) == 0) {
            Show(frame);
        }
    }

    ExitCode Finish() {
        m_job.Write(
            m_rows.End({{"frame_count", "Frames", m_frames}, {"payload_bytes", "Payload", Bytes{m_bytes}}}));
        return m_job.Finish();
    }

private:
    static Report Table(const Job& job) {
        Report report = FrameTable();
        report.partition = Printable(job.Wanted().partition);
        return report;
    }

    bool Hidden(uint32_t channel) const {
        return channel < 32 && (m_job.HiddenChannels() >> channel & 1) != 0;
    }

    void Show(const FrameInfo_t& frame) {
        const bool inRange =
            !IsMedia(frame) || (SecondsOf(frame) >= m_range.first && SecondsOf(frame) <= m_range.last);
        if (!inRange || Hidden(frame.chn)) {
            return;
        }
        m_job.Write(m_rows.Row({m_job.TrueInstant(static_cast<int64_t>(frame.pts)), uint64_t{frame.chn},
                                KindOf(frame.type), uint64_t{frame.type}, uint64_t{frame.len}}));
        m_lastShown.at(frame.chn % 32) = frame.pts;
        ++m_frames;
        m_bytes += frame.len;
    }

    void SeekIn(Reader& reader, const RecordItem_t& record) {
        if (m_seek && *m_seek > record.startTime && !reader.Seek(*m_seek)) {
            m_job.Note(fmt::format("block {}, channel {}: has no index to seek by; played from its start",
                                   record.recId >> 16, record.chn),
                       kDone);
        }
    }

    void PlayOn(Reader& reader, const RecordItem_t& record) {
        FrameInfo_t frame = {};
        int64_t last = 0;
        // A block that was never closed may begin with frames that the record before it was played on into.
        bool mayRepeat = record.flag != kIndexed;
        int result = reader.Read(frame);
        for (; result == 0; result = reader.Read(frame)) {
            if (IsMedia(frame) && SecondsOf(frame) > m_range.last) {
                return;
            }
            mayRepeat = mayRepeat && frame.pts <= m_lastShown.at(record.chn % 32);
            if (!mayRepeat) {
                Show(frame);
            }
            last = IsMedia(frame) ? SecondsOf(frame) : last;
        }
        // A block that is full to its end fails to deliver more, too: what counts is whether all was seen.
        if (result < 0 && record.flag == kIndexed && last + 1 < record.endTime) {
            m_job.Note(fmt::format("block {}, channel {}: cannot be played beyond {}, though recorded to {}; "
                                   "`diskaccess export` passes damage",
                                   record.recId >> 16, record.chn,
                                   m_job.Zone().Text(m_job.TrueTime(static_cast<uint32_t>(last)).seconds),
                                   m_job.Zone().Text(m_job.TrueTime(record.endTime).seconds)),
                       kDataLost);
        }
    }

    void StepForwards(Reader& reader) {
        // The first step leads to the I-frame behind the frame at hand, which it passes.
        FrameInfo_t frame = {};
        if (reader.Read(frame) == 0 && frame.type == kKeyFrame) {
            Show(frame);
        }
        while (reader.Next(frame) == 0 && SecondsOf(frame) <= m_range.last) {
            Show(frame);
        }
    }

    /// Steps through a block that was never closed, frame by frame.
    void StepWithoutIndex(Reader& reader) {
        std::vector<FrameInfo_t> iframes;
        FrameInfo_t frame = {};
        while (reader.Read(frame) == 0) {
            if (frame.type == kKeyFrame) {
                iframes.push_back(frame);
            }
        }
        if (m_job.Wanted().backward) {
            std::reverse(iframes.begin(), iframes.end());
        }
        for (const FrameInfo_t& iframe : iframes) {
            Show(iframe);
        }
    }

    /// Shows the I-frames from the record's last (or that of the seek) to its first.
    void StepBackwards(Reader& reader, const RecordItem_t& record) {
        const int64_t from = m_seek ? std::min<int64_t>(*m_seek, record.endTime) : record.endTime;
        FrameInfo_t last = {};
        if (!reader.Seek(from) || reader.Read(last) != 0) {
            return;
        }
        // A step back needs a later I-frame to start at: the one before the last leads to the last.
        FrameInfo_t before = last;
        for (int64_t time = SecondsOf(last) - 1;
             before.pts == last.pts && time >= int64_t{record.startTime} - 1; --time) {
            if (!reader.Seek(time) || reader.Read(before) != 0) {
                return;
            }
        }
        if (before.pts == last.pts) {
            Show(last);
            return;
        }
        FrameInfo_t frame = {};
        while (reader.Previous(frame) == 0) {
            Show(frame);
        }
    }

    Job& m_job;
    CReadDisk m_disk;
    Range m_range;
    std::optional<uint32_t> m_seek;
    TableStream m_rows;
    std::array<uint64_t, 32> m_lastShown = {}; ///< per channel: time stamp
    uint64_t m_frames = 0;
    uint64_t m_bytes = 0;
};

/// The whole records that the range touches. Cut to it, they would begin with its first key frame, and the
/// frames before that would be left out.
std::vector<RecordItem_t> RecordsToPlay(Job& job) {
    const Range range = job.WantedRange();
    const uint32_t channels = job.WantedChannels();
    // A search leaves out pieces of a second or less.
    Range wider = range;
    wider.first -= std::min(range.first, 2u);
    wider.endOfMedia = std::min(range.endOfMedia, 0x7FFFFFFFu - 2) + 2;
    std::vector<uint32_t> blocks;
    for (const RecordItem_t& record : FindRecords(job, wider, 0, AlarmTags(job, {}, false))) {
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
            if ((channels >> record.chn & 1) != 0 && record.startTime <= range.last &&
                record.endTime >= range.first) {
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
