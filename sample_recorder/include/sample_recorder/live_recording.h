#ifndef SAMPLE_RECORDER_LIVE_RECORDING_H
#define SAMPLE_RECORDER_LIVE_RECORDING_H

#include <chrono>
#include <cstdint>
#include <functional>

#include "sample_recorder/frame.h"
#include "sample_recorder/recorder.h"

namespace sample_recorder {

/// Records as time goes by: each frame is written when its time has come, not before. For readers that search
/// and play while the recorder writes.
///
/// The order on the disk is the recorder's: a block's head first, then its frames, and when it is full its index
/// and its tail. Then comes the next block of the ring, round and round.
class LiveRecording {
public:
    using Clock = std::chrono::steady_clock;

    /// @param source frames in the order of their time stamps
    /// @param speed  recorded seconds a second of real time, above 0
    /// @param begin  when the first frame is due
    LiveRecording(Recorder& recorder, FrameSource& source, double speed,
                  Clock::time_point begin = Clock::now());

    /// Also writes an event every so many recorded seconds, of the types of the low eight bits in turn.
    void RepeatEvents(uint32_t seconds, uint32_t channel);

    /// Writes the frames that are due by @p now, all of them if the writer fell behind.
    /// @return false when the source has no more
    bool WriteDue(Clock::time_point now);

    /// Goes on until the source has no more, or @p stop says so; it is asked before each frame, and a hundred
    /// times a second while there is none to write.
    void Run(const std::function<bool()>& stop);

    uint64_t FramesWritten() const { return m_frames; }

private:
    bool Fetch();
    Clock::time_point DueTime(int64_t pts) const;
    void WriteEventBefore(int64_t pts);
    void WriteNext();

    Recorder& m_recorder;
    FrameSource& m_source;
    double m_speed;
    Clock::time_point m_begin;
    int64_t m_firstPts = 0;
    Frame m_next;
    bool m_more = false;
    uint64_t m_frames = 0;
    int64_t m_eventPeriod = 0; ///< microseconds; 0: no events
    int64_t m_nextEvent = 0;
    uint32_t m_eventChannel = 0;
    uint32_t m_events = 0;
};

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_LIVE_RECORDING_H
