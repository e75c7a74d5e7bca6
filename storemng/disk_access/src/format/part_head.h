#ifndef DISK_ACCESS_FORMAT_PART_HEAD_H
#define DISK_ACCESS_FORMAT_PART_HEAD_H

#include <cstdint>
#include <cstring>

#include "disk_format.h"

namespace disk_access {

/// The magic of a partition of this disk type.
constexpr uint32_t ExpectedMagic(int diskType) {
    return diskType == 52 || diskType == 19 || diskType == 34 ? PART_MAGIC_ALT : PART_MAGIC;
}

/// Whether the access lock is on. The bit of value 2 does not matter.
constexpr bool LockActive(uint32_t encrypt) {
    return (encrypt & ~2u) != 0;
}

/// Copies the password as NUL-terminated text of at most 127 characters. On the disk it may have no NUL.
inline void CopyCipherCode(char (&out)[128], const PartHead_t& head) {
    std::memcpy(out, head.CipherCode, sizeof out);
    out[sizeof out - 1] = '\0';
}

/// Bytes of the bad-block bit table. Computed in 64 bits: near 2^32 blocks the sum would wrap to 0.
constexpr uint32_t BadBlockTabSize(uint32_t blkCount) {
    return static_cast<uint32_t>((uint64_t{blkCount} + 7) / 8);
}

/// Whether a block is marked in a bad-block bit table.
inline bool MarkedBad(const uint8_t* badBlockTab, uint32_t block) {
    return (badBlockTab[block >> 3] >> (block & 7) & 1) != 0;
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_PART_HEAD_H
