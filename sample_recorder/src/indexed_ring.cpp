#include "sample_recorder/indexed_ring.h"

namespace sample_recorder {

namespace {

constexpr uint32_t kBytesPerSecond = 100000;

BlockContents BlockOfAge(const IndexedRing& ring, uint32_t age) {
    const uint32_t start = ring.firstTime + age * ring.secondsPerBlock;
    BlockContents contents = BlockContents::Closed(age + 1, start, start + ring.secondsPerBlock - 1);
    contents.head.pre_RecTime = 10;
    contents.head.AlmDelayTime = 30;
    const uint32_t segmentSeconds = ring.secondsPerBlock / ring.segmentsPerChannel;
    for (uint32_t chn = 0; chn < ring.channels; ++chn) {
        for (uint32_t i = 0; i < ring.segmentsPerChannel; ++i) {
            const uint32_t begin = start + i * segmentSeconds;
            contents.Segment(chn, begin, begin + segmentSeconds - 1, segmentSeconds * kBytesPerSecond);
        }
        for (uint32_t i = 0; i < ring.iframesPerChannel; ++i) {
            contents.IFrame(chn, int64_t{start + i} * 1000000, i * kBytesPerSecond);
        }
    }
    for (uint32_t i = 0; i < ring.eventsPerBlock; ++i) {
        contents.Event(int64_t{start + i} * 1000000, uint64_t{1} << i % 8);
    }
    return contents;
}

} // namespace

void WriteIndexedRing(PartitionImage& image, const IndexedRing& ring) {
    const uint32_t count = image.BlockCount();
    for (uint32_t age = 0; age < count; ++age) {
        image.WriteBlock((ring.newest + 1 + age) % count, BlockOfAge(ring, age));
    }
}

} // namespace sample_recorder
