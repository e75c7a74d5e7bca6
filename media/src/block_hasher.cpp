#include "block_hasher.h"

#include <chrono>
#include <utility>

#include "recordings/error.h"

namespace media {

namespace {

/// Blocks that may wait for the thread.
constexpr size_t kMostBehind = 2;
constexpr std::chrono::milliseconds kAskAgain(100);

} // namespace

BlockHasher::BlockHasher(const recordings::Disk& disk, std::function<void()> whileWaiting)
    : m_disk(disk), m_whileWaiting(std::move(whileWaiting)) {}

BlockHasher::~BlockHasher() {
    m_ending = true;
}

void BlockHasher::Add(uint32_t block) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_digests.emplace(block, AreaDigest()).second) {
            return;
        }
        ++m_pending;
    }
    m_worker.Post([this, block, offset = m_disk.StartOf(block)] { Hash(block, offset); });
    AwaitAtMost(kMostBehind);
}

std::map<uint32_t, AreaDigest> BlockHasher::Finish() {
    AwaitAtMost(0);
    return std::move(m_digests);
}

void BlockHasher::Hash(uint32_t block, uint64_t offset) try {
    AreaDigest digest = HashArea(m_disk.Bytes(), offset, m_disk.Facts().blockSize,
                                 [this](const recordings::Progress&) { return !m_ending; });
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_digests[block] = std::move(digest);
        --m_pending;
    }
    m_done.notify_one();
} catch (...) {
    // Memory is short; or the object is ending, and nobody waits.
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_error = std::current_exception();
    }
    m_done.notify_one();
}

void BlockHasher::AwaitAtMost(size_t pending) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto done = [this, pending] { return m_pending <= pending || m_error; };
    while (!m_done.wait_for(lock, kAskAgain, done)) {
        if (m_whileWaiting) {
            lock.unlock();
            m_whileWaiting();
            lock.lock();
        }
    }
    if (m_error) {
        std::rethrow_exception(m_error);
    }
}

} // namespace media
