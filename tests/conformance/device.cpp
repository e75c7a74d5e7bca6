// The raw device and the windows of its blocks.

#include "conformance/sections.h"

namespace conformance {

namespace {

void ReadAt(dev_op_st* dev, uint64_t offset, uint32_t length) {
    std::vector<uint8_t> bytes(length);
    Result(dev_seek(dev, static_cast<long long>(offset)), "dev_seek(%llu)",
           static_cast<unsigned long long>(offset));
    if (Result(dev_read(dev, bytes.data(), length), "dev_read(%u)", length) == 0) {
        ShowDigest(bytes.size(), Digest(bytes.data(), bytes.size()));
    }
}

void CallDevice(const Disk& disk, Random& random) {
    PartAccess_t access = disk.access;
    dev_op_st* const dev = dev_open(&access);
    Result(dev == nullptr ? 0 : 1, "dev_open");
    for (const uint32_t block : disk.blocks) {
        const uint64_t start = BLOCK_BASE_OFFSET + uint64_t{block} * disk.head.BlkSize;
        ReadAt(dev, start, sizeof(BlockHead_t));
        const uint32_t before = random.Below(100);
        ReadAt(dev, start + disk.head.BlkSize - before, random.Below(200));
    }
    Result(dev_seek(dev, -1), "dev_seek(-1)");
    Result(dev_seek(dev, INT64_MIN), "dev_seek(INT64_MIN)");
    Result(dev_read(dev, nullptr, 5), "dev_read(null)");
    Result(dev_close(dev), "dev_close");
    Result(dev_close(nullptr), "dev_close(null)");
    Result(dev_open(nullptr) == nullptr ? 0 : 1, "dev_open(null)");
    access.PartName[0] = '?';
    Result(dev_open(&access) == nullptr ? 0 : 1, "dev_open(?)");
}

void ShowWindow(const bolck_op_st& window) {
    Note("  window %lld-%lld at %lld", static_cast<long long>(window.StartOffs),
         static_cast<long long>(window.EndOffs), static_cast<long long>(window.CurOffs));
}

void CallWindow(block_info_t info, Random& random) {
    bolck_op_st* const window = block_open(&info);
    Result(window == nullptr ? 0 : 1, "block_open(%u, %u, %u)", info.BlockNum, info.BlkSize, info.BaseOffs);
    if (window == nullptr) {
        return;
    }
    ShowWindow(*window);
    const std::vector<uint32_t> offsets = {0,
                                           1,
                                           840,
                                           2048,
                                           info.BlkSize - 20,
                                           info.BlkSize - 1,
                                           info.BlkSize,
                                           0x7FFFFFFF,
                                           0x80000000,
                                           info.BlkSize + 1,
                                           0xFFFFFFFF,
                                           info.BlkSize / 2};
    for (int i = 0; i < 20; ++i) {
        const uint32_t offset = random.Of(offsets);
        Result(block_seek(window, offset), "block_seek(%u)", offset);
        std::vector<uint8_t> bytes(random.Below(64));
        const auto length = static_cast<unsigned int>(bytes.size());
        if (Result(block_read(window, bytes.data(), length), "block_read(%u)", length) == 0) {
            ShowDigest(bytes.size(), Digest(bytes.data(), bytes.size()));
        }
        ShowWindow(*window);
    }
    Result(block_read(window, nullptr, 5), "block_read(null)");
    Result(block_close(window), "block_close");
}

} // namespace

void CallDevice(const Disk& disk, const std::string& seed) {
    Random random(seed);
    CallDevice(disk, random);
    block_info_t info = {};
    static_cast<PartAccess_t&>(info) = disk.access;
    info.BlkSize = disk.head.BlkSize;
    info.BaseOffs = BLOCK_BASE_OFFSET;
    for (const uint32_t block : disk.blocks) {
        info.BlockNum = block;
        CallWindow(info, random);
    }
    for (const uint32_t size : {0u, 1u, 0x80000000u, 0xFFFFFFFFu}) {
        info.BlkSize = size;
        info.BlockNum = 3;
        info.BaseOffs = size;
        CallWindow(info, random);
    }
    Result(block_open(nullptr) == nullptr ? 0 : 1, "block_open(null)");
    Result(block_close(nullptr), "block_close(null)");
    Result(block_seek(nullptr, 0), "block_seek(null)");
}

} // namespace conformance
