#ifndef RECORDINGS_TABLE_CHECKS_H
#define RECORDINGS_TABLE_CHECKS_H

#include "recordings/health.h"

namespace recordings {

/// Checks what lies before the ring: where the partition head has the bad-block tables, whether the tables and their backup
/// copies say the same, and whether the ring ends where the head says.
void CheckTables(const Disk& disk, const BlockList& blocks, const FindingSink& findings);

} // namespace recordings

#endif // RECORDINGS_TABLE_CHECKS_H
