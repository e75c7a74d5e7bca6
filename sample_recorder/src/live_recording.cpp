#include "sample_recorder/live_recording.h"

#include <thread>

#include "sample_recorder/partition_image.h"

namespace sample_recorder {

namespace {

constexpr auto kBreath = std::chrono::milliseconds(10);

} // namespace

LiveRecording::LiveRecording(Recorder& recorder, FrameSource& source, double speed, Clock::time_point begin)
    : m_recorder(recorder), m_source(source), m_speed(speed), m_begin(begin) {
    if (!(speed > 0)) {
        throw Error("a live recording needs a speed above 0");
    }
    if (Fetch()) {
        m_firstPts = m_next.pts;
    }
}

void LiveRecording::RepeatEvents(uint32_t seconds, uint32_t channel) {
    m_eventPeriod = int64_t{seconds} * kMicrosPerSecond;
    m_nextEvent = m_firstPts + m_eventPeriod;
    m_eventChannel = channel;
}

bool LiveRecording::Fetch() {
    m_more = m_source.Next(m_next);
    return m_more;
}

LiveRecording::Clock::time_point LiveRecording::DueTime(int64_t pts) const {
    const std::chrono::duration<double, std::micro> recorded(static_cast<double>(pts - m_firstPts) / m_speed);
    return m_begin + std::chrono::duration_cast<Clock::duration>(recorded);
}

void LiveRecording::WriteEventBefore(int64_t pts) {
    while (m_eventPeriod > 0 && m_nextEvent <= pts) {
        m_recorder.WriteEvent(m_nextEvent, uint64_t{1} << m_events % 8, m_eventChannel);
        ++m_events;
        m_nextEvent += m_eventPeriod;
    }
}

void LiveRecording::WriteNext() {
    WriteEventBefore(m_next.pts);
    m_recorder.Write(m_next);
    ++m_frames;
    Fetch();
}

bool LiveRecording::WriteDue(Clock::time_point now) {
    while (m_more && DueTime(m_next.pts) <= now) {
        WriteNext();
    }
    return m_more;
}

void LiveRecording::Run(const std::function<bool()>& stop) {
    while (m_more && !stop()) {
        if (DueTime(m_next.pts) <= Clock::now()) {
            WriteNext();
        } else {
            std::this_thread::sleep_for(kBreath);
        }
    }
}

} // namespace sample_recorder
