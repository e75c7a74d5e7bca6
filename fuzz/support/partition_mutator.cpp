// How libFuzzer changes the inputs of the harnesses that read partitions: as bytes, like any other input, or as
// what they are, a partition of which fields are forged, and a script of which operations are moved.

#include <algorithm>
#include <cstring>
#include <random>

#include "format/block_geometry.h"
#include "support/fuzzer.h"
#include "support/partition_input.h"
#include "support/sample_inputs.h"
#include "support/script.h"

namespace fuzzing {

namespace {

const std::vector<PartitionInput>& Samples() {
    static const std::vector<PartitionInput> samples = SampleInputs();
    return samples;
}

class Mutation {
public:
    Mutation(PartitionInput& input, uint32_t seed)
        : m_input(input), m_random(seed),
          m_geometry(disk_access::BlockGeometry::Of(input.head.blockSize, input.head.fmtVersion)) {}

    void Apply() {
        for (uint32_t count = 1 + Below(4) / 2; count > 0; --count) {
            ApplyOne();
        }
    }

private:
    uint32_t Below(uint32_t below) { return static_cast<uint32_t>(m_random() % below); }

    /// A value near the old one, at an edge, or any.
    uint32_t Forged(uint32_t old) {
        switch (Below(8)) {
        case 0:
            return old + 1;
        case 1:
            return old - 1;
        case 2:
            return old ^ 1u << Below(32);
        case 3:
            return old << 8 | old >> 24;
        case 4:
            return static_cast<uint32_t>(m_random());
        default:
            return kEdges[Below(std::size(kEdges))];
        }
    }
    void ForgeWord(uint32_t offset) { m_input.PutWord(offset, Forged(m_input.Word(offset))); }

    uint32_t BlockStart() {
        const uint32_t count = std::max<uint32_t>(m_input.head.blockCount, 1);
        return static_cast<uint32_t>(m_geometry.BlockStart(BLOCK_BASE_OFFSET, Below(count)));
    }
    uint32_t IndexStart() { return BlockStart() + m_geometry.IndexAreaStart(); }
    uint32_t TailStart() { return BlockStart() + m_geometry.TailStart(); }

    /// The partition head: magic, layout, geometry, table offsets, lock.
    void ForgePartHead() { ForgeWord(4 * Below(8 + 8 + 2)); }
    void ForgeTables() {
        ForgeWord(m_input.Word(offsetof(PartHead_t, BBTabOffs)));
        ForgeWord(m_input.Word(offsetof(PartHead_t, BBCounterOffs)));
    }
    void ForgeBlockHead() {
        // The fields before the vehicle's names, the channels after them, the extended head.
        const uint32_t places[] = {4 * Below(5), offsetof(BlockHead_t, media_chn_bitmap),
                                   static_cast<uint32_t>(sizeof(BlockHead_t)) + 4 * Below(2)};
        ForgeWord(BlockStart() + places[Below(std::size(places))]);
    }
    void ForgeTail() { ForgeWord(TailStart() + 4 * Below(8)); }
    void ForgeCount() {
        const uint32_t channels[] = {0, 1, 31, Below(32)};
        const uint32_t channel = channels[Below(std::size(channels))];
        const uint32_t fields[] = {channel, 32 + channel, 64};
        ForgeWord(IndexStart() + 4 * fields[Below(std::size(fields))]);
    }
    void ForgeIndexEntry() {
        ForgeWord(IndexStart() + static_cast<uint32_t>(sizeof(BlkIndexHead_t)) + 4 * Below(80));
    }

    /// The frames' heads, found by their sync words.
    std::vector<uint32_t> Frames() const {
        std::vector<uint32_t> frames;
        for (const Extent& extent : m_input.extents) {
            for (size_t at = 8; at + sizeof(uint32_t) <= extent.bytes.size(); ++at) {
                uint32_t word = 0;
                std::memcpy(&word, extent.bytes.data() + at, sizeof word);
                if (word == BLOCK_MAGIC) {
                    frames.push_back(extent.offset + static_cast<uint32_t>(at) - 8);
                }
            }
        }
        return frames;
    }
    void ForgeFrame() {
        const std::vector<uint32_t> frames = Frames();
        if (frames.empty()) {
            return;
        }
        const uint32_t frame = frames[Below(static_cast<uint32_t>(frames.size()))];
        switch (Below(4)) {
        case 0: // a length that leads back to earlier frames, if sums wrap, or to another one
            m_input.PutWord(frame + offsetof(FrameHead_t, len),
                            Below(2) == 0 ? 0u - Below(0x4000) : Below(600));
            break;
        case 1: // another kind of frame, of another channel
            m_input.PutWord(frame + offsetof(FrameHead_t, type), Below(6));
            m_input.PutWord(frame + offsetof(FrameHead_t, chn), Below(2) == 0 ? Below(2) : Below(40));
            break;
        default:
            ForgeWord(frame + 4 * Below(sizeof(FrameHead_t) / 4));
        }
    }

    /// Puts a copy of a block in the place of another.
    void CopyBlock() {
        const uint32_t from = BlockStart();
        const uint32_t to = BlockStart();
        std::vector<Extent> copies;
        for (const Extent& extent : m_input.extents) {
            if (extent.offset >= from && extent.offset < uint64_t{from} + m_geometry.blkSize) {
                copies.push_back({extent.offset - from + to, extent.bytes});
            }
        }
        if (from == to || copies.size() + m_input.extents.size() > 400) {
            return;
        }
        Erase(to, m_geometry.blkSize);
        m_input.extents.insert(m_input.extents.end(), copies.begin(), copies.end());
    }
    void Erase(uint32_t from, uint32_t size) {
        auto& extents = m_input.extents;
        extents.erase(std::remove_if(extents.begin(), extents.end(),
                                     [&](const Extent& extent) {
                                         return extent.offset >= from &&
                                                extent.offset < uint64_t{from} + size;
                                     }),
                      extents.end());
    }
    void EraseBlock() { Erase(BlockStart(), m_geometry.blkSize); }

    Extent* AnyExtent() {
        auto& extents = m_input.extents;
        return extents.empty() ? nullptr : &extents[Below(static_cast<uint32_t>(extents.size()))];
    }
    void SwapExtents() {
        Extent* const one = AnyExtent();
        Extent* const other = AnyExtent();
        if (one != nullptr) {
            std::swap(one->bytes, other->bytes);
        }
    }
    void MoveExtent() {
        if (Extent* const extent = AnyExtent(); extent != nullptr) {
            extent->offset += Below(2) == 0 ? 0u - Below(64) : Below(64);
        }
    }
    void MutateExtent() {
        if (Extent* const extent = AnyExtent(); extent != nullptr && !extent->bytes.empty()) {
            const size_t size = extent->bytes.size();
            const size_t most = size + 32;
            extent->bytes.resize(most);
            extent->bytes.resize(LLVMFuzzerMutate(extent->bytes.data(), size, most));
        }
    }
    void DropExtent() {
        auto& extents = m_input.extents;
        if (!extents.empty()) {
            extents.erase(extents.begin() + Below(static_cast<uint32_t>(extents.size())));
        }
    }

    void ResizeDevice() {
        const uint32_t block = BlockStart();
        const uint32_t sizes[] = {Below(0x3000),
                                  block + Below(std::max<uint32_t>(m_geometry.blkSize, 1)),
                                  block,
                                  m_input.head.deviceSize + 0x10000,
                                  BLOCK_BASE_OFFSET + 1,
                                  0};
        m_input.head.deviceSize = sizes[Below(std::size(sizes))];
    }
    void ChangeFault() {
        m_input.head.fault = static_cast<uint8_t>(Below(kFaultKinds));
        m_input.head.faultCall = static_cast<uint16_t>(Below(Below(4) == 0 ? 2000 : 60));
    }
    void ChangeDiskType() {
        const uint8_t types[] = {1, 52, 19, 34, 0};
        m_input.head.diskType = types[Below(std::size(types))];
    }

    void MutateScript() {
        std::vector<uint8_t>& script = m_input.script;
        const size_t size = script.size();
        const size_t most = std::min<size_t>(size + 24, 400);
        script.resize(std::max(size, most));
        script.resize(LLVMFuzzerMutate(script.data(), size, std::max(size, most)));
    }
    void RepeatScript() {
        std::vector<uint8_t>& script = m_input.script;
        if (!script.empty() && script.size() < 400) {
            const uint32_t from = Below(static_cast<uint32_t>(script.size()));
            const uint32_t length = 1 + Below(std::min(24u, static_cast<uint32_t>(script.size()) - from));
            const std::vector<uint8_t> piece(script.begin() + from, script.begin() + from + length);
            script.insert(script.begin() + Below(static_cast<uint32_t>(script.size())), piece.begin(),
                          piece.end());
        }
    }
    void ExtendScript() {
        for (uint32_t count = 1 + Below(16); count > 0; --count) {
            m_input.script.push_back(static_cast<uint8_t>(m_random()));
        }
    }
    void TakeSample() {
        const std::vector<uint8_t> script = m_input.script;
        m_input = Samples()[Below(static_cast<uint32_t>(Samples().size()))];
        m_input.script = script;
    }

    void ApplyOne() {
        using Change = void (Mutation::*)();
        static constexpr Change kChanges[] = {
            &Mutation::ForgePartHead,   &Mutation::ForgeTables,  &Mutation::ForgeBlockHead,
            &Mutation::ForgeBlockHead,  &Mutation::ForgeTail,    &Mutation::ForgeCount,
            &Mutation::ForgeCount,      &Mutation::ForgeFrame,   &Mutation::ForgeFrame,
            &Mutation::ForgeFrame,      &Mutation::CopyBlock,    &Mutation::EraseBlock,
            &Mutation::SwapExtents,     &Mutation::MoveExtent,   &Mutation::MutateExtent,
            &Mutation::ForgeIndexEntry, &Mutation::DropExtent,   &Mutation::ResizeDevice,
            &Mutation::ChangeFault,     &Mutation::MutateScript, &Mutation::MutateScript,
            &Mutation::MutateScript,    &Mutation::MutateScript, &Mutation::RepeatScript,
            &Mutation::ExtendScript,    &Mutation::ExtendScript, &Mutation::ChangeDiskType,
            &Mutation::TakeSample};
        (this->*kChanges[Below(std::size(kChanges))])();
    }

    PartitionInput& m_input;
    std::mt19937 m_random;
    disk_access::BlockGeometry m_geometry;
};

size_t Give(const PartitionInput& input, uint8_t* out, size_t maxSize) {
    const std::vector<uint8_t> bytes = input.Bytes();
    const size_t size = std::min(bytes.size(), maxSize);
    std::memcpy(out, bytes.data(), size);
    return size;
}

} // namespace

} // namespace fuzzing

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed) {
    using namespace fuzzing;
    if (seed % 4 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    PartitionInput input = PartitionInput::Parse(data, size);
    if (input.extents.empty()) {
        const std::vector<uint8_t> script = input.script;
        input = Samples()[seed / 4 % Samples().size()];
        input.script = script;
    }
    Mutation(input, seed).Apply();
    return Give(input, data, maxSize);
}

/// The partition of one input under the script of the other.
size_t LLVMFuzzerCustomCrossOver(const uint8_t* data1, size_t size1, const uint8_t* data2, size_t size2,
                                 uint8_t* out, size_t maxOutSize, unsigned int seed) {
    using namespace fuzzing;
    PartitionInput input = PartitionInput::Parse(data1, size1);
    PartitionInput other = PartitionInput::Parse(data2, size2);
    if (seed % 2 == 0) {
        input.script = other.script;
    } else {
        input.script.insert(input.script.end(), other.script.begin(), other.script.end());
    }
    return Give(input, out, maxOutSize);
}
