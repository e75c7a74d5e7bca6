#include "picture_states.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "child.h"
#include "media/error.h"
#include "video_decoder.h"

namespace media {

namespace {

/// Children that may end at a frame of theirs before the rest of the frames is given up.
constexpr int kMostChildren = 4;

constexpr uint32_t kSecondsAPicture = 20;

/// What a child tells of a frame, as soon as it knows.
enum class Report : uint32_t { Begun, Whole, Damaged };

struct Message {
    uint32_t frame;
    Report report;
};

/// What is known of a frame.
struct State {
    bool leftOut = false; ///< a child did not come to its end with it
    bool whole = false;
    bool damaged = false;
};

// ---- in the child

bool Tell(int answer, size_t frame, Report report) {
    const Message message = {static_cast<uint32_t>(frame), report};
    return WriteAll(answer, &message, sizeof message);
}

bool DecodeAndTell(int answer, VideoCodec codec, const std::vector<std::vector<uint8_t>>& frames,
                   const std::vector<State>& states) {
    VideoDecoder decoder(codec);
    std::vector<size_t> numbers; // the decoder counts the frames that it gets
    const auto take = [&](const AVFrame& picture, int64_t number) {
        if (number >= 0 && number < static_cast<int64_t>(numbers.size())) {
            Tell(answer, numbers[static_cast<size_t>(number)],
                 VideoDecoder::Damaged(picture) ? Report::Damaged : Report::Whole);
        }
    };
    for (size_t i = 0; decoder.Ready() && i < frames.size(); ++i) {
        if (states[i].leftOut) {
            continue;
        }
        numbers.push_back(i);
        if (!Tell(answer, i, Report::Begun)) {
            return false;
        }
        if (!decoder.Take(frames[i], take)) {
            Tell(answer, i, Report::Damaged);
        }
    }
    if (decoder.Ready()) {
        decoder.Finish(take);
    }
    return decoder.Ready();
}

// ---- in the parent

ChildLimits LimitsFor(size_t frames) {
    ChildLimits limits;
    limits.silence = kSecondsAPicture;
    limits.seconds = kSecondsAPicture * static_cast<uint32_t>(frames + 1);
    limits.answer = 4 * frames * sizeof(Message);
    return limits;
}

/// Takes in what a child has told, all of which may be false.
/// @return the frame that it was at in the end
std::optional<size_t> TakeAnswer(const std::vector<uint8_t>& answer, std::vector<State>& states) {
    std::optional<size_t> at;
    Message message = {};
    for (size_t i = 0; i + sizeof message <= answer.size(); i += sizeof message) {
        std::memcpy(&message, answer.data() + i, sizeof message);
        if (message.frame < states.size()) {
            State& state = states[message.frame];
            at = message.report == Report::Begun ? std::optional<size_t>(message.frame) : at;
            state.whole = state.whole || message.report == Report::Whole;
            state.damaged = state.damaged || message.report == Report::Damaged;
        }
    }
    return at;
}

} // namespace

std::vector<bool> DecodePictures(VideoCodec codec, const std::vector<std::vector<uint8_t>>& frames,
                                 const std::function<void()>& meanwhile) {
    std::vector<State> states(frames.size());
    for (int child = 0; child < kMostChildren; ++child) {
        const ChildAnswer answer =
            HearChild([&](int pipe) { return DecodeAndTell(pipe, codec, frames, states); },
                      LimitsFor(frames.size()), meanwhile);
        const std::optional<size_t> at = TakeAnswer(answer.bytes, states);
        if (answer.complete) {
            break;
        }
        if (!at) {
            throw Error(ErrorKind::CannotMake,
                        "cannot decode: the child process that does it cannot give up its rights here");
        }
        states[*at].leftOut = true;
    }
    std::vector<bool> whole(frames.size());
    std::transform(states.begin(), states.end(), whole.begin(),
                   [](const State& state) { return state.whole && !state.damaged && !state.leftOut; });
    return whole;
}

} // namespace media
