// The threads that write and hash, and what waits for them.

#include "pipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>

namespace {

using namespace media;
using namespace std::chrono_literals;

/// As many chunks as may be under way.
constexpr size_t kMost = 32;

TEST(Workers, DoJobsInOrder) {
    std::vector<int> done;
    std::promise<void> last;
    Worker worker;
    for (int i = 0; i < 1000; ++i) {
        worker.Post([&done, i] { done.push_back(i); });
    }
    worker.Post([&last] { last.set_value(); });
    last.get_future().wait();
    ASSERT_EQ(done.size(), 1000u);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(done[static_cast<size_t>(i)], i);
    }
}

TEST(Workers, DropWhatHasNotBegunWhenTheyEnd) {
    std::promise<void> begun;
    std::promise<void> go;
    std::atomic<int> done{0};
    {
        Worker worker;
        worker.Post([&] {
            begun.set_value();
            go.get_future().wait();
            ++done;
        });
        worker.Post([&done] { ++done; });
        begun.get_future().wait();
        go.set_value();
        // The second job may or may not come before the end; the first one is waited for.
    }
    EXPECT_GE(done, 1);
}

TEST(Workers, HandleNoSignals) {
    std::promise<sigset_t> told;
    Worker worker;
    worker.Post([&told] {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        told.set_value(blocked);
    });
    const sigset_t blocked = told.get_future().get();
    EXPECT_EQ(sigismember(&blocked, SIGINT), 1);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGINT), 0);
}

TEST(Pipelines, LetOnlySoManyChunksSetOut) {
    int asked = 0;
    Pipeline pipeline([&asked] {
        if (++asked == 2) {
            throw std::runtime_error("enough");
        }
    });
    std::vector<std::shared_ptr<Chunk>> underWay;
    for (size_t i = 0; i < kMost; ++i) {
        underWay.push_back(pipeline.TakeChunk());
        pipeline.Admit(*underWay.back());
    }
    EXPECT_EQ(asked, 0);
    const std::shared_ptr<Chunk> tooMany = pipeline.TakeChunk();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THROW(pipeline.Admit(*tooMany), std::runtime_error);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << "at once, but for what else the machine does";
    underWay.pop_back();
    pipeline.Admit(*tooMany);
}

TEST(Pipelines, UseChunksAgain) {
    Pipeline pipeline;
    std::shared_ptr<Chunk> chunk = pipeline.TakeChunk();
    const Chunk* const first = chunk.get();
    chunk->size = 5;
    pipeline.Admit(*chunk);
    chunk.reset();
    chunk = pipeline.TakeChunk();
    EXPECT_EQ(chunk.get(), first);
    EXPECT_EQ(chunk->size, 0u);
    EXPECT_FALSE(chunk->admitted);
}

TEST(Pipelines, AskWhileTheyWait) {
    int asked = 0;
    std::atomic<bool> done{false};
    Pipeline pipeline([&] {
        if (++asked == 3) {
            done = true;
        }
    });
    pipeline.Await([&done] { return done.load(); });
    EXPECT_EQ(asked, 3);
}

TEST(Pipelines, AskAlsoWhileMuchIsAnnounced) {
    int asked = 0;
    std::atomic<bool> done{false};
    Pipeline pipeline([&] { done = ++asked == 2; });
    std::atomic<bool> ended{false};
    std::thread busy([&] {
        while (!ended) {
            pipeline.Announce();
        }
    });
    pipeline.Await([&done] { return done.load(); });
    ended = true;
    busy.join();
    EXPECT_EQ(asked, 2);
}

TEST(Pipelines, EndThoughAThreadWaitsForRoom) {
    std::vector<std::shared_ptr<Chunk>> underWay;
    std::promise<void> waiting;
    std::promise<bool> admitted;
    {
        Pipeline pipeline;
        for (size_t i = 0; i < kMost; ++i) {
            underWay.push_back(pipeline.TakeChunk());
            pipeline.Admit(*underWay.back());
        }
        pipeline.Writer().Post([&] {
            const std::shared_ptr<Chunk> chunk = pipeline.TakeChunk();
            waiting.set_value();
            admitted.set_value(pipeline.AdmitOnThread(*chunk));
        });
        waiting.get_future().wait();
    }
    EXPECT_FALSE(admitted.get_future().get());
}

} // namespace
