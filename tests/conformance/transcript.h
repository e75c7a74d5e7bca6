#ifndef TESTS_CONFORMANCE_TRANSCRIPT_H
#define TESTS_CONFORMANCE_TRANSCRIPT_H

/// @file transcript.h
/// Writes down what the library answers, on standard output, where the library's own messages stand in between.
/// Everything that is written is the same on every target: numbers of fixed width, no addresses.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "disk_access.h"

namespace conformance {

using RecordList = CCommList<RecordItem_t>;
using EventList = CCommList<EventItem_t>;
using UnitList = CCommList<UnitItem_t>;
using DayList = CCommList<unsigned int>;

/// Random numbers that only depend on a text. (The standard distributions differ from library to library.)
class Random {
public:
    explicit Random(const std::string& seed);

    uint32_t Word() { return static_cast<uint32_t>(m_engine()); }
    /// Two words; a function of its own, since compilers choose the order in which operands are evaluated.
    uint64_t TwoWords() {
        const uint64_t high = Word();
        return high << 32 | Word();
    }
    uint32_t Below(uint32_t limit) { return Word() % limit; }
    template <typename T>
    const T& Of(const std::vector<T>& choices) {
        return choices[Below(static_cast<uint32_t>(choices.size()))];
    }

private:
    std::mt19937 m_engine;
};

/// FNV-1a, 64 bits.
uint64_t Digest(const void* data, size_t size);

/// A record that an operation is to fill: what it leaves alone shows as 0xA5.
template <typename Record>
Record Blank() {
    Record record;
    std::memset(static_cast<void*>(&record), 0xA5, sizeof record);
    return record;
}

/// Seconds in a caller's `long`: on a 64-bit host a time after 2038 is a large positive number, on a 32-bit host
/// a negative one. The library takes both for the same.
constexpr long Long(uint32_t seconds) {
    return static_cast<long>(seconds);
}

/// Writes a line that is no call's outcome.
void Note(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes one call, described by @p format, and what it returned.
/// @return the result
long long Result(long long result, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Calls written so far.
size_t CallsMade();

void Show(const RecordItem_t& record);
void Show(const EventItem_t& event);
void Show(const UnitItem_t& unit);
void Show(const UnitTimeItem_t& unit);
void Show(unsigned int value);
void Show(const OutputTime_t& region);
void Show(const DiskSpaceInfo_t& space);
void Show(const BlockHead_t& head);
void Show(const BlkExtHead_t& head);
void Show(const BlockTail_t& tail);
void Show(const BlockTailEx_t& tail);
void Show(const RecSegItem_t& segment);
void Show(const FrameHead_t& frame);
void Show(const FrameInfo_t& frame);
void Show(const EncodeParam_t& parameters);
void Show(const PartReadHandle_st& reader);

/// Writes that of a list the digest stands for what is left out.
void ShowDigest(size_t count, uint64_t digest);

/// Writes a list, in the middle of a long one no more than a digest, and empties it.
template <typename T>
void Show(CCommList<T>& list) {
    constexpr int kShown = 12;
    std::vector<uint8_t> bytes;
    int index = 0;
    for (const auto* node = list.m_pHead; node != nullptr; node = node->pNext, ++index) {
        if (index < kShown || index >= list.m_nCount - 2) {
            Show(node->data);
        }
        const auto* const raw = reinterpret_cast<const uint8_t*>(&node->data);
        bytes.insert(bytes.end(), raw, raw + sizeof node->data);
    }
    if (index > kShown || index != list.m_nCount) {
        ShowDigest(static_cast<size_t>(index), Digest(bytes.data(), bytes.size()));
    }
    list.RemoveAll();
}

/// A caller's payload buffer.
class Payload {
public:
    Payload() = default;
    ~Payload();
    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    void** Place() { return &m_buffer; }
    /// Writes a read's result, the frame's fields if they changed, and the digest of a payload delivered.
    /// @return whether it delivered a frame
    template <typename Frame>
    bool Show(int result, const char* operation, const Frame& frame) {
        Result(result, "%s", operation);
        const uint64_t fields = Digest(&frame, sizeof frame);
        if (result == 0 || fields != m_fields) {
            conformance::Show(frame);
            m_fields = fields;
        }
        if (result == 0) {
            ShowBytes(frame.len);
        }
        return result == 0;
    }

private:
    void ShowBytes(uint32_t length) const;

    void* m_buffer = nullptr;
    uint64_t m_fields = 0; ///< digest of those written last
};

} // namespace conformance

#endif // TESTS_CONFORMANCE_TRANSCRIPT_H
