// Another project's program: lists what is on a partition.

#include <disk_access.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    PartAccess_t part = {};
    std::snprintf(part.PartName, sizeof part.PartName, "%s", argv[1]);
    CSearchDisk disk;
    disk.Init(&part);
    SearchParam_t everything = {0, 0, 0x7FFFFFFF, 0xFFFFFFFF};
    CCommList<RecordItem_t> records;
    std::printf("records: %d\n", disk.SearchMedia(&everything, &records));
    return 0;
}
