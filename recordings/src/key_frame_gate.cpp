#include "key_frame_gate.h"

namespace recordings {

void KeyFrameGate::Begin(ChannelSet lost) {
    for (uint32_t number = 0; number < kChannels; ++number) {
        m_channels[number].waiting = true;
        m_channels[number].lost = lost.Has(number);
    }
}

void KeyFrameGate::Lose(ChannelSet channels) {
    for (uint32_t number = 0; !channels.Empty() && number < kChannels; ++number) {
        if (channels.Has(number)) {
            m_channels[number].waiting = true;
            m_channels[number].lost = true;
        }
    }
}

bool KeyFrameGate::Passes(const Frame& frame, bool wanted) {
    Channel& channel = m_channels[frame.channel];
    if (frame.type == kKeyFrame) {
        channel.waiting = false;
        channel.after = channel.leftOut != 0 && !channel.after ? frame.time : channel.after;
    }
    if (!channel.waiting) {
        channel.before = channel.leftOut == 0 ? frame.time : channel.before;
        return true;
    }
    if (wanted) {
        ++channel.leftOut;
        channel.leftOutLost = channel.leftOutLost || channel.lost;
        channel.after.reset();
    }
    return false;
}

std::vector<Problem> KeyFrameGate::Finish(uint32_t block) {
    std::vector<Problem> problems;
    for (uint32_t number = 0; number < kChannels; ++number) {
        Channel& channel = m_channels[number];
        if (channel.leftOut != 0) {
            Problem problem;
            problem.kind = ProblemKind::NotDecodable;
            problem.severity = channel.leftOutLost ? Severity::Loss : Severity::Note;
            problem.block = block;
            problem.channel = number;
            problem.count = channel.leftOut;
            problem.before = channel.before;
            problem.after = channel.after;
            problems.push_back(problem);
        }
        channel.leftOut = 0;
        channel.leftOutLost = false;
        channel.after.reset();
    }
    return problems;
}

} // namespace recordings
