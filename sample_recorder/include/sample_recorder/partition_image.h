#ifndef SAMPLE_RECORDER_PARTITION_IMAGE_H
#define SAMPLE_RECORDER_PARTITION_IMAGE_H

/// @file partition_image.h
/// A recording partition in a file: formats it, and gives access to every field of every structure.

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "dev_io.h"
#include "disk_format.h"

namespace sample_recorder {

/// What goes wrong here: one line that says what, where, and what to do.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Something has the name that a partition was to be made under. It is not ours, to remove or otherwise.
class AlreadyThere : public Error {
public:
    using Error::Error;
};

/// How a partition is formatted.
struct Format {
    int diskType = 1;        ///< chooses the magic
    uint32_t fmtVersion = 0; ///< 1: extended block layout
    uint32_t blockCount = 8;
    uint32_t blockSize = 0x10000;
    std::string description = "sample partition";
    uint32_t encrypt = 0;
    uint32_t encryptMap = 0;
    std::string password;
};

/// All that a block holds besides its frames. Fields that are not set are zero.
struct BlockContents {
    BlockHead_t head = {};
    BlkExtHead_t extHead = {};
    BlockTail_t tail = {};
    BlockTailEx_t tailEx = {};
    std::array<std::vector<IFrameItem_t>, 32> iframes;
    std::array<std::vector<RecSegItem_t>, 32> segments;
    std::vector<EventIndexItem_t> events;

    /// A block recorded from @p start to @p end and closed.
    static BlockContents Closed(uint32_t recSeq, uint32_t start, uint32_t end);
    /// A block whose recording began at @p start and was never closed.
    static BlockContents Open(uint32_t recSeq, uint32_t start);

    BlockContents& Channels(uint32_t bitmap);
    /// Adds a record segment, and the channel if it is not present.
    BlockContents& Segment(uint32_t channel, uint32_t start, uint32_t end, uint32_t totalSize,
                           uint32_t spos = 0);
    BlockContents& IFrame(uint32_t channel, int64_t pts, uint32_t pos);
    BlockContents& Event(int64_t pts, uint64_t type, uint32_t pos = 0);

    /// The head of the index area that these tables make.
    BlkIndexHead_t IndexHead() const;
};

/// A partition in a regular file, open for writing.
///
/// The file is sparse: what was never written takes no space. Fields can be read, changed and written back
/// one by one, so that any odd disk can be made from a good one.
class PartitionImage {
public:
    /// Makes a new file and formats it: head, bad-block tables with their backups, and one empty head a
    /// block. Never overwrites anything.
    static PartitionImage Create(const std::string& path, const Format& format);

    PartitionImage(PartitionImage&& other) noexcept;
    PartitionImage& operator=(PartitionImage&&) = delete;
    PartitionImage(const PartitionImage&) = delete;
    PartitionImage& operator=(const PartitionImage&) = delete;
    ~PartitionImage();

    const std::string& Path() const { return m_path; }
    /// The descriptor that opens this partition.
    PartAccess_t Access() const;

    uint32_t BlockCount() const { return m_head.BlkCount; }
    uint32_t BlockSize() const { return m_head.BlkSize; }
    bool Extended() const { return m_head.FmtVersion == 1; }
    uint32_t HeadAreaSize() const;
    uint32_t FrameAreaSize() const;
    /// Bytes of the index area that index tables and their head may take.
    uint32_t IndexCapacity() const;
    /// Device offset of a block.
    uint64_t BlockStart(uint32_t block) const;

    const PartHead_t& Head() const { return m_head; }
    /// Changes the partition head by @p edit, a function of PartHead_t&.
    template <typename Edit>
    void EditHead(Edit edit) {
        edit(m_head);
        Write(0, &m_head, sizeof m_head);
    }

    void SetBad(uint32_t block, bool bad = true);
    bool IsBad(uint32_t block) const;
    void SetSuspect(uint32_t block, uint8_t count);

    /// Device offsets of a block's structures.
    uint64_t HeadOffset(uint32_t block) const { return BlockStart(block); }
    uint64_t ExtHeadOffset(uint32_t block) const;
    uint64_t FrameOffset(uint32_t block, uint32_t pos) const;
    uint64_t IndexOffset(uint32_t block) const;
    uint64_t TailOffset(uint32_t block) const;
    uint64_t TailExOffset(uint32_t block) const;

    /// Writes all of a block's structures, in its layout. Frames are left alone.
    void WriteBlock(uint32_t block, const BlockContents& contents);
    /// Writes the index head and tables alone.
    void WriteIndex(uint32_t block, const BlockContents& contents);

    template <typename Structure>
    Structure Get(uint64_t offset) const {
        Structure structure;
        Read(offset, &structure, sizeof structure);
        return structure;
    }
    template <typename Structure>
    void Put(uint64_t offset, const Structure& structure) {
        Write(offset, &structure, sizeof structure);
    }
    /// Changes one structure on the disk: Change<BlockTail_t>(image.TailOffset(3), [](auto& t) { t.RecSeq =
    /// 7; }).
    template <typename Structure, typename Edit>
    void Change(uint64_t offset, Edit edit) {
        auto structure = Get<Structure>(offset);
        edit(structure);
        Put(offset, structure);
    }

    void Read(uint64_t offset, void* data, size_t size) const;
    void Write(uint64_t offset, const void* data, size_t size);
    /// Cuts the file off, as an interrupted copy would.
    void Truncate(uint64_t size);

private:
    PartitionImage(std::string path, int fd, const Format& format);
    void FormatPartition(const Format& format);
    void SetTableByte(uint32_t offset, uint32_t backupOffset, uint32_t index, uint8_t value);

    std::string m_path;
    int m_fd;
    int m_diskType;
    PartHead_t m_head = {};
};

} // namespace sample_recorder

#endif // SAMPLE_RECORDER_PARTITION_IMAGE_H
