#include "faults/transcript.h"

#include <malloc.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "faults/media.h"
#include "playback/part_fixture.h"

namespace test_support {

namespace {

/// Whether times are such as a block of the disks for searches or for playback holds.
bool LieInBlock(uint32_t block, uint32_t start, uint32_t end) {
    const uint32_t first = SearchStart(SearchSequence(block));
    const bool ofSearchDisk = first <= start && end <= first + kSearchSpan;
    const bool ofPlayDisk = kPlayStart <= start && end <= kPlayEnd;
    return start <= end && (ofSearchDisk || ofPlayDisk);
}

} // namespace

void Transcript::Clear() {
    m_text[0] = '\0';
    m_length = 0;
    m_broken = nullptr;
}

void Transcript::Add(const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(m_text + m_length, sizeof m_text - m_length, format, values);
    va_end(values);
    Require(length >= 0 && static_cast<size_t>(length) < sizeof m_text - m_length, "room for the transcript");
    m_length = std::min(m_length + static_cast<size_t>(std::max(length, 0)), sizeof m_text - 1);
}

void Transcript::Require(bool holds, const char* condition) {
    if (!holds && m_broken == nullptr) {
        m_broken = condition;
    }
}

int Transcript::Result(const char* call, int result, int lowest, int highest) {
    Add("%s %d\n", call, result);
    Require(lowest <= result && result <= highest, call);
    return result;
}

void Transcript::AddItem(const RecordItem_t& record) {
    Require(record.chn < 32 && record.chn == (record.recId >> 9 & 0x7F), "a record's channel");
    Require(record.flag <= 2, "a record's flag");
    Require(LieInBlock(record.recId >> 16, record.startTime, record.endTime), "a record's times");
    Add("  %u/%u/%u %u-%u size %u alarm %llx flag %u\n", record.recId >> 16, record.chn, record.recId & 0x1FF,
        record.startTime, record.endTime, record.size, static_cast<unsigned long long>(record.alarmType),
        record.flag);
}

void Transcript::AddItem(const EventItem_t& event) {
    Require(LieInBlock(event.eventId >> 16, event.time, event.time), "an event's time");
    Add("  %u/%u %u type %llx\n", event.eventId >> 16, event.eventId & 0xFFFF, event.time,
        static_cast<unsigned long long>(event.alarmType));
}

void Transcript::AddItem(const UnitItem_t& unit) {
    Require(unit.recTime == 0 || unit.recTime == SearchStart(SearchSequence(unit.unitId)), "a unit's time");
    Add("  unit %u %u\n", unit.unitId, unit.recTime);
}

void Transcript::AddItem(unsigned int day) {
    constexpr uint32_t kSecondsADay = 86400;
    const bool recorded = SearchStart(3) < day + kSecondsADay && day <= SearchStart(9);
    Require(day % kSecondsADay == 1 && recorded, "a recorded day's start");
    Add("  day %u\n", day);
}

FrameSink::~FrameSink() {
    std::free(m_payload);
}

FrameInfo_t FrameSink::Untouched() {
    FrameInfo_t info;
    std::memset(&info, 0xEE, sizeof info);
    return info;
}

bool FrameSink::Note(const char* call, int result, const FrameInfo_t& info) {
    m_transcript.Result(call, result, -1, 2);
    if (result == 0) {
        m_transcript.Add("  type %u channel %u second %lld, %u bytes\n", info.type, info.chn,
                         static_cast<long long>(info.pts / 1000000), info.len);
        m_transcript.Require(PayloadFits(info, m_payload), "a frame's own payload");
    } else {
        const FrameInfo_t untouched = Untouched();
        m_transcript.Require(std::memcmp(&info, &untouched, sizeof info) == 0,
                             "only a frame fills the caller's");
    }
    // The buffer is null or the caller's to use, from its first byte to its last.
    if (const size_t size = malloc_usable_size(m_payload)) {
        std::memset(m_payload, 0xAB, size);
    }
    return result == 0;
}

} // namespace test_support
