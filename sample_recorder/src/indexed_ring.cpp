#include "sample_recorder/indexed_ring.h"

#include <algorithm>

namespace sample_recorder {

namespace {

constexpr uint32_t kBytesPerSecond = 100000;

/// Bytes of a record segment: what a camera delivers in its time, or its share of a block that is too small for that.
uint32_t SegmentBytes(const IndexedRing& ring, uint32_t frameArea) {
    const uint64_t delivered = uint64_t{ring.secondsPerBlock} / ring.segmentsPerChannel * kBytesPerSecond;
    return static_cast<uint32_t>(
        std::min<uint64_t>(delivered, frameArea / (ring.channels * ring.segmentsPerChannel)));
}

BlockContents BlockOfAge(const IndexedRing& ring, uint32_t age, uint32_t frameArea) {
    const uint32_t start = ring.firstTime + age * ring.secondsPerBlock;
    BlockContents contents = BlockContents::Closed(age + 1, start, start + ring.secondsPerBlock - 1);
    contents.head.pre_RecTime = 10;
    contents.head.AlmDelayTime = 30;
    const uint32_t segmentSeconds = ring.secondsPerBlock / ring.segmentsPerChannel;
    const uint32_t segmentBytes = SegmentBytes(ring, frameArea);
    for (uint32_t chn = 0; chn < ring.channels; ++chn) {
        const uint32_t place = chn * ring.segmentsPerChannel * segmentBytes;
        for (uint32_t i = 0; i < ring.segmentsPerChannel; ++i) {
            const uint32_t begin = start + i * segmentSeconds;
            contents.Segment(chn, begin, begin + segmentSeconds - 1, segmentBytes, place + i * segmentBytes);
        }
        for (uint32_t i = 0; i < ring.iframesPerChannel; ++i) {
            contents.IFrame(chn, int64_t{start + i} * 1000000,
                            place + i * (segmentBytes / ring.iframesPerChannel));
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
        image.WriteBlock((ring.newest + 1 + age) % count, BlockOfAge(ring, age, image.FrameAreaSize()));
    }
}

} // namespace sample_recorder
