#include "commands.h"
#include "failure.h"

namespace diskaccess {

Report Space(Session& session) {
    DiskSpaceInfo_t space = {};
    if (session.Search().GetSpaceInfo(&space) != 0) {
        throw Failure(session.Disk().Path() + ": its space cannot be told");
    }
    Report report;
    report.facts = {{"total_bytes", "Total", Bytes{space.totalSize}},
                    {"used_bytes", "Used", Bytes{space.totalSize - space.freeSize}},
                    {"free_bytes", "Free", Bytes{space.freeSize}},
                    {"wrapped", "Overwriting its oldest recordings", space.freeSize == 0}};
    return report;
}

} // namespace diskaccess
