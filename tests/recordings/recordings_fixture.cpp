#include "recordings/recordings_fixture.h"

namespace test_support {

using recordings::Block;
using recordings::BlockList;
using sample_recorder::BlockContents;
using sample_recorder::PartitionImage;

size_t WornSource::Read(uint64_t offset, void* data, size_t size) const {
    ++m_reads;
    m_bytes += size;
    for (const auto& [from, to] : m_bad) {
        if (offset < to && from < offset + size) {
            size = from > offset ? static_cast<size_t>(from - offset) : 0;
        }
    }
    return m_inner->Read(offset, data, size);
}

std::string Brief(const recordings::Problem& problem) {
    std::string text = recordings::NameOf(problem.kind);
    text += problem.severity == recordings::Severity::Loss ? " loss" : " note";
    if (problem.block) {
        text += " block " + std::to_string(*problem.block);
    }
    if (problem.blockAfter) {
        text += " to " + std::to_string(*problem.blockAfter);
    }
    if (problem.channel) {
        text += " channel " + std::to_string(*problem.channel);
    }
    if (problem.count != 0) {
        text += " count " + std::to_string(problem.count);
    }
    return text;
}

PartitionImage& RecordingsFixture::MakeDisk(const sample_recorder::Format& format) {
    m_image.emplace(PartitionImage::Create(m_dir.File("disk" + std::to_string(m_disks++)), format));
    return *m_image;
}

recordings::Disk& RecordingsFixture::Open() {
    auto worn = std::make_unique<WornSource>(recordings::OpenSource(m_image->Path()));
    for (const auto& [from, to] : m_bad) {
        worn->Fail(from, to);
    }
    m_worn = worn.get();
    m_disk = std::make_unique<recordings::Disk>(std::move(worn));
    return *m_disk;
}

std::vector<uint32_t> RecordingsFixture::Numbers() {
    std::vector<uint32_t> numbers;
    const BlockList blocks = BlockList::Read(Open());
    for (const Block& block : blocks.All()) {
        numbers.push_back(block.number);
    }
    return numbers;
}

std::vector<std::string> RecordingsFixture::Blocks() {
    std::vector<std::string> lines;
    const BlockList blocks = BlockList::Read(Open());
    for (const Block& block : blocks.All()) {
        std::string line = std::to_string(block.number) + ":" + std::to_string(block.sequence) + " " +
                           std::to_string(block.start) + "-" + std::to_string(block.end);
        const std::string letters = std::string(block.closed ? "" : "o") + (block.headSound ? "" : "h") +
                                    (block.unreadable ? "u" : "") + (block.wiped ? "w" : "");
        lines.push_back(letters.empty() ? line : line + " " + letters);
    }
    return lines;
}

std::vector<std::string> RecordingsFixture::Problems(const recordings::TimeRange& range) {
    std::vector<std::string> lines;
    BlockList::Read(Open()).Report(
        range, [&](const recordings::Problem& problem) { lines.push_back(Brief(problem)); });
    return lines;
}

void RecordingsFixture::WriteRing(uint32_t blocks, uint32_t first) {
    for (uint32_t block = 0; block < blocks; ++block) {
        const uint32_t sequence = first + block;
        const uint32_t start = sequence * 1000;
        Image().WriteBlock(
            block, BlockContents::Closed(sequence, start, start + 900).Segment(0, start, start + 900, 9000));
    }
}

} // namespace test_support
