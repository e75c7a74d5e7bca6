#include "sample_recorder/partition_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "format/block_geometry.h"
#include "format/part_head.h"

namespace sample_recorder {

namespace {

constexpr uint64_t RoundUpToPage(uint64_t bytes) {
    return (bytes + 0xFFF) & ~uint64_t{0xFFF};
}

/// Where the bad-block tables and their backups lie on the device.
struct Tables {
    uint64_t bits;
    uint64_t counters;
    uint64_t bitsBackup;
    uint64_t countersBackup;
    uint64_t end;

    static Tables Of(uint32_t blockCount) {
        const uint64_t bits = RoundUpToPage(disk_access::BadBlockTabSize(blockCount));
        const uint64_t counters = RoundUpToPage(blockCount);
        const uint64_t first = 0x1000; // behind the partition head
        const uint64_t both = bits + counters;
        return {first, first + bits, first + both, first + both + bits, first + 2 * both};
    }
};

disk_access::BlockGeometry GeometryOf(const PartHead_t& head) {
    return disk_access::BlockGeometry::Of(head.BlkSize, head.FmtVersion);
}

template <size_t Size>
void CopyText(char (&field)[Size], const std::string& text) {
    std::memset(field, 0, Size);
    std::memcpy(field, text.data(), std::min(text.size(), Size));
}

template <typename Entry>
void AppendEntries(std::vector<uint8_t>& bytes, const std::vector<Entry>& entries) {
    const auto* const raw = reinterpret_cast<const uint8_t*>(entries.data());
    bytes.insert(bytes.end(), raw, raw + entries.size() * sizeof(Entry));
}

} // namespace

BlockContents BlockContents::Closed(uint32_t recSeq, uint32_t start, uint32_t end) {
    BlockContents contents = Open(recSeq, start);
    contents.tail.RecSeq = recSeq;
    contents.tail.StartTime = start;
    contents.tail.EndTime = end;
    contents.tailEx = {recSeq, start, end};
    return contents;
}

BlockContents BlockContents::Open(uint32_t recSeq, uint32_t start) {
    BlockContents contents;
    contents.head.ValidFlag = BLOCK_MAGIC;
    contents.head.RecTime = start;
    contents.head.RecSeq = recSeq;
    return contents;
}

BlockContents& BlockContents::Channels(uint32_t bitmap) {
    head.media_chn_bitmap = bitmap;
    return *this;
}

BlockContents& BlockContents::Segment(uint32_t channel, uint32_t start, uint32_t end, uint32_t totalSize,
                                      uint32_t spos) {
    head.media_chn_bitmap |= 1u << channel;
    segments.at(channel).push_back({start, end, spos, spos + totalSize, totalSize});
    return *this;
}

BlockContents& BlockContents::IFrame(uint32_t channel, int64_t pts, uint32_t pos) {
    head.media_chn_bitmap |= 1u << channel;
    iframes.at(channel).push_back({pts, pos, 0});
    return *this;
}

BlockContents& BlockContents::Event(int64_t pts, uint64_t type, uint32_t pos) {
    events.push_back({type, pts, pos, 0});
    return *this;
}

BlkIndexHead_t BlockContents::IndexHead() const {
    BlkIndexHead_t index = {};
    for (size_t chn = 0; chn < iframes.size(); ++chn) {
        index.iframeCount[chn] = static_cast<uint32_t>(iframes[chn].size());
        index.recSegCount[chn] = static_cast<uint32_t>(segments[chn].size());
    }
    index.eventCount = static_cast<uint32_t>(events.size());
    return index;
}

PartitionImage PartitionImage::Create(const std::string& path, const Format& format) {
    if (format.blockCount == 0 ||
        !disk_access::BlockGeometry::Of(format.blockSize, format.fmtVersion).HoldsBlock()) {
        throw Error("a partition needs at least one block, and blocks that hold their own head and index");
    }
    if (Tables::Of(format.blockCount).end > BLOCK_BASE_OFFSET) {
        throw Error(path + ": the tables of so many blocks do not fit before block 0; make fewer blocks");
    }
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno == EEXIST) {
        throw AlreadyThere(path + ": cannot be made: " + std::strerror(errno) +
                           "; remove it first, or choose another name");
    }
    if (fd < 0) {
        throw Error(path + ": cannot be made: " + std::strerror(errno));
    }
    PartitionImage image(path, fd, format);
    image.FormatPartition(format);
    return image;
}

PartitionImage::PartitionImage(std::string path, int fd, const Format& format)
    : m_path(std::move(path)), m_fd(fd), m_diskType(format.diskType) {}

PartitionImage::PartitionImage(PartitionImage&& other) noexcept
    : m_path(std::move(other.m_path)), m_fd(std::exchange(other.m_fd, -1)), m_diskType(other.m_diskType),
      m_head(other.m_head) {}

PartitionImage::~PartitionImage() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

void PartitionImage::FormatPartition(const Format& format) {
    const Tables tables = Tables::Of(format.blockCount);
    m_head.FormatFlag = disk_access::ExpectedMagic(format.diskType);
    m_head.FmtVersion = format.fmtVersion;
    m_head.BlkCount = format.blockCount;
    m_head.BlkSize = format.blockSize;
    m_head.BBTabOffs = static_cast<uint32_t>(tables.bits);
    m_head.BBCounterOffs = static_cast<uint32_t>(tables.counters);
    m_head.BBTabBakOffs = static_cast<uint32_t>(tables.bitsBackup);
    m_head.BBCounterBakOffs = static_cast<uint32_t>(tables.countersBackup);
    m_head.Encrypt = format.encrypt;
    m_head.EncryptMap = format.encryptMap;
    CopyText(m_head.Description, format.description);
    CopyText(m_head.CipherCode, format.password);
    Truncate(BlockStart(format.blockCount));
    Put(0, m_head);

    BlockHead_t empty = {};
    empty.ValidFlag = BLOCK_MAGIC;
    for (uint32_t block = 0; block < format.blockCount; ++block) {
        Put(HeadOffset(block), empty);
    }
}

PartAccess_t PartitionImage::Access() const {
    PartAccess_t part = {};
    part.DiskType = m_diskType;
    CopyText(part.PartName, m_path);
    return part;
}

uint32_t PartitionImage::HeadAreaSize() const {
    return GeometryOf(m_head).headAreaSize;
}

uint32_t PartitionImage::FrameAreaSize() const {
    return GeometryOf(m_head).FrameAreaSize();
}

uint32_t PartitionImage::IndexCapacity() const {
    const auto geometry = GeometryOf(m_head);
    return geometry.IndexAreaSize() - geometry.tailAreaSize;
}

uint64_t PartitionImage::BlockStart(uint32_t block) const {
    return GeometryOf(m_head).BlockStart(BLOCK_BASE_OFFSET, block);
}

uint64_t PartitionImage::ExtHeadOffset(uint32_t block) const {
    return BlockStart(block) + disk_access::kExtHeadStart;
}

uint64_t PartitionImage::FrameOffset(uint32_t block, uint32_t pos) const {
    return BlockStart(block) + HeadAreaSize() + pos;
}

uint64_t PartitionImage::IndexOffset(uint32_t block) const {
    return BlockStart(block) + GeometryOf(m_head).IndexAreaStart();
}

uint64_t PartitionImage::TailOffset(uint32_t block) const {
    return BlockStart(block) + GeometryOf(m_head).TailStart();
}

uint64_t PartitionImage::TailExOffset(uint32_t block) const {
    return TailOffset(block) + sizeof(BlockTail_t);
}

void PartitionImage::SetTableByte(uint32_t offset, uint32_t backupOffset, uint32_t index, uint8_t value) {
    Put(uint64_t{offset} + index, value);
    Put(uint64_t{backupOffset} + index, value);
}

void PartitionImage::SetBad(uint32_t block, bool bad) {
    const uint32_t index = block / 8;
    const auto bit = static_cast<uint8_t>(1u << block % 8);
    const auto old = Get<uint8_t>(uint64_t{m_head.BBTabOffs} + index);
    const auto value = static_cast<uint8_t>(bad ? old | bit : old & ~bit);
    SetTableByte(m_head.BBTabOffs, m_head.BBTabBakOffs, index, value);
}

bool PartitionImage::IsBad(uint32_t block) const {
    return (Get<uint8_t>(uint64_t{m_head.BBTabOffs} + block / 8) >> block % 8 & 1) != 0;
}

void PartitionImage::SetSuspect(uint32_t block, uint8_t count) {
    SetTableByte(m_head.BBCounterOffs, m_head.BBCounterBakOffs, block, count);
}

void PartitionImage::WriteIndex(uint32_t block, const BlockContents& contents) {
    const BlkIndexHead_t index = contents.IndexHead();
    const auto* const raw = reinterpret_cast<const uint8_t*>(&index);
    std::vector<uint8_t> bytes(raw, raw + sizeof index);
    for (const auto& table : contents.iframes) {
        AppendEntries(bytes, table);
    }
    for (const auto& table : contents.segments) {
        AppendEntries(bytes, table);
    }
    AppendEntries(bytes, contents.events);
    if (bytes.size() > IndexCapacity()) {
        throw Error(m_path + ": the index of block " + std::to_string(block) + " does not fit its area");
    }
    Write(IndexOffset(block), bytes.data(), bytes.size());
}

void PartitionImage::WriteBlock(uint32_t block, const BlockContents& contents) {
    Put(HeadOffset(block), contents.head);
    WriteIndex(block, contents);
    Put(TailOffset(block), contents.tail);
    if (Extended()) {
        Put(ExtHeadOffset(block), contents.extHead);
        Put(TailExOffset(block), contents.tailEx);
    }
}

void PartitionImage::Read(uint64_t offset, void* data, size_t size) const {
    const ssize_t got = pread(m_fd, data, size, static_cast<off_t>(offset));
    if (got < 0 || static_cast<size_t>(got) != size) {
        throw Error(m_path + ": cannot be read at " + std::to_string(offset));
    }
}

void PartitionImage::Write(uint64_t offset, const void* data, size_t size) {
    const ssize_t put = pwrite(m_fd, data, size, static_cast<off_t>(offset));
    if (put < 0 || static_cast<size_t>(put) != size) {
        throw Error(m_path + ": cannot be written: " + std::strerror(put < 0 ? errno : ENOSPC) +
                    "; free some space, or choose another place");
    }
}

void PartitionImage::Truncate(uint64_t size) {
    if (ftruncate(m_fd, static_cast<off_t>(size)) != 0) {
        throw Error(m_path + ": cannot be made " + std::to_string(size) +
                    " bytes long: " + std::strerror(errno));
    }
}

} // namespace sample_recorder
