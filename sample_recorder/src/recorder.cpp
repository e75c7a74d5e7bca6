#include "sample_recorder/recorder.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace sample_recorder {

namespace {

/// A longer silence than this ends a record segment.
constexpr uint32_t kMergeGapSeconds = 15;

/// An entry of each table: what the index may grow by with one frame.
constexpr size_t kLargestIndexGrowth = sizeof(IFrameItem_t) + sizeof(RecSegItem_t) + sizeof(EventIndexItem_t);

size_t IndexSize(const BlockContents& contents) {
    size_t size = sizeof(BlkIndexHead_t) + contents.events.size() * sizeof(EventIndexItem_t);
    for (size_t chn = 0; chn < contents.iframes.size(); ++chn) {
        size += contents.iframes[chn].size() * sizeof(IFrameItem_t);
        size += contents.segments[chn].size() * sizeof(RecSegItem_t);
    }
    return size;
}

} // namespace

Recorder::Recorder(PartitionImage& image, RecorderSettings settings)
    : m_image(image), m_settings(std::move(settings)) {}

std::optional<uint32_t> Recorder::CurrentBlock() const {
    return m_open ? m_previousBlock : std::nullopt;
}

void Recorder::Write(const Frame& frame) {
    Append(frame, true);
}

void Recorder::WriteEvent(int64_t pts, uint64_t type, uint32_t channel, bool indexed) {
    EventHead_t event = {};
    event.type = type;
    event.Indexed = indexed ? 1 : 0;
    Frame frame;
    frame.pts = pts;
    frame.type = kEvent;
    frame.channel = channel;
    frame.payload.resize(sizeof event);
    std::memcpy(frame.payload.data(), &event, sizeof event);
    Append(frame, indexed);
}

void Recorder::Append(const Frame& frame, bool indexed) {
    if (frame.channel >= m_settings.properties.size() || (m_settings.channels >> frame.channel & 1) == 0) {
        throw Error("channel " + std::to_string(frame.channel) + " is not among the recorder's channels");
    }
    if (m_open && !Fits(frame)) {
        CloseBlock();
    }
    if (!m_open) {
        OpenBlock(frame.Seconds());
        if (!Fits(frame)) {
            throw Error(m_image.Path() + ": a frame of " + std::to_string(frame.payload.size()) +
                        " bytes does not fit a block; make the blocks larger");
        }
    }
    FrameHead_t head = {};
    head.pts = frame.pts;
    head.sync = BLOCK_MAGIC;
    head.type = frame.type;
    head.chn = frame.channel;
    head.len = static_cast<uint32_t>(frame.payload.size());
    const uint64_t offset = m_image.FrameOffset(*m_previousBlock, m_pos);
    m_image.Put(offset, head);
    m_image.Write(offset + sizeof head, frame.payload.data(), frame.payload.size());
    AddToIndex(frame, indexed);
    m_pos += static_cast<uint32_t>(sizeof head + frame.payload.size());
}

bool Recorder::Fits(const Frame& frame) const {
    const size_t end = m_pos + sizeof(FrameHead_t) + frame.payload.size();
    return end <= m_image.FrameAreaSize() &&
           IndexSize(m_contents) + kLargestIndexGrowth <= m_image.IndexCapacity();
}

void Recorder::AddToIndex(const Frame& frame, bool indexed) {
    if (frame.type == kVideoI) {
        m_contents.IFrame(frame.channel, frame.pts, m_pos);
    }
    if (frame.type == kEvent && indexed) {
        uint64_t type = 0;
        std::memcpy(&type, frame.payload.data(), sizeof type);
        m_contents.Event(frame.pts, type, m_pos);
    }
    if (frame.type <= kAudio) {
        AddToSegment(frame);
        m_contents.tail.EndTime = frame.Seconds();
    }
}

void Recorder::AddToSegment(const Frame& frame) {
    const auto size = static_cast<uint32_t>(sizeof(FrameHead_t) + frame.payload.size());
    auto& segments = m_contents.segments.at(frame.channel);
    if (segments.empty() || frame.Seconds() > segments.back().e + kMergeGapSeconds) {
        m_contents.Segment(frame.channel, frame.Seconds(), frame.Seconds(), size, m_pos);
        return;
    }
    RecSegItem_t& segment = segments.back();
    segment.e = frame.Seconds();
    segment.epos = m_pos + size;
    segment.totalsize += size;
}

void Recorder::OpenBlock(uint32_t seconds) {
    const uint32_t count = m_image.BlockCount();
    uint32_t block = m_previousBlock ? (*m_previousBlock + 1) % count : 0;
    for (uint32_t tried = 0; m_image.IsBad(block); ++tried) {
        if (tried == count) {
            throw Error(m_image.Path() + ": every block is marked bad; leave one to record on");
        }
        block = (block + 1) % count;
    }
    m_contents = BlockContents::Open(++m_sequence, seconds);
    BlockHead_t& head = m_contents.head;
    head.pre_RecTime = m_settings.preRecordSeconds;
    head.AlmDelayTime = m_settings.alarmDelaySeconds;
    m_settings.vehicleNum.copy(head.VehicleNum, sizeof head.VehicleNum);
    m_settings.vehicleId.copy(head.VehicleID, sizeof head.VehicleID);
    head.media_chn_bitmap = m_settings.channels;
    std::copy(m_settings.properties.begin(), m_settings.properties.end(), head.prop);
    m_image.Put(m_image.HeadOffset(block), head);
    if (m_image.Extended()) {
        m_contents.extHead.ExtParaValid = m_settings.extensionParameter ? 1 : 0;
        m_contents.extHead.ExtPara = m_settings.extensionParameter.value_or(0);
        m_image.Put(m_image.ExtHeadOffset(block), m_contents.extHead);
    }
    m_contents.tail.StartTime = seconds;
    m_contents.tail.EndTime = seconds;
    m_previousBlock = block;
    m_open = true;
    m_pos = 0;
}

void Recorder::WriteEndMarker() {
    FrameHead_t marker = {};
    if (m_settings.endMarker && m_pos + sizeof marker <= m_image.FrameAreaSize()) {
        marker.pts = 0xFFFFFFFF;
        marker.sync = marker.type = marker.chn = marker.len = 0xFFFFFFFF;
        m_image.Put(m_image.FrameOffset(*m_previousBlock, m_pos), marker);
    }
}

void Recorder::CloseBlock() {
    WriteEndMarker();
    BlockTail_t& tail = m_contents.tail;
    tail.RecSeq = m_contents.head.RecSeq;
    m_image.WriteIndex(*m_previousBlock, m_contents);
    m_image.Put(m_image.TailOffset(*m_previousBlock), tail);
    if (m_image.Extended()) {
        m_image.Put(m_image.TailExOffset(*m_previousBlock),
                    BlockTailEx_t{tail.RecSeq, tail.StartTime, tail.EndTime});
    }
    m_open = false;
}

void Recorder::PowerOff() {
    if (m_open) {
        CloseBlock();
    }
}

void Recorder::CutPower() {
    m_open = false;
}

void Recorder::CutPowerAfterIndex() {
    if (m_open && m_image.Extended()) {
        const BlockTail_t& tail = m_contents.tail;
        m_image.WriteIndex(*m_previousBlock, m_contents);
        m_image.Put(m_image.TailExOffset(*m_previousBlock),
                    BlockTailEx_t{m_contents.head.RecSeq, tail.StartTime, tail.EndTime});
    }
    m_open = false;
}

} // namespace sample_recorder
