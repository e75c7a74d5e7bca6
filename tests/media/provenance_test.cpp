// Digests of areas, and what the kernel tells of disks.

#include "media/provenance.h"

#include <gtest/gtest.h>

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "area_reader.h"
#include "recordings/error.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace media;
using test_support::TempDir;

/// So many bytes of one kind, some of which are not delivered.
class PatternSource : public recordings::Source {
public:
    PatternSource(uint64_t size, char byte) : m_size(size), m_byte(byte) {}

    void Fail(uint64_t from, uint64_t to) { m_bad.emplace_back(from, to); }

    const std::string& Name() const override { return m_name; }
    uint64_t Size() const override { return m_size; }
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        uint64_t end = std::min(offset + size, std::max(m_size, offset));
        for (const auto& [from, to] : m_bad) {
            if (offset < to && from < end) {
                end = std::max(from, offset);
            }
        }
        m_largest = std::max(m_largest, size);
        std::memset(data, m_byte, static_cast<size_t>(end - offset));
        return static_cast<size_t>(end - offset);
    }
    size_t LargestRead() const { return m_largest; }

private:
    std::string m_name = "disk";
    uint64_t m_size;
    char m_byte;
    std::vector<std::pair<uint64_t, uint64_t>> m_bad;
    mutable size_t m_largest = 0;
};

// A million times "a", and 512 zeros: by sha256sum.
const std::string kMillion = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
const std::string kZeros = "076a27c79e5ace2a3d47f9dd2e83e4ff6ea8872b3c2218f66c92b89b55f36560";

TEST(AreaDigests, AreThoseOfTheBytes) {
    const PatternSource source(5000000, 'a');
    const AreaDigest digest = HashArea(source, 3000001, 1000000);
    EXPECT_EQ(digest.sha256, kMillion);
    EXPECT_EQ(digest.offset, 3000001u);
    EXPECT_EQ(digest.size, 1000000u);
    EXPECT_EQ(digest.unreadable, 0u);
    EXPECT_LE(source.LargestRead(), 0x40000u); // memory stays flat
    // Nothing, by sha256sum.
    EXPECT_EQ(HashArea(source, 7, 0).sha256,
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(AreaDigests, CountWhatIsNotDeliveredAsZeros) {
    PatternSource source(2048, 'a');
    source.Fail(512, 1024);
    const AreaDigest lost = HashArea(source, 512, 512);
    EXPECT_EQ(lost.sha256, kZeros);
    EXPECT_EQ(lost.unreadable, 512u);
    // Beyond the end as well.
    const AreaDigest beyond = HashArea(source, 2048, 512);
    EXPECT_EQ(beyond.sha256, kZeros);
    EXPECT_EQ(beyond.unreadable, 512u);
    // And at the end of what can be addressed nothing wraps.
    EXPECT_EQ(HashArea(source, UINT64_MAX - 511, 512).unreadable, 511u);
}

TEST(AreaDigests, EndWhenTheyAreToldTo) {
    const PatternSource source(5000000, 'a');
    std::vector<uint64_t> seen;
    try {
        HashArea(source, 0, 5000000, [&seen](const recordings::Progress& progress) {
            seen.push_back(progress.done);
            EXPECT_EQ(progress.total, 5000000u);
            EXPECT_EQ(progress.bytes, progress.done);
            return seen.size() < 3;
        });
        FAIL();
    } catch (const recordings::Error& error) {
        EXPECT_EQ(error.Kind(), recordings::ErrorKind::Cancelled);
    }
    EXPECT_EQ(seen, (std::vector<uint64_t>{0x40000, 0x80000, 0xC0000}));
}

/// What an area holds, and the stretches of it that are not delivered.
std::pair<std::string, std::vector<std::pair<uint64_t, uint64_t>>> Read(const recordings::Source& source,
                                                                        uint64_t offset, uint64_t size) {
    std::vector<std::pair<uint64_t, uint64_t>> stretches;
    std::string bytes;
    AreaReader reader(source, offset, size,
                      [&stretches](uint64_t from, uint64_t to) { stretches.emplace_back(from, to); });
    for (AreaReader::Piece piece = reader.Next(); piece.size != 0; piece = reader.Next()) {
        bytes.append(reinterpret_cast<const char*>(piece.data), piece.size);
    }
    return {bytes, stretches};
}

TEST(AreaReading, LosesNoMoreThanSectors) {
    PatternSource source(0x100000, 'a');
    source.Fail(1000, 1001);
    source.Fail(0x3FFFF, 0x40001); // across two pieces
    source.Fail(0x80000, 0x80400);
    const auto [bytes, stretches] = Read(source, 0, 0x100000);
    EXPECT_EQ(stretches, (std::vector<std::pair<uint64_t, uint64_t>>{
                             {1000, 1024}, {0x3FFFF, 0x40200}, {0x80000, 0x80400}}));
    std::string expected(0x100000, 'a');
    for (const auto& [from, to] : stretches) {
        expected.replace(from, to - from, to - from, '\0');
    }
    EXPECT_TRUE(bytes == expected);
}

TEST(AreaReading, GoesBeyondTheEndOfACutOffCopy) {
    const PatternSource source(1000, 'a');
    const auto [bytes, stretches] = Read(source, 900, 0x90000);
    EXPECT_EQ(stretches, (std::vector<std::pair<uint64_t, uint64_t>>{{1000, 900 + 0x90000}}));
    EXPECT_EQ(bytes.size(), 0x90000u);
    EXPECT_EQ(bytes.find('\0'), 100u);
}

// ---- the kernel's folder of devices

class Devices : public ::testing::Test {
protected:
    /// A disk 8:16 with a partition 8:17.
    void SetUp() override {
        fs::create_directories(m_dir.File("devices/sdb/device"));
        fs::create_directories(m_dir.File("devices/sdb/sdb1"));
        fs::create_directories(m_dir.File("dev/block"));
        fs::create_symlink("../../devices/sdb", m_dir.File("dev/block/8:16"));
        fs::create_symlink("../../devices/sdb/sdb1", m_dir.File("dev/block/8:17"));
        Put("devices/sdb/sdb1/partition", "1\n");
    }
    void Put(const std::string& name, const std::string& bytes) const {
        std::ofstream(m_dir.File(name), std::ios::binary) << bytes;
    }
    DeviceFacts Facts(unsigned int minorNumber) const {
        return ReadDeviceFacts(makedev(8, minorNumber), m_dir.File(""));
    }

    TempDir m_dir;
};

TEST_F(Devices, TellModelAndSerialNumber) {
    Put("devices/sdb/device/model", "WDC WD10JUCT    \n");
    Put("devices/sdb/device/serial", " S1 2\n");
    for (const unsigned int device : {16u, 17u}) {
        EXPECT_EQ(Facts(device).model, "WDC WD10JUCT");
        EXPECT_EQ(Facts(device).serial, "S1 2");
    }
}

TEST_F(Devices, HaveSerialNumbersInPages) {
    Put("devices/sdb/device/vpd_pg80", std::string("\0\x80\0\x08   WX-12rest", 16));
    EXPECT_EQ(Facts(17).serial, "WX-12");
    Put("devices/sdb/device/vpd_pg80", std::string("\0\x80\0\xFF"
                                                   "abc",
                                                   7)); // shorter than it says
    EXPECT_EQ(Facts(17).serial, "abc");
    Put("devices/sdb/device/vpd_pg80", std::string("\0\x80", 2));
    EXPECT_EQ(Facts(17).serial, "");
}

TEST_F(Devices, OfOtherKindsHaveOtherNames) {
    Put("devices/sdb/device/name", "SD64G\n"); // a memory card
    Put("devices/sdb/serial", "virtual-7");    // a virtual disk
    EXPECT_EQ(Facts(16).model, "SD64G");
    EXPECT_EQ(Facts(16).serial, "virtual-7");
}

TEST_F(Devices, MayTellNothing) {
    EXPECT_EQ(Facts(16).model, "");
    EXPECT_EQ(Facts(16).serial, "");
    EXPECT_EQ(Facts(99).model, "");
    Put("devices/sdb/device/model", std::string(5000, 'x'));
    EXPECT_EQ(Facts(16).model, std::string(256, 'x'));
    Put("devices/sdb/device/model", " \n ");
    EXPECT_EQ(Facts(16).model, "");
}

} // namespace
