#include "support/partition_input.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace fuzzing {

namespace {

struct ExtentHead {
    uint32_t offset;
    uint16_t length;
} __attribute__((packed));

/// Takes bytes off the front of an input; what is missing is zero.
class Front {
public:
    Front(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    template <typename Structure>
    Structure Take() {
        Structure structure = {};
        const size_t part = std::min(m_size, sizeof structure);
        std::memcpy(&structure, m_data, part);
        Skip(part);
        return structure;
    }
    std::vector<uint8_t> TakeBytes(size_t size) {
        const size_t part = std::min(m_size, size);
        std::vector<uint8_t> bytes(m_data, m_data + part);
        Skip(part);
        return bytes;
    }
    size_t Left() const { return m_size; }

private:
    void Skip(size_t size) {
        m_data += size;
        m_size -= size;
    }

    const uint8_t* m_data;
    size_t m_size;
};

template <typename Structure>
void Append(std::vector<uint8_t>& bytes, const Structure& structure) {
    const auto* const raw = reinterpret_cast<const uint8_t*>(&structure);
    bytes.insert(bytes.end(), raw, raw + sizeof structure);
}

} // namespace

PartitionInput PartitionInput::Parse(const uint8_t* data, size_t size) {
    static const uint8_t nothing = 0;
    Front front(size == 0 ? &nothing : data, size);
    PartitionInput input;
    input.head = front.Take<InputHead>();
    for (unsigned i = 0; i < input.head.extents && front.Left() > 0; ++i) {
        const auto extent = front.Take<ExtentHead>();
        input.extents.push_back({extent.offset, front.TakeBytes(extent.length)});
    }
    input.script = front.TakeBytes(front.Left());
    return input;
}

std::vector<uint8_t> PartitionInput::Bytes() const {
    std::vector<uint8_t> bytes;
    InputHead counted = head;
    counted.extents = static_cast<uint16_t>(extents.size());
    Append(bytes, counted);
    for (const Extent& extent : extents) {
        Append(bytes, ExtentHead{extent.offset, static_cast<uint16_t>(extent.bytes.size())});
        bytes.insert(bytes.end(), extent.bytes.begin(), extent.bytes.end());
    }
    bytes.insert(bytes.end(), script.begin(), script.end());
    return bytes;
}

void PartitionInput::LayOn(MemoryDevice& device) const {
    device.SetSize(std::min<uint64_t>(head.deviceSize, MemoryDevice::kLargest));
    for (const Extent& extent : extents) {
        device.Lay(extent.offset, extent.bytes.data(), extent.bytes.size());
    }
}

PartAccess_t PartitionInput::Access(size_t device) const {
    PartAccess_t part = {};
    part.DiskType = head.diskType;
    std::snprintf(part.PartName, sizeof part.PartName, "%s", Machine::kNames[device]);
    return part;
}

uint32_t PartitionInput::Word(uint32_t offset) const {
    std::array<uint8_t, sizeof(uint32_t)> bytes = {}; // extents may hold part of it
    for (const Extent& extent : extents) {
        for (size_t i = 0; i < bytes.size(); ++i) {
            const uint64_t at = uint64_t{offset} + i;
            if (at >= extent.offset && at - extent.offset < extent.bytes.size()) {
                bytes[i] = extent.bytes[static_cast<size_t>(at - extent.offset)];
            }
        }
    }
    uint32_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    return word;
}

void PartitionInput::PutWord(uint32_t offset, uint32_t value) {
    for (auto extent = extents.rbegin(); extent != extents.rend(); ++extent) {
        if (offset >= extent->offset && uint64_t{offset} + 4 <= extent->offset + extent->bytes.size()) {
            std::memcpy(extent->bytes.data() + (offset - extent->offset), &value, sizeof value);
            return;
        }
    }
    Extent fresh = {offset, std::vector<uint8_t>(sizeof value)};
    std::memcpy(fresh.bytes.data(), &value, sizeof value);
    extents.push_back(std::move(fresh));
}

size_t PartitionInput::Weight() const {
    size_t weight = 0;
    for (const Extent& extent : extents) {
        weight += extent.bytes.size();
    }
    return weight;
}

} // namespace fuzzing
