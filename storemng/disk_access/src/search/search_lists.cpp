// The list instances that cross the library's interface, in the library once for all its callers.

#include "search_records.h"

template class CCommList<RecordItem_t>;
template class CCommList<EventItem_t>;
template class CCommList<EventPeriodItem_t>;
template class CCommList<UnitItem_t>;
template class CCommList<unsigned int>;
