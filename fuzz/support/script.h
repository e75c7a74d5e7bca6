#ifndef FUZZ_SUPPORT_SCRIPT_H
#define FUZZ_SUPPORT_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

namespace fuzzing {

/// First second of the sample partitions.
constexpr uint32_t kSampleStart = 1700000000;
/// From their first journey to the second.
constexpr uint32_t kNextJourney = 90000;

/// Values at which counts, positions and times go over an edge.
constexpr uint32_t kEdges[] = {0,          1,          2,          31,         32,         127,
                               0xFF,       0xFFFF,     0x10000,    0x7FFFFFFF, 0x80000000, 0x80000001,
                               0xFFFFFFFE, 0xFFFFFFFF, 0x10000001, 0x0CCCCCCD, 0x0AAAAAAB, 0x20000000,
                               0xFFFFFFE8, 0x7FFFFFFE, 0x800000,   0x01FF};

/// The operations of an input, read byte by byte; zeros after its end.
class Script {
public:
    explicit Script(const std::vector<uint8_t>& bytes) : m_bytes(bytes) {}

    bool Done() const { return m_at >= m_bytes.size(); }

    uint8_t Byte() { return Done() ? uint8_t{0} : m_bytes[m_at++]; }
    /// A number below @p below, which is 1 to 256.
    uint32_t Below(size_t below) { return static_cast<uint32_t>(Byte() % below); }
    bool Flag() { return (Byte() & 1) != 0; }
    uint32_t Word() {
        const uint32_t low = Byte() | static_cast<uint32_t>(Byte()) << 8;
        return low | static_cast<uint32_t>(Byte()) << 16 | static_cast<uint32_t>(Byte()) << 24;
    }
    /// Any number, mostly one below @p usual.
    uint32_t Number(uint32_t usual) {
        const uint8_t choice = Byte();
        if (choice < 0xC0) {
            return choice % usual;
        }
        return choice < 0xF0 ? kEdges[(choice - 0xC0u) % std::size(kEdges)] : Word();
    }
    /// A position or length, mostly inside a small block.
    uint32_t Position() {
        const uint8_t choice = Byte();
        if (choice < 0xC0) {
            return choice * 24u + Byte();
        }
        return choice < 0xF0 ? kEdges[(choice - 0xC0u) % std::size(kEdges)] : Word();
    }
    /// A second, mostly one of the sample partitions.
    uint32_t Time() {
        const uint8_t choice = Byte();
        if (choice < 0x60) {
            return kSampleStart - 8 + choice;
        }
        if (choice < 0xC0) {
            return kSampleStart + kNextJourney - 8 + (choice - 0x60u);
        }
        return choice < 0xF0 ? kEdges[(choice - 0xC0u) % std::size(kEdges)] : Word();
    }
    uint64_t Mask() {
        const uint8_t choice = Byte();
        return choice < 0x40   ? 0
               : choice < 0x80 ? ~uint64_t{0}
               : choice < 0xC0 ? uint64_t{1} << choice % 64
                               : Word() | uint64_t{Word()} << 32;
    }
    /// A channel, often all of them.
    uint32_t Channel() {
        const uint8_t choice = Byte();
        return choice < 0x60   ? 0xFFFFFFFF
               : choice < 0xE0 ? choice % 4u
               : choice < 0xF8 ? choice % 64u
                               : Word();
    }

private:
    const std::vector<uint8_t>& m_bytes;
    size_t m_at = 0;
};

} // namespace fuzzing

#endif // FUZZ_SUPPORT_SCRIPT_H
