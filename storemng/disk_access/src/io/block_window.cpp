#include <unistd.h>

#include <cstdlib>

#include "dev_io.h"
#include "io/device.h"
#include "io/host.h"
#include "io/messages.h"

using namespace disk_access;

namespace {

/// Device offset of a block's first byte. Computed in 64 bits: partitions exceed 4 GiB.
int64_t StartOf(const block_info_t& info, uint32_t block) {
    return static_cast<int64_t>(info.BaseOffs + uint64_t{block} * info.BlkSize);
}

/// Adds offsets without the undefined overflow that a forged geometry could cause: a sum that wraps is
/// negative, and the device refuses it.
int64_t Advance(int64_t offset, uint32_t bytes) {
    return static_cast<int64_t>(static_cast<uint64_t>(offset) + bytes);
}

bool Invalid(const bolck_op_st* block) {
    return block == nullptr || block->fd < 1;
}

} // namespace

bolck_op_st* block_open(block_info_t* info) {
    if (info == nullptr) {
        return nullptr;
    }
    auto* const block = static_cast<bolck_op_st*>(std::malloc(sizeof(bolck_op_st)));
    if (block == nullptr) {
        DISK_ACCESS_REPORT_FAILURE("block_open");
        return nullptr;
    }
    block->fd = OpenReadOnly(*info);
    if (block->fd < 0) {
        DISK_ACCESS_REPORT_FAILURE("block_open");
        std::free(block);
        return nullptr;
    }
    block->StartOffs = StartOf(*info, info->BlockNum);
    block->EndOffs = StartOf(*info, info->BlockNum + 1);
    block->CurOffs = block->StartOffs;
    if (HostSeek(block->fd, block->StartOffs, SEEK_SET) < 0) {
        DISK_ACCESS_REPORT_FAILURE("block_open");
        HostClose(block->fd);
        std::free(block);
        return nullptr;
    }
    return block;
}

int block_close(bolck_op_st* block) {
    if (Invalid(block)) {
        return -1;
    }
    HostFlush(block->fd);
    HostClose(block->fd);
    std::free(block);
    return 0;
}

int block_seek(bolck_op_st* block, unsigned int offset) {
    if (Invalid(block)) {
        return -1;
    }
    const int64_t target = Advance(block->StartOffs, offset);
    if (block->EndOffs < target) {
        return -1;
    }
    block->CurOffs = target;
    if (HostSeek(block->fd, target, SEEK_SET) < 0) {
        block->CurOffs = block->StartOffs;
        return -1;
    }
    return 0;
}

int block_read(bolck_op_st* block, void* buf, unsigned int len) {
    if (buf == nullptr || Invalid(block)) {
        return -1;
    }
    if (block->EndOffs < Advance(block->CurOffs, len)) {
        return -1;
    }
    if (HostReadWhole(block->fd, buf, len)) {
        block->CurOffs = Advance(block->CurOffs, len);
        return 0;
    }
    // Reads rely on the device's position being CurOffs: move it back to where this read began.
    HostSeek(block->fd, block->CurOffs, SEEK_SET);
    return -1;
}
