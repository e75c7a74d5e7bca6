#ifndef TESTS_SUPPORT_TRANSCRIPT_H
#define TESTS_SUPPORT_TRANSCRIPT_H

#include <string>

#include "disk_access.h"

namespace test_support {

/// What the searches of an object find, a line each: records plain, around alarms and mixed, events, units, days,
/// space and the newest block.
std::string SearchTranscript(CSearchDisk& disk);

/// What playing everything on a disk delivers, a line a record or unit: the frames, the bytes, a checksum over
/// heads and payloads, and the result that ended it. Also the channel's properties, and what stepping gives.
/// @param searches where the records to play are found
std::string PlaybackTranscript(CReadDisk& disk, CSearchDisk& searches);

/// All that an application can learn from a disk, through objects made for it. Two disks with the same transcript
/// are the same to it.
std::string Transcript(PartAccess_t access);

} // namespace test_support

#endif // TESTS_SUPPORT_TRANSCRIPT_H
