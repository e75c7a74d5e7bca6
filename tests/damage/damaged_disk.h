#ifndef TESTS_DAMAGE_DAMAGED_DISK_H
#define TESTS_DAMAGE_DAMAGED_DISK_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "sample_recorder/partition_image.h"
#include "support/temp_dir.h"

namespace test_support {

/// A small recorded partition that is damaged again for every case, each time in another way, which depends
/// only on the case's number.
class DamagedDisk {
public:
    /// @param fmtVersion 1: extended block layout
    explicit DamagedDisk(uint32_t fmtVersion);

    /// Makes the disk whole again, then damages it.
    void Damage(uint32_t seed);

    /// The same, and then damages up to three frame heads besides.
    void DamageWithFrames(uint32_t seed);

    /// What was done to the disk last, for a failure's message.
    const std::string& Story() const { return m_story; }

    sample_recorder::PartitionImage& Image() { return m_image; }
    const sample_recorder::PartitionImage& Image() const { return m_image; }

    /// The head as it now lies on the disk; zeros where it was cut off.
    PartHead_t Head() const;

    /// Where the disk now ends.
    uint64_t Size() const { return m_end; }

private:
    struct Area {
        uint64_t start;
        uint64_t size;
    };

    void FindFrames();
    void Restore();
    void DamageOnce();
    void FlipBits();
    void FillArea();
    void ForgeField();
    void ForgeGeometry();
    void ForgeCount();
    void CutOff();
    void CopyStructure();
    void ForgeFrame();

    uint32_t Random(uint32_t below);
    uint32_t HostileValue(uint32_t old);
    /// An offset in one of the structures that a search reads.
    uint64_t StructureOffset();
    void PutWord(uint64_t offset, uint32_t value);

    TempDir m_dir;
    sample_recorder::PartitionImage m_image;
    std::vector<Area> m_structures;
    std::vector<uint64_t> m_frames; ///< where the heads of frames lie
    std::vector<std::pair<uint64_t, std::vector<uint8_t>>> m_pristine;
    uint64_t m_size = 0;
    uint64_t m_end = 0; ///< where the file ends now
    std::mt19937 m_random;
    std::string m_story;
};

} // namespace test_support

#endif // TESTS_DAMAGE_DAMAGED_DISK_H
