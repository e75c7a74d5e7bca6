#include "pipeline.h"

#include <chrono>
#include <utility>

namespace media {

namespace {

/// Chunks under way at a time: 8 MiB.
constexpr size_t kMost = 32;
constexpr std::chrono::milliseconds kAskAgain(100);

} // namespace

std::unique_ptr<Chunk> Pipeline::Pool::Make() {
    auto chunk = std::make_unique<Chunk>();
    const std::lock_guard<std::mutex> lock(mutex);
    spare.reserve(made + 1);
    ++made;
    return chunk;
}

void Pipeline::Pool::TakeBack(Chunk* chunk) {
    std::unique_ptr<Chunk> owned(chunk);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        underWay -= owned->admitted ? 1u : 0u;
        owned->admitted = false;
        owned->size = 0;
        spare.push_back(std::move(owned));
    }
    changed.notify_all();
}

bool Pipeline::Pool::HasRoom() const {
    return underWay < kMost;
}

Pipeline::Pipeline(WhileWaiting whileWaiting) : m_whileWaiting(std::move(whileWaiting)) {}

Pipeline::~Pipeline() {
    {
        const std::lock_guard<std::mutex> lock(m_pool->mutex);
        m_pool->ending = true;
    }
    m_pool->changed.notify_all();
}

std::shared_ptr<Chunk> Pipeline::TakeChunk() {
    std::unique_ptr<Chunk> chunk;
    {
        const std::lock_guard<std::mutex> lock(m_pool->mutex);
        if (!m_pool->spare.empty()) {
            chunk = std::move(m_pool->spare.back());
            m_pool->spare.pop_back();
        }
    }
    if (!chunk) {
        chunk = m_pool->Make();
    }
    return {chunk.release(), [pool = m_pool](Chunk* used) { pool->TakeBack(used); }};
}

void Pipeline::Admit(Chunk& chunk) {
    Await([this] { return m_pool->HasRoom(); });
    const std::lock_guard<std::mutex> lock(m_pool->mutex);
    chunk.admitted = true;
    ++m_pool->underWay;
}

bool Pipeline::AdmitOnThread(Chunk& chunk) {
    std::unique_lock<std::mutex> lock(m_pool->mutex);
    m_pool->changed.wait(lock, [this] { return m_pool->ending || m_pool->HasRoom(); });
    if (m_pool->ending) {
        return false;
    }
    chunk.admitted = true;
    ++m_pool->underWay;
    return true;
}

void Pipeline::Await(const std::function<bool()>& done) {
    using Clock = std::chrono::steady_clock;
    std::unique_lock<std::mutex> lock(m_pool->mutex);
    Clock::time_point ask = Clock::now() + kAskAgain;
    while (!done()) {
        m_pool->changed.wait_until(lock, ask);
        if (Clock::now() >= ask && m_whileWaiting) {
            lock.unlock();
            m_whileWaiting();
            lock.lock();
        }
        if (Clock::now() >= ask) {
            ask = Clock::now() + kAskAgain;
        }
    }
}

void Pipeline::Announce() {
    { const std::lock_guard<std::mutex> lock(m_pool->mutex); }
    m_pool->changed.notify_all();
}

} // namespace media
