// A search screen: which days have recordings, and what was recorded on one of them.
//
//   search_screen PARTITION [YYYY-MM-DD]

#include <disk_access.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace {

const unsigned int kAllChannels = 0xFFFFFFFF;
const unsigned int kSecondsPerDay = 86400;

/// The library prints its diagnostics on standard output. A program that prints its own results there keeps a
/// copy of the descriptor and redirects the original.
FILE* TakeStandardOutput() {
    FILE* const own = fdopen(dup(STDOUT_FILENO), "w");
    return std::freopen("/dev/null", "w", stdout) == nullptr ? nullptr : own;
}

std::string TimeText(unsigned int seconds) {
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts = {};
    char text[32];
    gmtime_r(&time, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

/// Each list element is a day's first second, plus one.
unsigned int ShowDays(FILE* out, CSearchDisk& disk) {
    CCommList<unsigned int> days;
    disk.GetDateInfo(&days);
    unsigned int newest = 0;
    for (const CCommListNode<unsigned int>* node = days.m_pHead; node != nullptr; node = node->pNext) {
        std::fprintf(out, "recorded on %.10s\n", TimeText(node->data).c_str());
        newest = node->data > newest ? node->data : newest;
    }
    return newest == 0 ? 0 : newest - 1;
}

void ShowRecords(FILE* out, CSearchDisk& disk, unsigned int day) {
    SearchParam_t request = {0, day, day + kSecondsPerDay, kAllChannels};
    CCommList<RecordItem_t> records;
    disk.SearchMedia(&request, &records);
    for (const CCommListNode<RecordItem_t>* node = records.m_pHead; node != nullptr; node = node->pNext) {
        const RecordItem_t& record = node->data;
        std::fprintf(out, "channel %2u  %s", record.chn, TimeText(record.startTime).c_str());
        if (record.flag == 1) {
            std::fputs("  still being recorded\n", out); // its end is only an upper limit
        } else {
            std::fprintf(out, "  %s  %u KiB\n", TimeText(record.endTime).c_str(), record.size / 1024);
        }
    }
}

void ShowEvents(FILE* out, CSearchDisk& disk, unsigned int day) {
    SearchParam_t request = {0xFFFFFFFFFFFFFFFF, day, day + kSecondsPerDay, kAllChannels};
    CCommList<EventItem_t> events;
    disk.SearchEvent(&request, &events);
    for (const CCommListNode<EventItem_t>* node = events.m_pHead; node != nullptr; node = node->pNext) {
        const uint64_t type = node->data.alarmType; // records are packed: copy before you take a reference
        std::fprintf(out, "event       %s  0x%llx\n", TimeText(node->data.time).c_str(),
                     static_cast<unsigned long long>(type));
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PARTITION [YYYY-MM-DD]\n", argv[0]);
        return 2;
    }
    FILE* const out = TakeStandardOutput();
    if (out == nullptr) {
        std::perror("standard output");
        return 1;
    }
    PartAccess_t part = {};
    std::snprintf(part.PartName, sizeof part.PartName, "%s", argv[1]);
    CSearchDisk disk;
    disk.Init(&part); // a partition that cannot be opened looks like one without recordings

    unsigned int day = ShowDays(out, disk);
    std::tm asked = {};
    if (argc > 2 && strptime(argv[2], "%Y-%m-%d", &asked) != nullptr) {
        day = static_cast<unsigned int>(timegm(&asked));
    }
    if (day == 0) {
        std::fputs("nothing is recorded here\n", out);
    } else {
        ShowRecords(out, disk, day);
        ShowEvents(out, disk, day);
    }
    disk.Quit();
    std::fclose(out);
    return 0;
}
