// Blocks hashed beside other work.

#include "block_hasher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "recordings/recordings_fixture.h"

namespace {

using namespace media;

class BlockHashes : public test_support::RecordingsFixture {};

TEST_F(BlockHashes, AreThoseOfWholeBlocks) {
    sample_recorder::Format format;
    format.blockCount = 8;
    MakeDisk(format);
    WriteRing(6);
    const recordings::Disk& disk = Open();
    BlockHasher hasher(disk, {});
    for (const uint32_t block : {0u, 5u, 2u, 5u, 3u, 1u}) {
        hasher.Add(block);
    }
    const auto digests = hasher.Finish();
    ASSERT_EQ(digests.size(), 5u);
    for (const auto& [block, digest] : digests) {
        EXPECT_EQ(digest.offset, disk.StartOf(block));
        EXPECT_EQ(digest.size, disk.Facts().blockSize);
        EXPECT_EQ(digest.sha256, HashArea(disk.Bytes(), digest.offset, digest.size).sha256);
    }
    EXPECT_NE(digests.at(0).sha256, digests.at(1).sha256);
}

TEST_F(BlockHashes, CountWhatIsUnreadable) {
    MakeDisk();
    WriteRing(2);
    const uint64_t start = Open().StartOf(1);
    Fail(start + 512, start + 1024);
    BlockHasher hasher(Open(), {});
    hasher.Add(0);
    hasher.Add(1);
    const auto digests = hasher.Finish();
    EXPECT_EQ(digests.at(0).unreadable, 0u);
    EXPECT_EQ(digests.at(1).unreadable, 512u);
}

/// Of a source that fails wholly wherever it is asked for a bad byte, no more is lost than the sectors that are bad.
TEST(AreaDigest, TakesWhatLiesBesideBadBytes) {
    class AllOrNothing : public recordings::Source {
    public:
        const std::string& Name() const override { return m_name; }
        uint64_t Size() const override { return uint64_t{1} << 20; }
        size_t Read(uint64_t offset, void* data, size_t size) const override {
            if (offset < 401000 && offset + size > 400000) {
                return 0;
            }
            std::fill_n(static_cast<uint8_t*>(data), size, uint8_t{7});
            return size;
        }

    private:
        std::string m_name = "all or nothing";
    };
    // Sectors 781 to 783, bytes 399872 to 401407, have bad bytes.
    const AreaDigest digest = HashArea(AllOrNothing(), 0, uint64_t{1} << 20);
    EXPECT_EQ(digest.unreadable, 3 * 512u);
}

TEST_F(BlockHashes, AreGivenUpWhenTheCallerEnds) {
    sample_recorder::Format format;
    format.blockSize = 0x10000000;
    MakeDisk(format);
    WriteRing(1);
    const recordings::Disk& disk = Open();
    int asked = 0;
    BlockHasher hasher(disk, [&asked] {
        if (++asked == 2) {
            throw std::runtime_error("ended");
        }
    });
    for (uint32_t block = 0; block < 2; ++block) {
        hasher.Add(block);
    }
    EXPECT_THROW(hasher.Finish(), std::runtime_error);
    EXPECT_EQ(asked, 2);
}

} // namespace
