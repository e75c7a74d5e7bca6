// The local times in a dump.

#include <dlfcn.h>

#include <algorithm>
#include <ctime>

#include "dump/dump_fixture.h"

#if __SIZEOF_POINTER__ == 4
#define LOCALTIME_R __localtime64_r // its name where times are 64 bits wide on a 32-bit host
#else
#define LOCALTIME_R localtime_r
#endif
#define NAME_TEXT(name) #name
#define NAME_OF(name) NAME_TEXT(name)

namespace {

bool g_timeUnknown = false;

} // namespace

/// Takes the place of the C library's, so that it can fail.
extern "C" __attribute__((visibility("default"))) std::tm* LOCALTIME_R(const time_t* time,
                                                                       std::tm* parts) noexcept {
    using Function = std::tm* (*)(const time_t*, std::tm*);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, NAME_OF(LOCALTIME_R)));
    return g_timeUnknown ? nullptr : real(time, parts);
}

namespace {

using namespace test_support;

class PrintTime : public DumpFixture {
protected:
    /// The line of a block's time in @p zone.
    std::string LineIn(const char* zone, uint32_t time) {
        Disk().Change<BlockHead_t>(Disk().HeadOffset(0), [=](auto& head) { head.RecTime = time; });
        const ZoneSetting setting(zone);
        const std::string text = DumpAt(2).text;
        const size_t begin = text.find("RecTime");
        return text.substr(begin, text.find('\n', begin) - begin);
    }
};

TEST_F(PrintTime, InTheHostsZone) {
    MakeDisk(1);
    EXPECT_EQ(LineIn("UTC", 1700000000), "RecTime : 1700000000, [2023.11.14 22:13:20]");
    EXPECT_EQ(LineIn("Europe/Berlin", 1700000000), "RecTime : 1700000000, [2023.11.14 23:13:20]");
    EXPECT_EQ(LineIn("America/New_York", 1700000000), "RecTime : 1700000000, [2023.11.14 17:13:20]");
    EXPECT_EQ(LineIn("Asia/Kolkata", 1700000000), "RecTime : 1700000000, [2023.11.15 03:43:20]");
}

TEST_F(PrintTime, InSummer) {
    MakeDisk(1);
    EXPECT_EQ(LineIn("UTC", 1720000000), "RecTime : 1720000000, [2024.07.03 09:46:40]");
    EXPECT_EQ(LineIn("Europe/Berlin", 1720000000), "RecTime : 1720000000, [2024.07.03 11:46:40]");
    EXPECT_EQ(LineIn("America/New_York", 1720000000), "RecTime : 1720000000, [2024.07.03 05:46:40]");
}

TEST_F(PrintTime, WhenClocksAreTurned) {
    MakeDisk(1);
    // 2024-03-31 01:00 UTC: two o'clock is skipped.
    EXPECT_EQ(LineIn("Europe/Berlin", 1711846799), "RecTime : 1711846799, [2024.03.31 01:59:59]");
    EXPECT_EQ(LineIn("Europe/Berlin", 1711846800), "RecTime : 1711846800, [2024.03.31 03:00:00]");
    // 2024-11-03 06:00 UTC: one o'clock comes twice.
    EXPECT_EQ(LineIn("America/New_York", 1730613599), "RecTime : 1730613599, [2024.11.03 01:59:59]");
    EXPECT_EQ(LineIn("America/New_York", 1730613600), "RecTime : 1730613600, [2024.11.03 01:00:00]");
}

TEST_F(PrintTime, BeforeTheEpochAndAfterTheLastSecond) {
    MakeDisk(1);
    EXPECT_EQ(LineIn("America/New_York", 0), "RecTime : 0, [1969.12.31 19:00:00]");
    EXPECT_EQ(LineIn("Europe/Berlin", 0xFFFFFFFF), "RecTime : -1, [2106.02.07 07:28:15]");
}

TEST_F(PrintTime, IsUnsignedAfter2038) {
    MakeDisk(1);
    EXPECT_EQ(LineIn("UTC", 0x7FFFFFFF), "RecTime : 2147483647, [2038.01.19 03:14:07]");
    EXPECT_EQ(LineIn("UTC", 0x80000000), "RecTime : -2147483648, [2038.01.19 03:14:08]");
    EXPECT_EQ(LineIn("UTC", 0xFFFFFFFF), "RecTime : -1, [2106.02.07 06:28:15]");
}

TEST_F(PrintTime, IsPassedOnAsTheFormatItself) {
    MakeSample();
    const Lines formats = DumpAt(2).formats;
    for (const char* const label : {"RecTime", "StartTime", "EndTime", "Ex StartTime", "Ex EndTime"}) {
        const auto at = std::find(formats.begin(), formats.end(), std::string(label) + " : %d, ");
        ASSERT_NE(at, formats.end()) << label;
        EXPECT_EQ((at + 1)->size(), std::string("[2023.11.14 22:13:20]\n").size()) << *(at + 1);
        EXPECT_EQ((at + 1)->front(), '[');
        EXPECT_EQ((at + 1)->find('%'), std::string::npos);
    }
}

TEST_F(PrintTime, ThatIsUnknownEndsTheLineAllTheSame) {
    MakeSample();
    const std::string known = DumpAt(2).text;
    g_timeUnknown = true;
    const Dumped dumped = DumpAt(2);
    g_timeUnknown = false;
    EXPECT_EQ(dumped.result, 0);
    EXPECT_NE(dumped.text.find("RecTime : 1700000000, \n"), std::string::npos);
    EXPECT_EQ(std::count(dumped.text.begin(), dumped.text.end(), '\n'),
              std::count(known.begin(), known.end(), '\n'));
}

} // namespace
