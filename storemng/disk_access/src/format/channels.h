#ifndef DISK_ACCESS_FORMAT_CHANNELS_H
#define DISK_ACCESS_FORMAT_CHANNELS_H

#include <cstdint>

namespace disk_access {

/// Channels of a recorder, and entries of every table that has one a channel.
constexpr uint32_t kChannels = 32;

/// A channel argument that means all of them.
constexpr uint32_t kAllChannels = 0xFFFFFFFF;

/// PartReadHandle_st::ChnType of a reader of every channel; 0 is one of its record's channel alone.
constexpr int kAllChannelReader = 1;

/// Whether bit @p chn of a channel set is set. Ids carry channels up to 127: none above 31 is in any set.
constexpr bool HasChannel(uint32_t set, uint32_t chn) {
    return chn < kChannels && (set >> chn & 1u) != 0;
}

constexpr int CountChannels(uint32_t set) {
    int count = 0;
    for (; set != 0; set &= set - 1) {
        ++count;
    }
    return count;
}

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_CHANNELS_H
