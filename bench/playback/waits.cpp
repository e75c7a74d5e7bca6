#include "playback/waits.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>

#include "playback/calls.h"
#include "playback/container_file.h"
#include "playback/in_child.h"
#include "playback/library_disk.h"
#include "playback/measure.h"
#include "sample_recorder/partition_image.h"

namespace playback_bench {

namespace {

using sample_recorder::Error;

constexpr uint32_t kChannel = 1;       // its number in the containers, too
constexpr uint32_t kLastKeyFrames = 5; // seconds with two of them at least

/// Adds the time that an operation takes.
template <typename Action>
void Time(Waits& waits, const Action& action) {
    const double flushBefore = CallsSoFar().flushSeconds;
    const auto begin = std::chrono::steady_clock::now();
    const bool done = action();
    const std::chrono::duration<double, std::micro> elapsed = std::chrono::steady_clock::now() - begin;
    if (!done) {
        throw Error("an operation that is measured failed");
    }
    waits.all.push_back(elapsed.count());
    waits.unflushed.push_back(elapsed.count() - (CallsSoFar().flushSeconds - flushBefore) * 1e6);
}

/// Takes the last one back.
void Untime(Waits& waits) {
    waits.all.pop_back();
    waits.unflushed.pop_back();
}

/// The same random seconds of a set for all.
class RandomSeconds {
public:
    explicit RandomSeconds(const FrameSet& set)
        : m_seconds(static_cast<uint32_t>(set.start / 1000000), static_cast<uint32_t>(set.end / 1000000)) {}
    uint32_t Next() { return m_seconds(m_engine); }

private:
    std::mt19937 m_engine{1};
    std::uniform_int_distribution<uint32_t> m_seconds;
};

/// A channel's records, and a reader on each if wanted.
class Player {
public:
    explicit Player(const FrameSet& set) : m_disk(set) {
        m_disk.Open();
        for (const RecordItem_t& record : m_disk.Records()) {
            if (record.chn == kChannel) {
                m_records.push_back(record);
            }
        }
        m_readers.resize(m_records.size(), nullptr);
    }
    ~Player() {
        for (size_t i = 0; i < m_records.size(); ++i) {
            Stop(i);
        }
        std::free(m_payload);
    }
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    size_t Records() const { return m_records.size(); }

    /// The last record that begins at or before a time.
    size_t RecordAt(uint32_t second) const {
        const auto behind = std::upper_bound(
            m_records.begin() + 1, m_records.end(), second,
            [](uint32_t time, const RecordItem_t& record) { return time < record.startTime; });
        return static_cast<size_t>(behind - m_records.begin()) - 1;
    }

    bool Start(size_t record) {
        m_readers[record] = m_disk->StartRead(0, &m_records[record]);
        return m_readers[record] != nullptr;
    }
    void Stop(size_t record) {
        m_disk->StopRead(m_readers[record]);
        m_readers[record] = nullptr;
    }
    void StartAll() {
        for (size_t i = 0; i < m_records.size(); ++i) {
            Start(i);
        }
    }

    bool SeekAndRead(size_t record, uint32_t second) {
        long time = static_cast<long>(second);
        return m_disk->SeekTime(m_readers[record], &time) == 0 &&
               m_disk->ReadFrame(m_readers[record], &m_frame, &m_payload) == 0;
    }

    /// Moves a reader to where a way lies before it in which it can step.
    void MoveBeforeSteps(size_t record, bool forwards) {
        const RecordItem_t& item = m_records[record];
        long time = static_cast<long>(forwards ? item.startTime : item.endTime - kLastKeyFrames);
        m_disk->SeekTime(m_readers[record], &time);
    }

    /// @return as CReadDisk's steps
    int Step(size_t record, bool forwards) {
        return forwards ? m_disk->ReadNextIFrame(m_readers[record], &m_frame, &m_payload)
                        : m_disk->ReadPrevIFrame(m_readers[record], &m_frame, &m_payload);
    }

private:
    LibraryDisk m_disk;
    std::vector<RecordItem_t> m_records;
    std::vector<void*> m_readers;
    FrameInfo_t m_frame = {};
    void* m_payload = nullptr;
};

Waits SeeksInOpenReaders(const FrameSet& set) {
    Player player(set);
    player.StartAll();
    RandomSeconds seconds(set);
    Waits waits;
    while (waits.all.size() < kTimes) {
        const uint32_t second = seconds.Next();
        const size_t record = player.RecordAt(second);
        Time(waits, [&] { return player.SeekAndRead(record, second); });
    }
    return waits;
}

Waits SeeksOnTheWholeDisk(const FrameSet& set) {
    Player player(set);
    RandomSeconds seconds(set);
    Waits waits;
    while (waits.all.size() < kTimes) {
        const uint32_t second = seconds.Next();
        Time(waits, [&] {
            const size_t record = player.RecordAt(second);
            const bool done = player.Start(record) && player.SeekAndRead(record, second);
            player.Stop(record);
            return done;
        });
    }
    return waits;
}

Waits SeeksInContainer(const FrameSet& set, const std::string& ending, bool parsers) {
    ContainerFile file(set.File(ending), parsers, kChannel);
    RandomSeconds seconds(set);
    Waits waits;
    while (waits.all.size() < kTimes) {
        const int64_t micros = int64_t{seconds.Next()} * 1000000 - set.start;
        Time(waits, [&] { return file.Seek(kChannel, micros) && file.Next() != nullptr; });
    }
    return waits;
}

/// Steps through one record after the other. The first step in each is not timed: it also finds out where the
/// reader stands.
Waits Steps(const FrameSet& set, bool forwards) {
    Player player(set);
    player.StartAll();
    Waits waits;
    for (size_t record = 0; waits.all.size() < kTimes; record = (record + 1) % player.Records()) {
        player.MoveBeforeSteps(record, forwards);
        player.Step(record, forwards);
        int result = 0;
        while (result == 0) {
            Time(waits, [&] {
                result = player.Step(record, forwards);
                return result == 0 || result == 1;
            });
        }
        Untime(waits); // the one that found no further frame
    }
    return waits;
}

Waits Starts(const FrameSet& set) {
    Player player(set);
    Waits waits;
    for (size_t record = 0; waits.all.size() < kTimes; record = (record + 1) % player.Records()) {
        Time(waits, [&] { return player.Start(record); });
        player.Stop(record);
    }
    return waits;
}

Waits Stops(const FrameSet& set) {
    Player player(set);
    Waits waits;
    for (size_t record = 0; waits.all.size() < kTimes; record = (record + 1) % player.Records()) {
        player.Start(record);
        Time(waits, [&] {
            player.Stop(record);
            return true;
        });
    }
    return waits;
}

Wait WaitOf(const Waits& waits) {
    return {Quantile(waits.all, 0.5), Quantile(waits.all, 0.99), Quantile(waits.unflushed, 0.5),
            Quantile(waits.unflushed, 0.99)};
}

/// Median of one value of all rounds.
double MedianOf(const std::vector<Wait>& rounds, double Wait::*value) {
    std::vector<double> values;
    values.reserve(rounds.size());
    for (const Wait& round : rounds) {
        values.push_back(round.*value);
    }
    return Quantile(values, 0.5);
}

} // namespace

std::vector<Operation> Operations(const FrameSet& set) {
    std::vector<Operation> operations = {
        {"library: SeekTime, ReadFrame", [&] { return SeeksInOpenReaders(set); }},
        {"library: StartRead, SeekTime, ReadFrame, StopRead", [&] { return SeeksOnTheWholeDisk(set); }},
    };
    for (const char* ending : {"mkv", "mp4"}) {
        for (const bool parsers : {true, false}) {
            operations.push_back(
                {std::string("libavformat: av_seek_frame, av_read_frame, ") + ending +
                     (parsers ? "" : ", no parsers"),
                 [&set, ending, parsers] { return SeeksInContainer(set, ending, parsers); }});
        }
    }
    operations.push_back({"library: ReadNextIFrame", [&] { return Steps(set, true); }});
    operations.push_back({"library: ReadPrevIFrame", [&] { return Steps(set, false); }});
    operations.push_back({"library: StartRead", [&] { return Starts(set); }});
    operations.push_back({"library: StopRead", [&] { return Stops(set); }});
    return operations;
}

std::vector<Wait> MeasureWaits(const std::vector<Operation>& operations, int rounds) {
    std::vector<std::vector<Wait>> results(operations.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < operations.size(); ++i) {
            results[i].push_back(InChild([&] { return WaitOf(operations[i].run()); }));
        }
    }
    std::vector<Wait> waits;
    waits.reserve(operations.size());
    for (const std::vector<Wait>& result : results) {
        waits.push_back({MedianOf(result, &Wait::median), MedianOf(result, &Wait::p99),
                         MedianOf(result, &Wait::medianUnflushed), MedianOf(result, &Wait::p99Unflushed)});
    }
    return waits;
}

} // namespace playback_bench
