#include "program/hostile_disk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "damage/matrix_disk.h"
#include "support/fuzzer.h"
#include "support/partition_tables.h"
#include "support/sample_inputs.h"

namespace fuzzing {

namespace {

using test_support::MatrixDisk;

constexpr uint64_t kTableSector = 512;
constexpr uint64_t kPartitionStart = 0x100000; ///< of the recorder's partition on a whole disk

/// A key frame of 32 x 32 pixels, and the picture after it, as an H.264 encoder made them: decoders get as far as a
/// camera's pictures take them.
constexpr uint8_t kKeyFrame[] = {0x00, 0x00, 0x00, 0x01, 0x67, 0x64, 0x00, 0x0a, 0xac, 0xb2, 0x12, 0xd8,
                                 0x08, 0x80, 0x00, 0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x03, 0x02, 0x07,
                                 0x89, 0x13, 0x24, 0x00, 0x00, 0x00, 0x01, 0x68, 0xeb, 0xc3, 0xcb, 0x22,
                                 0xc0, 0x00, 0x00, 0x01, 0x65, 0x88, 0x84, 0x05, 0x3f, 0xfe, 0xf7, 0xc7,
                                 0x4f, 0xc0, 0x9e, 0xd8, 0x2c, 0xb9, 0xc4, 0x90, 0x07, 0xff};
constexpr uint8_t kNextFrame[] = {0x00, 0x00, 0x00, 0x01, 0x41, 0x9a, 0x3b,
                                  0x10, 0x53, 0xff, 0xfe, 0xd6, 0xe0};

constexpr uint32_t kKeyFrameType = 1;
constexpr uint32_t kNextFrameType = 2;

template <size_t Size>
std::vector<uint8_t> BytesOf(const uint8_t (&bytes)[Size]) {
    return {std::begin(bytes), std::end(bytes)};
}

/// The same partition, with pictures for payloads.
PartitionInput WithPictures(const PartitionInput& input) {
    PartitionInput shown = input;
    for (const Extent& extent : input.extents) {
        for (size_t at = offsetof(FrameHead_t, sync); at + 4 <= extent.bytes.size(); ++at) {
            uint32_t sync = 0;
            std::memcpy(&sync, extent.bytes.data() + at, sizeof sync);
            const uint32_t frame = extent.offset + static_cast<uint32_t>(at - offsetof(FrameHead_t, sync));
            const uint32_t type = input.Word(frame + offsetof(FrameHead_t, type));
            const std::vector<uint8_t> picture =
                type == kKeyFrameType ? BytesOf(kKeyFrame) : BytesOf(kNextFrame);
            const bool shows = type == kKeyFrameType || type == kNextFrameType;
            if (sync == BLOCK_MAGIC && shows &&
                input.Word(frame + offsetof(FrameHead_t, len)) >= picture.size()) {
                shown.extents.push_back({frame + static_cast<uint32_t>(sizeof(FrameHead_t)), picture});
            }
        }
    }
    return shown;
}

std::vector<uint8_t> BytesAt(const sample_recorder::PartitionImage& image, uint64_t offset, size_t size) {
    std::vector<uint8_t> bytes(size);
    image.Read(offset, bytes.data(), bytes.size());
    return bytes;
}

FileDisk ToDisk(const PartitionInput& input, std::string story) {
    FileDisk disk;
    disk.story = std::move(story);
    disk.size = std::min<uint64_t>(input.head.deviceSize, MemoryDevice::kLargest);
    disk.extents = input.extents;
    return disk;
}

/// Bytes of one of the kinds that are found where a disk was never written, or not by a recorder.
std::vector<uint8_t> NoiseOf(std::mt19937_64& random, size_t size) {
    std::vector<uint8_t> bytes(size);
    const uint64_t kind = random() % 4;
    const uint32_t word = kind == 0 ? BLOCK_MAGIC : static_cast<uint32_t>(random());
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = kind == 1   ? uint8_t{0xFF}
                   : kind == 2 ? static_cast<uint8_t>(random())
                   : kind == 3 ? static_cast<uint8_t>(random() % 8 == 0 ? random() : 0)
                               : static_cast<uint8_t>(word >> (8 * (i % 4)));
    }
    return bytes;
}

void WriteAt(int fd, const Extent& extent, uint64_t end) {
    const uint64_t left = extent.offset < end ? end - extent.offset : 0;
    const auto size = static_cast<size_t>(std::min<uint64_t>(extent.bytes.size(), left));
    if (size > 0 && pwrite(fd, extent.bytes.data(), size, extent.offset) != static_cast<ssize_t>(size)) {
        throw std::runtime_error("a disk cannot be written");
    }
}

std::mt19937& ChangesOfBytes() {
    static std::mt19937 random;
    return random;
}

} // namespace

void FileDisk::Write(const std::string& path) const {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const uint64_t start = table == Table::None ? 0 : kPartitionStart;
    if (fd < 0 || ftruncate(fd, 0) != 0 || ftruncate(fd, static_cast<off_t>(start + size)) != 0) {
        throw std::runtime_error(path + ": cannot be made");
    }
    for (Extent extent : extents) {
        if (extent.offset < size) {
            extent.bytes.resize(
                static_cast<size_t>(std::min<uint64_t>(extent.bytes.size(), size - extent.offset)));
            extent.offset += static_cast<uint32_t>(start);
            WriteAt(fd, extent, start + size);
        }
    }
    const std::vector<test_support::TableEntry> entries = {
        {kPartitionStart / kTableSector, std::max<uint64_t>(size / kTableSector, 1)}};
    if (table == Table::Mbr) {
        test_support::WriteMbr(path, entries);
    } else if (table == Table::Gpt) {
        test_support::WriteGpt(path, entries);
    }
    for (const Extent& damage : damages) {
        WriteAt(fd, damage, start + size);
    }
    close(fd);
}

HostileDisks::HostileDisks() {
    for (const PartitionInput& sample : SampleInputs()) {
        m_samples.push_back(sample);
        m_samples.push_back(WithPictures(sample));
    }
    for (const uint32_t layout : {0u, 1u}) {
        MatrixDisk matrix(layout);
        for (const test_support::FieldPlace& field : matrix.Fields()) {
            const auto held = BytesAt(matrix.Image(), field.offset, field.bytes);
            for (const auto& value : test_support::HostileValues(held, field.numberWidth)) {
                m_forgeries.push_back(
                    {m_samples.size(), field.name, {static_cast<uint32_t>(field.offset), value}});
            }
        }
        m_samples.push_back(WithPictures(Describe(matrix.Image())));
    }
}

FileDisk HostileDisks::Whole() const {
    return ToDisk(m_samples.at(3), "whole"); // the second kind, with pictures
}

FileDisk HostileDisks::Make(uint64_t number) const {
    using Maker = FileDisk (HostileDisks::*)(Random&) const;
    static constexpr std::array<Maker, 10> kMakers = {
        &HostileDisks::Noise,        &HostileDisks::DamagedField, &HostileDisks::DamagedField,
        &HostileDisks::DamagedField, &HostileDisks::Mutant,       &HostileDisks::Mutant,
        &HostileDisks::Mutant,       &HostileDisks::Mutant,       &HostileDisks::Cut,
        &HostileDisks::InTable};
    Random random(number);
    return (this->*kMakers.at(random() % kMakers.size()))(random);
}

const PartitionInput& HostileDisks::AnySample(Random& random) const {
    return m_samples.at(random() % m_samples.size());
}

FileDisk HostileDisks::Noise(Random& random) const {
    FileDisk disk = ToDisk(AnySample(random), "noise");
    const uint64_t kind = random() % 8;
    if (kind == 0) { // next to nothing
        disk.size = random() % 600;
        disk.extents = {{0, NoiseOf(random, static_cast<size_t>(disk.size))}};
        return disk;
    }
    if (kind <= 2) { // not a recorder's at all
        disk.extents = {{0, NoiseOf(random, 0x10000)}};
    }
    for (uint64_t i = 1 + random() % 6; i > 0; --i) {
        const uint64_t behind = random() % 4 == 0 ? 0x200 : BLOCK_BASE_OFFSET;
        const uint64_t place = behind + random() % 0xC000;
        disk.extents.push_back(
            {static_cast<uint32_t>(place & ~uint64_t{3}), NoiseOf(random, random() % 0x3000)});
    }
    return disk;
}

FileDisk HostileDisks::DamagedField(Random& random) const {
    const Forgery& forgery = m_forgeries.at(random() % m_forgeries.size());
    FileDisk disk = ToDisk(m_samples.at(forgery.sample), forgery.field);
    disk.extents.push_back(forgery.value);
    return disk;
}

FileDisk HostileDisks::Mutant(Random& random) const {
    constexpr size_t kLongest = 1 << 20;
    std::vector<uint8_t> bytes = AnySample(random).Bytes();
    size_t size = bytes.size();
    bytes.resize(kLongest);
    for (uint64_t changes = 1 + random() % 8; changes > 0; --changes) {
        const auto seed = static_cast<uint32_t>(random());
        ChangesOfBytes().seed(seed);
        size = LLVMFuzzerCustomMutator(bytes.data(), size, kLongest, seed);
    }
    return ToDisk(PartitionInput::Parse(bytes.data(), size), "mutant");
}

FileDisk HostileDisks::Cut(Random& random) const {
    FileDisk disk = ToDisk(AnySample(random), "cut off");
    const Extent& extent = disk.extents.at(random() % disk.extents.size());
    const std::array<uint64_t, 4> edges = {random() % disk.size, extent.offset,
                                           extent.offset + extent.bytes.size() / 2,
                                           extent.offset + extent.bytes.size()};
    const uint64_t edge = edges.at(random() % edges.size());
    disk.size = edge + random() % 3 - std::min<uint64_t>(edge, 1);
    return disk;
}

FileDisk HostileDisks::InTable(Random& random) const {
    FileDisk disk = random() % 2 == 0 ? DamagedField(random) : Mutant(random);
    disk.story += " in a partition table";
    disk.table = random() % 2 == 0 ? FileDisk::Table::Mbr : FileDisk::Table::Gpt;
    for (uint64_t i = random() % 4; i > 0; --i) {
        constexpr std::array<uint32_t, 4> kPlaces = {440, 512, 1024, 16896};
        const auto offset = static_cast<uint32_t>(kPlaces.at(random() % kPlaces.size()) + random() % 96);
        disk.damages.push_back({offset, NoiseOf(random, 1 + random() % 8)});
    }
    return disk;
}

} // namespace fuzzing

/// Changes plain bytes, as libFuzzer would.
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize) {
    std::mt19937& random = fuzzing::ChangesOfBytes();
    for (uint32_t i = 1 + static_cast<uint32_t>(random()) % 4; i > 0; --i) {
        if (size < maxSize && random() % 3 == 0) {
            data[size++] = static_cast<uint8_t>(random());
        } else if (size > 0) {
            data[random() % size] = static_cast<uint8_t>(random());
        }
    }
    return size;
}
