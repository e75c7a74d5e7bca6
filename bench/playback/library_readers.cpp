#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "disk_access.h"
#include "playback/library_disk.h"
#include "playback/reader.h"

namespace playback_bench {

namespace {

constexpr uint32_t kAudioFrame = 2;

void Deliver(FrameSink& sink, const FrameInfo_t& frame, const void* payload) {
    sink.Take({frame.chn, frame.type == kAudioFrame, static_cast<const uint8_t*>(payload), frame.len});
}

/// The buffer that the library delivers payloads in.
class PayloadBuffer {
public:
    PayloadBuffer() = default;
    ~PayloadBuffer() { std::free(m_payload); }
    PayloadBuffer(const PayloadBuffer&) = delete;
    PayloadBuffer& operator=(const PayloadBuffer&) = delete;
    void** Place() { return &m_payload; }
    const void* Payload() const { return m_payload; }

private:
    void* m_payload = nullptr;
};

/// Readers of records, one after the other.
class RecordReader : public Reader {
public:
    RecordReader(const FrameSet& set, Order order) : m_disk(set), m_order(order) {}

    void Prepare() override {
        m_disk.Open();
        m_records = m_disk.Records();
        if (m_order == Order::AsRecorded) {
            MakeBlockRecords();
        } else {
            std::stable_sort(m_records.begin(), m_records.end(),
                             [](const RecordItem_t& a, const RecordItem_t& b) { return a.chn < b.chn; });
        }
    }

    void ReadAll(FrameSink& sink) override {
        PayloadBuffer buffer;
        FrameInfo_t frame = {};
        for (RecordItem_t& record : m_records) {
            void* const reader = m_disk->StartRead(m_order == Order::AsRecorded ? 1 : 0, &record);
            while (m_disk->ReadFrame(reader, &frame, buffer.Place()) == 0) {
                Deliver(sink, frame, buffer.Payload());
            }
            m_disk->StopRead(reader);
        }
    }

private:
    /// A record of the whole block for each.
    void MakeBlockRecords() {
        m_records.clear();
        for (const uint32_t block : m_disk.Blocks()) {
            RecordItem_t record = {};
            record.recId = block << 16;
            record.flag = 1;
            m_records.push_back(record);
        }
    }

    LibraryDisk m_disk;
    Order m_order;
    std::vector<RecordItem_t> m_records;
};

class LargeHeapReader : public RecordReader {
public:
    explicit LargeHeapReader(const FrameSet& set) : RecordReader(set, Order::AsRecorded) {}

    void Prepare() override {
        mallopt(M_MMAP_THRESHOLD, kLargestBuffer);
        mallopt(M_TRIM_THRESHOLD, kLargestBuffer);
        RecordReader::Prepare();
    }

private:
    static constexpr int kLargestBuffer = 0x1000000;
};

class UnitReader : public Reader {
public:
    explicit UnitReader(const FrameSet& set) : m_disk(set) {}

    void Prepare() override {
        m_disk.Open();
        m_blocks = m_disk.Blocks();
    }

    void ReadAll(FrameSink& sink) override {
        PayloadBuffer buffer;
        FrameInfo_t frame = {};
        for (const uint32_t block : m_blocks) {
            void* const reader = m_disk->StartUnitRead(static_cast<int>(block));
            while (m_disk->ReadUnitFrame(reader, &frame, buffer.Place()) == 0) {
                Deliver(sink, frame, buffer.Payload());
            }
            m_disk->StopUnitRead(reader);
        }
    }

private:
    LibraryDisk m_disk;
    std::vector<uint32_t> m_blocks;
};

} // namespace

ReaderPtr LibraryReader(const FrameSet& set, Order order) {
    return std::make_unique<RecordReader>(set, order);
}

ReaderPtr LibraryReaderWithLargeHeap(const FrameSet& set) {
    return std::make_unique<LargeHeapReader>(set);
}

ReaderPtr LibraryUnitReader(const FrameSet& set) {
    return std::make_unique<UnitReader>(set);
}

} // namespace playback_bench
