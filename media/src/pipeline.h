#ifndef MEDIA_SRC_PIPELINE_H
#define MEDIA_SRC_PIPELINE_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "worker.h"

namespace media {

/// Called several times a second while something is waited for. It throws to end the waiting.
using WhileWaiting = std::function<void()>;

/// A piece of a file on its way to the disk and into the digest.
struct Chunk {
    static constexpr size_t kSize = 0x40000; ///< a quarter of what a core keeps close to it

    std::unique_ptr<uint8_t[]> bytes{new uint8_t[kSize]};
    size_t size = 0;
    bool admitted = false;
};

/// What the files of an export share: a thread that writes, one that hashes, and the chunks that go through them. Only
/// so many chunks are under way at a time: memory stays flat, and reading waits for writing and hashing.
class Pipeline {
public:
    explicit Pipeline(WhileWaiting whileWaiting = {});
    /// Jobs that have not begun are dropped.
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    /// An empty chunk.
    std::shared_ptr<Chunk> TakeChunk();
    /// Waits until a chunk may set out. Its place is free again when nobody holds it any more.
    /// @throws what WhileWaiting throws
    void Admit(Chunk& chunk);
    /// The same on one of the threads.
    /// @return false when the pipeline is ending
    bool AdmitOnThread(Chunk& chunk);

    Worker& Writer() { return m_writer; }
    Worker& Hasher() { return m_hasher; }

    /// Waits for something that the threads do.
    /// @throws what WhileWaiting throws
    void Await(const std::function<bool()>& done);
    /// Called on the threads when what is waited for may have come.
    void Announce();

private:
    struct Pool {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::unique_ptr<Chunk>> spare; ///< with room for all that were made
        size_t made = 0;
        size_t underWay = 0;
        bool ending = false;

        std::unique_ptr<Chunk> Make();
        /// Takes no memory: it must not fail.
        void TakeBack(Chunk* chunk);
        bool HasRoom() const;
    };

    WhileWaiting m_whileWaiting;
    std::shared_ptr<Pool> m_pool = std::make_shared<Pool>();
    Worker m_hasher;
    Worker m_writer; ///< ends first: it may wait for the other one
};

} // namespace media

#endif // MEDIA_SRC_PIPELINE_H
