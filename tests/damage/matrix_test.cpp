// Each single field set to every value that breaks readers, and the disk cut off at each byte of each structure:
// whatever it makes of the disk, every operation returns within its bounds.

#include <cstdlib>
#include <set>

#include "damage/matrix_disk.h"
#include "damage/operations.h"
#include "search/search_fixture.h"

namespace {

using namespace test_support;

/// Shards run side by side.
constexpr uint32_t kShards = 4;

/// Every how many cases one is run: 1, the long form, unless the build or DISKACCESS_DAMAGE_STRIDE says otherwise.
/// Odd strides meet every value of a field sooner or later.
uint32_t Stride() {
    const char* const setting = std::getenv("DISKACCESS_DAMAGE_STRIDE");
    const long stride = setting == nullptr ? DAMAGE_STRIDE : std::strtol(setting, nullptr, 10);
    return stride < 1 ? 1 : static_cast<uint32_t>(stride);
}

class Matrix : public ::testing::TestWithParam<uint32_t> {
protected:
    explicit Matrix() : m_disk(GetParam() / kShards) {}

    /// Whether a case is this shard's, and of the stride. To be asked once a case.
    bool Chosen() {
        const uint32_t number = m_cases++;
        return number % kShards == GetParam() % kShards && number / kShards % Stride() == 0;
    }

    PartitionImage& Image() { return m_disk.Image(); }

    void RunOperations(uint64_t size) {
        const PartHead_t head = size < sizeof(PartHead_t) ? PartHead_t() : Image().Get<PartHead_t>(0);
        Operations(Image().Access(), head, size, m_counter).All(m_run++);
    }

    MatrixDisk m_disk;
    uint32_t m_run = 0; ///< cases run

private:
    uint32_t m_cases = 0;
    BlockDeviceGuise m_guise;
    CallCounter m_counter;
};

TEST_P(Matrix, EveryValueOfEveryFieldEndsWell) {
    Quietly([this] {
        for (const FieldPlace& field : m_disk.Fields()) {
            std::vector<uint8_t> held(field.bytes);
            Image().Read(field.offset, held.data(), held.size());
            for (const std::vector<uint8_t>& value : HostileValues(held, field.numberWidth)) {
                if (Chosen()) {
                    Image().Write(field.offset, value.data(), value.size());
                    RunOperations(m_disk.Size());
                    Image().Write(field.offset, held.data(), held.size());
                }
                if (HasFailure()) {
                    FAIL() << field.name << " = 0x" << std::hex << uint32_t{value.back()} << "...";
                }
            }
        }
    });
    RecordProperty("Cases", static_cast<int>(m_run));
    EXPECT_GT(m_run, 900 / Stride());
}

TEST_P(Matrix, EveryCutEndsWell) {
    std::set<uint64_t, std::greater<>> cuts; // from the end on: what was cut off need not be written again
    for (const MatrixDisk::Structure& structure : m_disk.Structures()) {
        for (uint64_t i = 0; i <= structure.size; ++i) {
            cuts.insert(structure.start + i);
        }
    }
    for (uint32_t block = 0; block < MatrixDisk::kBlocks; ++block) {
        cuts.insert(Image().BlockStart(block) - 1);
        cuts.insert(Image().IndexOffset(block));
    }
    Quietly([&] {
        for (const uint64_t cut : cuts) {
            if (Chosen()) {
                Image().Truncate(cut);
                RunOperations(cut);
                ASSERT_FALSE(HasFailure()) << "cut off at " << cut;
            }
        }
    });
    RecordProperty("Cases", static_cast<int>(m_run));
    EXPECT_GT(m_run, 900 / Stride());
}

INSTANTIATE_TEST_SUITE_P(LayoutsAndShards, Matrix, ::testing::Range(0u, 2 * kShards));

} // namespace
