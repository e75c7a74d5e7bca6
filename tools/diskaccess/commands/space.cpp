#include "cli/failure.h"
#include "commands/commands.h"

namespace diskaccess {

Report Space(Job& job) {
    DiskSpaceInfo_t space = {};
    if (job.Search().GetSpaceInfo(&space) != 0) {
        throw Failure(job.Disk().Path() + ": its space cannot be told");
    }
    return {{Facts{{"ring_size_bytes", "Total", Bytes{space.totalSize}},
                   {"used_bytes", "Used", Bytes{space.totalSize - space.freeSize}},
                   {"free_bytes", "Free", Bytes{space.freeSize}},
                   {"wrapped", "Overwriting its oldest recordings", space.freeSize == 0}}}};
}

} // namespace diskaccess
