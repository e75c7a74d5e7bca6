#ifndef DISK_ACCESS_SEARCH_SEARCH_DISK_ALARM_H
#define DISK_ACCESS_SEARCH_SEARCH_DISK_ALARM_H

#include "search_part.h"
#include "search_records.h"

namespace disk_access {

/// Searches the records around the events of the types asked for: CSearchDisk::SearchMedia() with an alarm mask.
/// @return the number appended
int SearchAlarmMedia(CSearchPart& part, SearchParam_t* param, unsigned int lockedMap,
                     CCommList<RecordItem_t>* out);

} // namespace disk_access

#endif // DISK_ACCESS_SEARCH_SEARCH_DISK_ALARM_H
