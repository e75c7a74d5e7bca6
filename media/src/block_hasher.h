#ifndef MEDIA_SRC_BLOCK_HASHER_H
#define MEDIA_SRC_BLOCK_HASHER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <mutex>

#include "media/provenance.h"
#include "recordings/disk.h"
#include "worker.h"

namespace media {

/// Hashes whole blocks on a thread of its own, while their frames are worked on. It reads what was just read: memory
/// has it still.
class BlockHasher {
public:
    /// @param disk must outlive the object
    /// @param whileWaiting called several times a second while the thread is waited for; it throws to end the work
    BlockHasher(const recordings::Disk& disk, std::function<void()> whileWaiting);
    /// Ends what the thread does.
    ~BlockHasher();
    BlockHasher(const BlockHasher&) = delete;
    BlockHasher& operator=(const BlockHasher&) = delete;

    /// Has a block hashed, once. Waits when the thread is far behind.
    void Add(uint32_t block);
    /// Waits for the thread.
    /// @return the digests, by number of the block
    std::map<uint32_t, AreaDigest> Finish();

private:
    void Hash(uint32_t block, uint64_t offset);
    void AwaitAtMost(size_t pending);

    const recordings::Disk& m_disk;
    std::function<void()> m_whileWaiting;
    std::atomic<bool> m_ending{false};
    std::mutex m_mutex;
    std::condition_variable m_done;
    size_t m_pending = 0;
    std::map<uint32_t, AreaDigest> m_digests; ///< those under way have no text yet
    std::exception_ptr m_error;
    Worker m_worker; ///< ends first
};

} // namespace media

#endif // MEDIA_SRC_BLOCK_HASHER_H
