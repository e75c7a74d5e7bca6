#ifndef TESTS_DAMAGE_MATRIX_DISK_H
#define TESTS_DAMAGE_MATRIX_DISK_H

#include <cstdint>
#include <string>
#include <vector>

#include "damage/format_fields.h"
#include "sample_recorder/partition_image.h"
#include "sample_recorder/recorder.h"
#include "support/temp_dir.h"

namespace test_support {

/// A small partition with something of everything: five blocks in a ring that has wrapped, block 0 open in its
/// second turn, block 2 bad, blocks 1, 3 and 4 closed. Channels 0 and 31; video, audio, events and other data.
class MatrixDisk {
public:
    static constexpr uint32_t kBlocks = 5;
    static constexpr uint32_t kNewest = 0;
    static constexpr uint32_t kOldest = 1;
    static constexpr uint32_t kBad = 2;
    static constexpr uint32_t kMiddle = 3;
    static constexpr uint32_t kBlockSize = 0x2000;

    /// @param fmtVersion 1: extended block layout
    explicit MatrixDisk(uint32_t fmtVersion);

    sample_recorder::PartitionImage& Image() { return m_image; }
    uint64_t Size() const { return m_image.BlockStart(kBlocks); }

    /// The fields on the disk: of the middle block all, of the others those that are in use.
    const std::vector<FieldPlace>& Fields() const { return m_fields; }

    /// A stretch of bytes that is read as a whole.
    struct Structure {
        uint64_t start;
        uint64_t size;
    };
    const std::vector<Structure>& Structures() const { return m_structures; }

    /// Where the frame heads of a block lie, in their order; the end mark is one of them.
    std::vector<uint64_t> FrameHeads(uint32_t block) const;

private:
    void AddTables();
    void AddBlock(uint32_t block);
    void AddHead(uint32_t block, const std::string& where);
    void AddFrames(uint32_t block, const std::string& where);
    void AddIndex(uint32_t block, const std::string& where);
    void AddTails(uint32_t block, const std::string& where);
    void Add(const FormatStructure& fields, uint64_t offset, uint64_t size, const std::string& where);

    TempDir m_dir;
    sample_recorder::PartitionImage m_image;
    std::vector<FieldPlace> m_fields;
    std::vector<Structure> m_structures;
};

} // namespace test_support

#endif // TESTS_DAMAGE_MATRIX_DISK_H
