// The records and list instances of the library's interface: one copy in the library for all callers.

#include <cstddef>

#include "dev_io.h"
#include "search_records.h"

// Callers pass these records in memory: their layout is the same on every target.
static_assert(sizeof(PartAccess_t) == 132 && offsetof(PartAccess_t, PartName) == 4, "partition descriptor");
static_assert(sizeof(block_info_t) == 144, "block window request");
static_assert(sizeof(SearchParam_t) == 20 && offsetof(SearchParam_t, chn) == 16, "search request");
static_assert(sizeof(RecordItem_t) == 32 && offsetof(RecordItem_t, flag) == 28, "record");
static_assert(sizeof(EventItem_t) == 16 && offsetof(EventItem_t, time) == 12, "event");
static_assert(sizeof(EventPeriodItem_t) == 16 && sizeof(UnitItem_t) == 8 && sizeof(UnitTimeItem_t) == 12,
              "units");
static_assert(sizeof(InputTime_t) == 16 && sizeof(OutputTime_t) == 8, "search region");
static_assert(sizeof(DiskSpaceInfo_t) == 16 && offsetof(DiskSpaceInfo_t, freeSize) == 8, "space report");

template class CCommList<RecordItem_t>;
template class CCommList<EventItem_t>;
template class CCommList<EventPeriodItem_t>;
template class CCommList<UnitItem_t>;
template class CCommList<unsigned int>;
