#ifndef DISKACCESS_MARKS_H
#define DISKACCESS_MARKS_H

#include <string>

#include "recordings/disk.h"
#include "recordings/health.h"
#include "render/report.h"

namespace diskaccess {

/// What the bad-block tables say of a block: "suspect", "bad", or nothing.
Value MarkValue(recordings::BlockMark mark);

/// The channels that a finding concerns. Where none are known, text does not say that there are none.
Value ChannelsOf(const recordings::Finding& finding);

/// What there is to know of something that lies in a block: "not closed, suspect"; empty when all is well.
std::string NoteText(bool closed, recordings::BlockMark mark);

} // namespace diskaccess

#endif // DISKACCESS_MARKS_H
