#include "footprint/footprint.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "disk_access.h"
#include "sample_recorder/generated_source.h"
#include "sample_recorder/recorder.h"
#include "support/allocations.h"
#include "support/temp_dir.h"

namespace test_support {

namespace {

using sample_recorder::PartitionImage;

using RecordList = CCommList<RecordItem_t>;

constexpr uint32_t kStart = 1700000000;
constexpr uint32_t kSeconds = 120;

void Require(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

/// Records two minutes of some cameras at the ring's beginning.
void Record(PartitionImage& image) {
    sample_recorder::RecorderSettings settings;
    sample_recorder::MergedSource frames;
    for (uint32_t chn = 0; chn < kFootprintChannels; ++chn) {
        sample_recorder::GeneratedCamera camera;
        camera.channel = chn;
        settings.channels |= 1u << chn;
        frames.Add(std::make_unique<sample_recorder::GeneratedSource>(camera, 1, kStart, kSeconds));
    }
    sample_recorder::Recorder recorder(image, settings);
    sample_recorder::Frame frame;
    while (frames.Next(frame)) {
        recorder.Write(frame);
    }
    recorder.PowerOff();
}

PartitionImage MakeDisk(const std::string& path) {
    sample_recorder::Format format;
    format.blockCount = kFootprintBlocks;
    format.blockSize = 0x100000;
    PartitionImage image = PartitionImage::Create(path, format);
    Record(image);
    return image;
}

/// Bytes of the index tables of a block.
size_t TablesOf(const PartitionImage& image, uint32_t block) {
    const auto counts = image.Get<BlkIndexHead_t>(image.IndexOffset(block));
    size_t size = counts.eventCount * sizeof(EventIndexItem_t);
    for (uint32_t chn = 0; chn < 32; ++chn) {
        size += counts.iframeCount[chn] * sizeof(IFrameItem_t);
        size += counts.recSegCount[chn] * sizeof(RecSegItem_t);
    }
    return size;
}

/// @return a record found
RecordItem_t MeasureSearch(PartAccess_t access, const HeapWatch& heap, Footprint& footprint) {
    CSearchDisk disk;
    Require(disk.Init(&access) == 0, "the search does not begin");
    footprint.searchInit = heap.Held();
    SearchParam_t request = {0, kStart, kStart + kSeconds, 0xFFFFFFFF};
    RecordList records;
    disk.SearchMedia(&request, &records);
    Require(records.m_pHead != nullptr, "nothing is found");
    const RecordItem_t record = records.m_pHead->data;
    const size_t before = heap.Held();
    records.RemoveAll();
    footprint.searchKept = heap.Held();
    footprint.searchPeak = heap.Peak() - (before - heap.Held());
    return record;
}

/// Opens a reader and reads some frames of a record.
void* Play(CReadDisk& disk, RecordItem_t record) {
    constexpr int kFrames = 10;
    void* const reader = disk.StartRead(0, &record);
    FrameInfo_t frame = {};
    void* payload = nullptr;
    for (int i = 0; i < kFrames; ++i) {
        Require(disk.ReadFrame(reader, &frame, &payload) == 0, "a frame is missing");
    }
    free(payload);
    return reader;
}

void MeasurePlayback(PartAccess_t access, const RecordItem_t& record, const HeapWatch& heap,
                     Footprint& footprint) {
    CReadDisk disk;
    Require(disk.Init(&access) == 0, "the playback does not begin");
    footprint.readInit = heap.Held();
    void* const first = Play(disk, record);
    footprint.reader = heap.Held() - footprint.readInit;
    void* const second = Play(disk, record);
    footprint.nextReader = heap.Held() - footprint.readInit - footprint.reader;
    disk.StopRead(second);
    disk.StopRead(first);
    disk.Quit();
}

} // namespace

Footprint MeasureFootprint() {
    const TempDir directory;
    const PartitionImage image = MakeDisk(directory.File("disk"));
    const PartAccess_t access = image.Access();
    Footprint footprint;
    const HeapWatch heap;
    const RecordItem_t record = MeasureSearch(access, heap, footprint);
    footprint.readerTables = TablesOf(image, record.recId >> 16);
    MeasurePlayback(access, record, heap, footprint);
    footprint.left = heap.Held();
    return footprint;
}

} // namespace test_support
