#ifndef DISK_ACCESS_FORMAT_CHANNELS_H
#define DISK_ACCESS_FORMAT_CHANNELS_H

#include <cstdint>

namespace disk_access {

/// Number of channels of a recorder, and of entries in every table with one entry per channel.
constexpr uint32_t kChannels = 32;

/// A channel argument that means all of them.
constexpr uint32_t kAllChannels = 0xFFFFFFFF;

/// PartReadHandle_st::ChnType of a reader of every channel. 0: only the record's channel.
constexpr int kAllChannelReader = 1;

/// Whether bit @p chn of a channel set is set. Ids can have channels up to 127; those above 31 are in no set.
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
