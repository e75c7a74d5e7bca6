#ifndef TESTS_FAULTS_TRANSCRIPT_H
#define TESTS_FAULTS_TRANSCRIPT_H

/// @file transcript.h
/// What a scenario's calls gave, as text, and whether it was within what they may give at all. Nothing here
/// allocates: allocations may fail at that time.

#include <cstddef>
#include <new>

#include "disk_access.h"

namespace test_support {

class Transcript {
public:
    void Clear();
    void Add(const char* format, ...) __attribute__((format(printf, 2, 3)));
    const char* Text() const { return m_text; }

    /// Notes the first condition that does not hold.
    void Require(bool holds, const char* condition);
    /// The condition that did not hold, or null.
    const char* Broken() const { return m_broken; }

    /// A result, which must lie between two others.
    int Result(const char* call, int result, int lowest, int highest);

    /// Runs a search that appends to a list and returns how many it appended, or -1. What a list node without
    /// memory throws ends the search.
    template <typename T, typename Search>
    void Appended(const char* call, Search search) {
        CCommList<T> list;
        int result = 0;
        const bool returned = Returns([&] { result = search(&list); });
        Take(call, list);
        if (returned) {
            Add("%s %d\n", call, result);
            Require(result >= -1 && (result > 0 ? result : 0) == list.m_nCount,
                    "the count is that of the list");
        }
    }

    /// Adds a list's elements, and checks its links.
    template <typename T>
    void Take(const char* call, const CCommList<T>& list) {
        int count = 0;
        const CCommListNode<T>* last = nullptr;
        for (const auto* node = list.m_pHead; node != nullptr; node = node->pNext) {
            Require(node->pPrev == last, "a node's link back");
            last = node;
            ++count;
            AddItem(node->data);
        }
        Require(list.m_pTail == last && list.m_nCount == count, "a list's end and count");
        Add("%s: %d listed\n", call, count);
    }

    /// Runs a call that may throw for want of memory.
    /// @return whether it returned
    template <typename Call>
    bool Returns(Call call) {
        try {
            call();
            return true;
        } catch (const std::bad_alloc&) {
            Add("no memory\n");
            return false;
        }
    }

private:
    void AddItem(const RecordItem_t& record);
    void AddItem(const EventItem_t& event);
    void AddItem(const UnitItem_t& unit);
    void AddItem(unsigned int day);

    char m_text[0x4000] = "";
    size_t m_length = 0;
    const char* m_broken = nullptr;
};

/// What a playback delivers, and the caller's payload buffer.
class FrameSink {
public:
    explicit FrameSink(Transcript& transcript) : m_transcript(transcript) {}
    ~FrameSink();
    FrameSink(const FrameSink&) = delete;
    FrameSink& operator=(const FrameSink&) = delete;

    /// Takes one frame: @p read is a call with a FrameInfo_t* and the payload's void**.
    /// @return whether there was one
    template <typename Read>
    bool Take(const char* call, Read read) {
        FrameInfo_t info = Untouched();
        return Note(call, read(&info, &m_payload), info);
    }
    /// Takes frames until one call gives none.
    template <typename Read>
    void TakeAll(const char* call, Read read) {
        for (int i = 0; i < 30 && Take(call, read); ++i) {
        }
    }

private:
    static FrameInfo_t Untouched();
    bool Note(const char* call, int result, const FrameInfo_t& info);

    Transcript& m_transcript;
    void* m_payload = nullptr;
};

} // namespace test_support

#endif // TESTS_FAULTS_TRANSCRIPT_H
