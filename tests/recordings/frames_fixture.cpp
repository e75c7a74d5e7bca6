#include "recordings/frames_fixture.h"

#include <algorithm>
#include <cstring>

namespace test_support {

std::vector<std::string> ReadFrames::Lines() const {
    std::vector<std::string> lines;
    for (const recordings::Problem& problem : problems) {
        std::string line = Brief(problem);
        if (problem.offset) {
            line += " at " + std::to_string(*problem.offset) + "+" + std::to_string(problem.bytes);
        }
        lines.push_back(line);
    }
    return lines;
}

bool ReadFrames::AnyLoss() const {
    return std::any_of(problems.begin(), problems.end(), [](const recordings::Problem& problem) {
        return problem.severity == recordings::Severity::Loss;
    });
}

void FramesFixture::Start(uint32_t fmtVersion, uint32_t channels, uint32_t blockSize, bool endMarker) {
    sample_recorder::Format format;
    format.fmtVersion = fmtVersion;
    format.blockCount = blockCount;
    format.blockSize = blockSize;
    MakeDisk(format);
    sample_recorder::RecorderSettings settings;
    settings.channels = channels;
    settings.endMarker = endMarker;
    settings.properties = properties;
    m_recorder.emplace(Image(), settings);
    m_recorded.clear();
}

void FramesFixture::Remember(const sample_recorder::Frame& frame) {
    const uint32_t block = *m_recorder->CurrentBlock();
    const bool first = m_recorded.empty() || m_recorded.back().block != block;
    m_recorded.push_back({block, first ? 0 : m_recorded.back().End(), frame});
}

void FramesFixture::Record(const sample_recorder::Frame& frame) {
    m_recorder->Write(frame);
    Remember(frame);
}

void FramesFixture::Record(int64_t pts, uint32_t type, uint32_t channel, size_t bytes) {
    sample_recorder::Frame frame;
    frame.pts = pts;
    frame.type = type;
    frame.channel = channel;
    for (size_t i = 0; i < bytes; ++i) {
        frame.payload.push_back(static_cast<uint8_t>(37 * i + static_cast<size_t>(pts / 1000) % 251));
    }
    Record(frame);
}

void FramesFixture::RecordEvent(int64_t pts, uint64_t type, uint32_t channel, bool indexed) {
    m_recorder->WriteEvent(pts, type, channel, indexed);
    EventHead_t event = {};
    event.type = type;
    event.Indexed = indexed ? 1 : 0;
    sample_recorder::Frame frame;
    frame.pts = pts;
    frame.type = sample_recorder::kEvent;
    frame.channel = channel;
    frame.payload.resize(sizeof event);
    std::memcpy(frame.payload.data(), &event, sizeof event);
    Remember(frame);
}

void FramesFixture::RecordAll(sample_recorder::FrameSource& source) {
    for (sample_recorder::Frame frame; source.Next(frame);) {
        Record(frame);
    }
}

std::vector<RecordedFrame> FramesFixture::Of(uint32_t block) const {
    std::vector<RecordedFrame> frames;
    std::copy_if(m_recorded.begin(), m_recorded.end(), std::back_inserter(frames),
                 [block](const RecordedFrame& frame) { return frame.block == block; });
    return frames;
}

uint64_t FramesFixture::HeadOf(const RecordedFrame& frame) {
    return Image().FrameOffset(frame.block, frame.offset);
}

ReadFrames FramesFixture::Read(uint32_t block, recordings::Want want) {
    m_opened = &Open();
    m_blocks = recordings::BlockList::Read(*m_opened);
    return Again(block, want);
}

ReadFrames FramesFixture::Again(uint32_t block, recordings::Want want) {
    ReadFrames read;
    const auto entry = m_blocks->Find(block);
    if (!entry) {
        ADD_FAILURE() << "there is no block " << block;
        return read;
    }
    recordings::BlockFrames frames(
        *m_opened, m_blocks->All()[*entry], want,
        [&](const recordings::Problem& problem) { read.problems.push_back(problem); });
    bool lost = false;
    for (recordings::Frame frame; frames.Next(frame, lost);) {
        RecordedFrame each;
        each.block = frame.block;
        each.offset = frame.offset;
        each.frame.pts = frame.time;
        each.frame.type = frame.type;
        each.frame.channel = frame.channel;
        if (frame.data != nullptr) {
            each.frame.payload.assign(frame.data, frame.data + frame.size);
        } else if (want == recordings::Want::Heads) {
            each.frame.payload.resize(frame.size);
        }
        read.frames.push_back(each);
        read.afterLoss.push_back(lost);
    }
    read.lossAtEnd = lost;
    return read;
}

bool FramesFixture::Same(const ReadFrames& read, uint32_t block, recordings::Want want) const {
    const std::vector<RecordedFrame> recorded = Of(block);
    return std::equal(read.frames.begin(), read.frames.end(), recorded.begin(), recorded.end(),
                      [want](const RecordedFrame& a, const RecordedFrame& b) {
                          const bool payload = want == recordings::Want::Heads
                                                   ? a.frame.payload.size() == b.frame.payload.size()
                                                   : a.frame.payload == b.frame.payload;
                          return a.block == b.block && a.offset == b.offset && a.frame.pts == b.frame.pts &&
                                 a.frame.type == b.frame.type && a.frame.channel == b.frame.channel &&
                                 payload;
                      });
}

} // namespace test_support
