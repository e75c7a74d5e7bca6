#ifndef MEDIA_SRC_WORKER_H
#define MEDIA_SRC_WORKER_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace media {

/// A thread that does jobs in the order they are posted. No signal of the process is handled on it.
class Worker {
public:
    using Job = std::function<void()>;

    Worker();
    /// Waits for the job that is being done; those not begun are dropped.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// @param job throws nothing
    void Post(Job job);

private:
    void Run();

    std::mutex m_mutex;
    std::condition_variable m_posted;
    std::deque<Job> m_jobs;
    bool m_ended = false;
    std::thread m_thread;
};

} // namespace media

#endif // MEDIA_SRC_WORKER_H
