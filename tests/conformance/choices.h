#ifndef TESTS_CONFORMANCE_CHOICES_H
#define TESTS_CONFORMANCE_CHOICES_H

/// @file choices.h
/// What random choices are made from, where these do not depend on the disk.

#include <cstdint>
#include <vector>

namespace conformance {

constexpr uint32_t kAll = 0xFFFFFFFF;

/// Channels that are recorded, that are not, and that cannot be.
inline const std::vector<uint32_t> kSearchChannels = {0, 1, 2, 5, 31, 32, 127, kAll, kAll, kAll};
inline const std::vector<uint32_t> kPlayChannels = {0, 0, 1, 2, 5, 31, 32, 127};
inline const std::vector<uint32_t> kSkipMasks = {0, 0, 1, 2, 0x80000001, kAll};
inline const std::vector<uint64_t> kAlarmMasks = {
    0, 0, 1, UINT64_MAX, 0xFF, 0xFFFFFFFF, 0x80000000, 0x100000000, uint64_t{1} << 63, 0x0102040810204080};

} // namespace conformance

#endif // TESTS_CONFORMANCE_CHOICES_H
