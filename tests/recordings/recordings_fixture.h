#ifndef TESTS_RECORDINGS_RECORDINGS_FIXTURE_H
#define TESTS_RECORDINGS_RECORDINGS_FIXTURE_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "recordings/blocks.h"
#include "recordings/disk.h"
#include "sample_recorder/partition_image.h"
#include "support/temp_dir.h"

namespace test_support {

/// A source with bytes that the disk does not deliver, which counts what is asked of it.
class WornSource : public recordings::Source {
public:
    explicit WornSource(std::unique_ptr<recordings::Source> inner) : m_inner(std::move(inner)) {}

    /// Bytes @p from to @p to - 1 cannot be read.
    void Fail(uint64_t from, uint64_t to) { m_bad.emplace_back(from, to); }
    uint64_t Reads() const { return m_reads; }
    uint64_t BytesAsked() const { return m_bytes; }

    const std::string& Name() const override { return m_inner->Name(); }
    uint64_t Size() const override { return m_inner->Size(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override;

private:
    std::unique_ptr<recordings::Source> m_inner;
    std::vector<std::pair<uint64_t, uint64_t>> m_bad;
    mutable std::atomic<uint64_t> m_reads{0}; // several threads may read
    mutable std::atomic<uint64_t> m_bytes{0};
};

/// A problem as a line: "kind severity block channel", with what is not set left out.
std::string Brief(const recordings::Problem& problem);

/// A test with a partition of its own, looked at through a source that may be worn.
class RecordingsFixture : public ::testing::Test {
protected:
    /// Makes the partition; the first thing a test does.
    sample_recorder::PartitionImage& MakeDisk(const sample_recorder::Format& format = {});
    sample_recorder::PartitionImage& Image() { return *m_image; }
    std::string File(const std::string& name) const { return m_dir.File(name); }

    /// Bytes that the disks opened from now on do not deliver.
    void Fail(uint64_t from, uint64_t to) { m_bad.emplace_back(from, to); }

    void Forgive() { m_bad.clear(); }

    /// Opens the disk again, as it is now.
    recordings::Disk& Open();
    WornSource& Worn() { return *m_worn; }
    /// The blocks of the disk as it is now: their numbers, in recording order.
    std::vector<uint32_t> Numbers();
    /// The blocks as lines "number:sequence start-end", with letters after it: o open, h head not sound, u unreadable, w
    /// wiped.
    std::vector<std::string> Blocks();
    /// What is wrong with the blocks, over all time or in a range, each as Brief() has it.
    std::vector<std::string> Problems(const recordings::TimeRange& range = {});

    /// Writes closed blocks: block n has number first + n, and is recorded from 1000 times its number on for 900
    /// seconds.
    void WriteRing(uint32_t blocks, uint32_t first = 1);

private:
    TempDir m_dir;
    int m_disks = 0;
    std::optional<sample_recorder::PartitionImage> m_image;
    std::vector<std::pair<uint64_t, uint64_t>> m_bad;
    WornSource* m_worn = nullptr;
    std::unique_ptr<recordings::Disk> m_disk;
};

} // namespace test_support

#endif // TESTS_RECORDINGS_RECORDINGS_FIXTURE_H
