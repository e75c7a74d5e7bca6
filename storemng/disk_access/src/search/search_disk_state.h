#ifndef DISK_ACCESS_SEARCH_SEARCH_DISK_STATE_H
#define DISK_ACCESS_SEARCH_SEARCH_DISK_STATE_H

#include <cstdint>

#include "dev_io.h"
#include "search_part.h"

/// A disk given to the search interface.
struct DiskSearchState_t {
    PartAccess_t partAccess;
    CSearchPart* searchPart; ///< owned; closed if the partition could not be opened
    uint32_t lockedMap;      ///< channels that media searches leave out
};

#endif // DISK_ACCESS_SEARCH_SEARCH_DISK_STATE_H
