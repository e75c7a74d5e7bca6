#include "stream_check.h"

#include <algorithm>

#include "picture_kind.h"

namespace recordings {

namespace {

/// A channel has video that is understood when this many frames out of this many and one are.
constexpr uint64_t kMostOf = 3;

Problem ProblemOf(ProblemKind kind, uint32_t block, uint32_t channel, uint64_t count, uint32_t offset,
                  int64_t time) {
    Problem problem;
    problem.kind = kind;
    problem.block = block;
    problem.channel = channel;
    problem.count = count;
    problem.offset = offset;
    problem.before = time;
    return problem;
}

} // namespace

void StreamCheck::Group::Add(const Frame& frame) {
    if (count++ == 0) {
        offset = frame.offset;
        time = frame.time;
    }
}

void StreamCheck::Take(const Frame& frame) {
    if (!frame.IsVideo() || frame.data == nullptr) {
        return;
    }
    Channel& channel = m_channels.at(frame.channel);
    const bool key = frame.type == kKeyFrame;
    switch (PictureKindOf(frame.data, frame.size)) {
    case PictureKind::Key:
        (key ? channel.keyAsKey : channel.keyAsOther).Add(frame);
        if (key && CarriesParameters(frame.data, frame.size)) {
            channel.withParameters.Add(frame);
        }
        break;
    case PictureKind::Other:
        (key ? channel.otherAsKey : channel.otherAsOther).Add(frame);
        break;
    case PictureKind::Unknown:
        (key ? channel.unknownAsKey : channel.unknownAsOther).Add(frame);
        break;
    }
}

std::vector<Problem> StreamCheck::Finish(uint32_t block) const {
    std::vector<Problem> problems;
    for (uint32_t number = 0; number < kChannels; ++number) {
        const Channel& channel = m_channels.at(number);
        const auto report = [&](const Group& group) {
            if (group.count != 0) {
                problems.push_back(ProblemOf(ProblemKind::PayloadsDamaged, block, number, group.count,
                                             group.offset, group.time));
            }
        };
        const auto few = [](const Group& odd, uint64_t others) { return odd.count * kMostOf < others; };
        const uint64_t known = channel.keyAsKey.count + channel.keyAsOther.count + channel.otherAsKey.count +
                               channel.otherAsOther.count;
        for (const Group* const unknown : {&channel.unknownAsKey, &channel.unknownAsOther}) {
            if (few(*unknown, known)) {
                report(*unknown);
            }
        }
        // Some cameras mark other pictures as key frames throughout: that is their way.
        if (few(channel.otherAsKey, channel.keyAsKey.count)) {
            report(channel.otherAsKey);
        }
        if (few(channel.keyAsOther, channel.otherAsOther.count)) {
            report(channel.keyAsOther);
        }
        if (channel.keyAsKey.count != 0 && channel.withParameters.count == 0) {
            const Group& keys = channel.keyAsKey;
            problems.push_back(
                ProblemOf(ProblemKind::ParametersMissing, block, number, keys.count, keys.offset, keys.time));
        }
    }
    return problems;
}

} // namespace recordings
