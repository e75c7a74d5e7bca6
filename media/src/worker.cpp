#include "worker.h"

#include <csignal>
#include <utility>

namespace media {

namespace {

/// Keeps all signals from threads that are made while it lives.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before = {};
};

} // namespace

Worker::Worker() {
    const SignalsBlocked blocked;
    m_thread = std::thread([this] { Run(); });
}

Worker::~Worker() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ended = true;
    }
    m_posted.notify_one();
    m_thread.join();
}

void Worker::Post(Job job) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_posted.notify_one();
}

void Worker::Run() {
    for (;;) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_posted.wait(lock, [this] { return m_ended || !m_jobs.empty(); });
            if (m_ended) {
                return;
            }
            job = std::move(m_jobs.front());
            m_jobs.pop_front();
        }
        job();
    }
}

} // namespace media
