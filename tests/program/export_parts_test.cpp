// The parts of an export that need no disk.

#include <gtest/gtest.h>

#include "cli/failure.h"
#include "cli/progress.h"
#include "cli/typed_time.h"
#include "render/time_zone.h"

namespace {

using namespace diskaccess;

TEST(ProgressLine, TellsHowFarAndHowLong) {
    EXPECT_EQ(ProgressText("exporting", 0.25, 100 << 20, 10), "exporting  25 %  10.0 MiB/s  0:30 left");
    EXPECT_EQ(ProgressText("exporting", 0, 1 << 20, 1), "exporting   0 %  1.0 MiB/s");
}

TEST(Times, OfMicroseconds) {
    const TimeZone berlin("Europe/Berlin");
    EXPECT_EQ(berlin.TextOfMicros(1795185005040999), "2026-11-20 15:30:05.040");
    EXPECT_EQ(berlin.Rfc3339OfMicros(1795185005040999), "2026-11-20T15:30:05.040999+01:00");
    EXPECT_EQ(TimeZone::UtcOfMicros(1795185005040999), "2026-11-20T14:30:05.040999Z");
    EXPECT_EQ(TimeZone::UtcOfMicros(-1), "1969-12-31T23:59:59.999999Z");
}

TEST(Times, OfDocumentsAreReadAgain) {
    EXPECT_EQ(MicrosOfRfc3339("2026-11-20T15:30:05.040999+01:00"), 1795185005040999);
    EXPECT_EQ(MicrosOfRfc3339("2026-11-20T09:00:05.040999-05:30"), 1795185005040999);
    EXPECT_EQ(MicrosOfRfc3339("1969-12-31T23:59:59.999999Z"), -1);
    for (const char* const text :
         {"", "noon", "2026-11-20T14:30:05Z", "2026-02-30T14:30:05.000000Z", "2026-11-20T14:30:05.040999",
          "2026-11-20 14:30:05.040999Z", "2026-11-20T14:30:05.040999Z "}) {
        EXPECT_EQ(MicrosOfRfc3339(text), std::nullopt) << text;
    }
}

} // namespace
