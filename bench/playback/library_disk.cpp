#include "playback/library_disk.h"

#include "sample_recorder/partition_image.h"

namespace playback_bench {

void LibraryDisk::Open() {
    if (m_disk.Init(&m_access) != 0) {
        throw sample_recorder::Error("the library cannot open the partition");
    }
}

std::vector<RecordItem_t> LibraryDisk::Records() {
    CSearchDisk search;
    search.Init(&m_access);
    SearchParam_t request = {0, 0, 0x7FFFFFFF, 0xFFFFFFFF};
    CCommList<RecordItem_t> found;
    search.SearchMedia(&request, &found);
    std::vector<RecordItem_t> records;
    for (const auto* node = found.m_pHead; node != nullptr; node = node->pNext) {
        records.push_back(node->data);
    }
    search.Quit();
    return records;
}

std::vector<uint32_t> LibraryDisk::Blocks() {
    std::vector<uint32_t> blocks;
    for (const RecordItem_t& record : Records()) {
        if (blocks.empty() || blocks.back() != record.recId >> 16) {
            blocks.push_back(record.recId >> 16);
        }
    }
    return blocks;
}

} // namespace playback_bench
