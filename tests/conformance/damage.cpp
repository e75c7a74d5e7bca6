// Disks damaged at random: what a damaged disk gives is the same everywhere, too.

#include <unistd.h>

#include <cstdio>

#include "conformance/sections.h"
#include "damage/damaged_disk.h"

namespace conformance {

namespace {

/// Damages that no other test makes.
constexpr uint32_t kFirstSeed = 0x300000;

/// Rings forged to be longer are walked block by block, with a message for each: not here.
constexpr uint32_t kMostBlocks = 64;

void CallBlocks(const Disk& disk, const std::string& seed) {
    Disk some = disk;
    some.blocks = {4, 11, 0xFFFFFFFF};
    CallSearchBlock(some, seed);
    CallReadBlock(some, seed);
}

} // namespace

void CallOnDamage(uint32_t fmtVersion, uint32_t cases) {
    test_support::DamagedDisk damaged(fmtVersion);
    // The library prints the name that it is given, so it gets one that is always the same.
    constexpr char kName[] = "damaged";
    unlink(kName);
    if (symlink(damaged.Image().Path().c_str(), kName) != 0) {
        throw sample_recorder::Error("cannot make a link in the current directory");
    }
    Disk disk = Describe(damaged.Image());
    std::snprintf(disk.access.PartName, sizeof disk.access.PartName, "%s", kName);
    for (uint32_t i = 0; i < cases; ++i) {
        const uint32_t seed = kFirstSeed + fmtVersion * 0x10000 + i;
        damaged.DamageWithFrames(seed);
        Note("case %u: %s", seed, damaged.Story().c_str());
        disk.head = damaged.Head();
        const std::string text = "case " + std::to_string(seed);
        Random random(text);
        if (disk.head.BlkCount <= kMostBlocks) {
            SearchDamaged(disk, random);
            PlayDamaged(disk, random);
        }
        if (i % 8 == 0) {
            CallBlocks(disk, text);
        }
    }
}

} // namespace conformance
