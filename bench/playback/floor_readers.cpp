#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "disk_access.h"
#include "playback/calls.h"
#include "playback/library_disk.h"
#include "playback/reader.h"
#include "sample_recorder/partition_image.h"

namespace playback_bench {

namespace {

using sample_recorder::Error;

void CheckRead(ssize_t got, int64_t wanted) {
    if (got != wanted) {
        throw Error("the partition cannot be read");
    }
}

class BareCallsReader : public Reader {
public:
    BareCallsReader(const FrameSet& set, ReaderPtr reader)
        : m_path(set.File("img")), m_reader(std::move(reader)) {}

    void Prepare() override {
        m_reader->Prepare();
        CountingSink sink;
        NoteCalls(&m_steps);
        m_reader->ReadAll(sink);
        NoteCalls(nullptr);
        m_reader.reset();
        int64_t largest = 0;
        int lastFd = 0;
        for (const CallStep& step : m_steps) {
            largest = std::max(largest, step.kind == CallStep::Read ? step.value : 0);
            lastFd = std::max(lastFd, step.fd);
        }
        m_buffer.resize(static_cast<size_t>(largest));
        m_fds.resize(static_cast<size_t>(lastFd) + 1, -1);
    }

    void ReadAll(FrameSink&) override {
        for (const CallStep& step : m_steps) {
            Repeat(step, m_fds[static_cast<size_t>(step.fd)]);
        }
    }

private:
    /// @param fd the descriptor that stands for the step's
    void Repeat(const CallStep& step, int& fd) {
        switch (step.kind) {
        case CallStep::Open:
            fd = open64(m_path.c_str(), O_RDONLY);
            break;
        case CallStep::Seek:
            lseek64(fd, step.value, SEEK_SET);
            break;
        case CallStep::Read:
            CheckRead(read(fd, m_buffer.data(), static_cast<size_t>(step.value)), step.value);
            break;
        case CallStep::Flush:
            fsync(fd);
            break;
        case CallStep::Close:
            close(fd);
            break;
        }
    }

    std::string m_path;
    ReaderPtr m_reader;
    std::vector<CallStep> m_steps;
    std::vector<int> m_fds; ///< by the numbers of the descriptors that they stand for
    std::vector<uint8_t> m_buffer;
};

class OnePreadReader : public Reader {
public:
    OnePreadReader(const FrameSet& set, Order order)
        : m_set(set), m_fd(open64(set.File("img").c_str(), O_RDONLY | O_CLOEXEC)), m_order(order) {}
    ~OnePreadReader() override { close(m_fd); }
    OnePreadReader(const OnePreadReader&) = delete;
    OnePreadReader& operator=(const OnePreadReader&) = delete;

    void Prepare() override {
        LibraryDisk disk(m_set);
        PartHead_t part = {};
        ReadAt(0, &part, sizeof part);
        for (const uint32_t block : disk.Blocks()) {
            FindFrames(BLOCK_BASE_OFFSET + int64_t{block} * part.BlkSize);
        }
        if (m_order == Order::ChannelByChannel) {
            std::stable_sort(m_frames.begin(), m_frames.end(),
                             [](const Place& a, const Place& b) { return a.channel < b.channel; });
        }
    }

    void ReadAll(FrameSink& sink) override {
        for (const Place& frame : m_frames) {
            ReadAt(frame.offset, m_buffer.data(), frame.size);
            sink.Take({frame.channel, frame.audio, m_buffer.data() + sizeof(FrameHead_t),
                       frame.size - sizeof(FrameHead_t)});
        }
    }

private:
    struct Place {
        int64_t offset;
        uint32_t size; ///< head and payload
        uint32_t channel;
        bool audio;
    };

    void ReadAt(int64_t offset, void* data, uint32_t size) const {
        CheckRead(pread64(m_fd, data, size, offset), size);
    }

    void FindFrames(int64_t block) {
        FrameHead_t head = {};
        int64_t offset = block + int64_t{sizeof(BlockHead_t)};
        for (;;) {
            ReadAt(offset, &head, sizeof head);
            if (head.sync != BLOCK_MAGIC) {
                return;
            }
            const auto size = static_cast<uint32_t>(sizeof head) + head.len;
            m_frames.push_back({offset, size, head.chn, head.type == 2});
            m_buffer.resize(std::max<size_t>(m_buffer.size(), size));
            offset += size;
        }
    }

    const FrameSet& m_set;
    int m_fd;
    Order m_order;
    std::vector<Place> m_frames;
    std::vector<uint8_t> m_buffer;
};

} // namespace

ReaderPtr BareCalls(const FrameSet& set, ReaderPtr reader) {
    return std::make_unique<BareCallsReader>(set, std::move(reader));
}

ReaderPtr OnePread(const FrameSet& set, Order order) {
    return std::make_unique<OnePreadReader>(set, order);
}

} // namespace playback_bench
