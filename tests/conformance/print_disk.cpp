// CPrintDisk, in two time zones: files pass for block devices meanwhile.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "conformance/sections.h"
#include "host/system_calls.h"

namespace conformance {

namespace {

int Print(void* ctx, const char* format, ...) __attribute__((format(printf, 2, 3)));

int Print(void* ctx, const char* format, ...) {
    ++*static_cast<int*>(ctx);
    va_list values;
    va_start(values, format);
    const int length = std::vprintf(format, values);
    va_end(values);
    return length;
}

void SetZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

} // namespace

void CallPrintDisk(const Disk& disk, const std::string& /*seed*/) {
    const test_support::BlockDeviceGuise guise;
    PartAccess_t access = disk.access;
    // A dump of every block of a large disk would be as large as all others together.
    const std::vector<int> levels = disk.small ? std::vector<int>{-1, 0, 1, 2, 3} : std::vector<int>{-1, 1};
    for (const char* const zone : {"EET-2EEST,M3.5.0/3,M10.5.0/4", "UTC0"}) {
        SetZone(zone);
        for (const int level : levels) {
            int pieces = 0;
            const int result = CPrintDisk().Print(&access, level, Print, &pieces);
            Result(result, "Print(%d, %s)", level, zone);
            Note("  %d pieces", pieces);
        }
    }
    Result(CPrintDisk().Print(nullptr, 0, Print, nullptr), "Print(null)");
}

} // namespace conformance
