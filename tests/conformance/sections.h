#ifndef TESTS_CONFORMANCE_SECTIONS_H
#define TESTS_CONFORMANCE_SECTIONS_H

#include <string>

#include "conformance/disks.h"

namespace conformance {

// Scripts of calls. Each one's random choices depend on @p seed alone.

/// The list, objects that were never opened, and the functions that need no partition.
void CallWithoutDisk(const std::string& seed);
/// dev_open() to block_read().
void CallDevice(const Disk& disk, const std::string& seed);
void CallSearchBlock(const Disk& disk, const std::string& seed);
void CallSearchPart(const Disk& disk, const std::string& seed);
void CallSearchDisk(const Disk& disk, const std::string& seed);
void CallReadBlock(const Disk& disk, const std::string& seed);
void CallReadPart(const Disk& disk, const std::string& seed);
void CallReadDisk(const Disk& disk, const std::string& seed);
void CallPrintDisk(const Disk& disk, const std::string& seed);
/// Searches, playback and blocks of partitions damaged at random.
/// @param fmtVersion 1: extended block layout
/// @param cases      how many
void CallOnDamage(uint32_t fmtVersion, uint32_t cases);

/// The searches that a disk damaged at random is put through, and the playback of what they find.
void SearchDamaged(const Disk& disk, Random& random);
void PlayDamaged(const Disk& disk, Random& random);

} // namespace conformance

#endif // TESTS_CONFORMANCE_SECTIONS_H
