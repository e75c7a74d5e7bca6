#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "commands/commands.h"
#include "commands/named.h"
#include "recordings/block_frames.h"
#include "recordings/records.h"

namespace diskaccess {

namespace {

using recordings::Block;
using recordings::Frame;
using recordings::Problem;
using recordings::TimeRange;

std::string KindOf(const Frame& frame) {
    switch (frame.type) {
    case recordings::kPictureFrame:
        return "P-frame";
    case recordings::kKeyFrame:
        return "I-frame";
    case recordings::kAudioFrame:
        return "audio";
    case recordings::kEventFrame:
        return "event";
    default:
        return fmt::format("type {}", frame.type);
    }
}

Table FrameTable() {
    return {"frames",
            {{"time", "TIME", 23},
             {"channel", "CHANNEL"},
             {"frame_kind", "KIND", 7},
             {"frame_type", ""},
             {"payload_bytes", "LENGTH", 8}},
            {},
            true};
}

/// Frames to be shown.
struct Selection {
    TimeRange range;
    recordings::ChannelSet channels;

    bool Takes(const Frame& frame) const {
        return channels.Has(frame.channel) && range.Holds(frame.Seconds());
    }
    /// Whether what a problem is about may be among them.
    bool Concerns(const Problem& problem) const {
        const auto second = [](const std::optional<int64_t>& time, int64_t otherwise) {
            return time ? *time / recordings::kMicros : otherwise;
        };
        constexpr int64_t kForever = std::numeric_limits<int64_t>::max();
        return (!problem.channel || channels.Has(*problem.channel)) &&
               range.Meets(second(problem.before, -kForever), second(problem.after, kForever));
    }
};

/// Shows frames, a line each.
class Player {
public:
    explicit Player(Context& context)
        : m_context(context), m_answer(context.Answer()), m_seek(context.Asked().seek) {
        m_answer.BeginTable(FrameTable());
    }

    void PlayBlock(const Block& block, const Selection& selection) {
        recordings::BlockFrames frames(m_context.Disk(), block, recordings::Want::Payloads,
                                       [&](const Problem& problem) {
                                           if (selection.Concerns(problem)) {
                                               m_context.Problems()(problem);
                                           }
                                       });
        const bool backward = m_context.Typed().backward;
        std::vector<Frame> shown;
        Frame frame;
        for (bool lost = false; frames.Next(frame, lost);) {
            if (selection.Takes(frame) && Wanted(frame)) {
                if (backward) {
                    shown.push_back(frame);
                } else {
                    Show(frame);
                }
            }
        }
        std::for_each(shown.rbegin(), shown.rend(), [this](const Frame& each) { Show(each); });
    }

    ExitCode Finish() {
        m_answer.EndTable();
        m_answer.ShowFacts(
            {{"frame_count", "Frames", m_frames}, {"payload_bytes", "Payload", Bytes{m_bytes}}});
        return m_context.Finish();
    }

private:
    /// Whether a frame is among those that the user steps to.
    bool Wanted(const Frame& frame) {
        const bool isKeyFrame = frame.type == recordings::kKeyFrame;
        if (m_context.Typed().iframes) {
            return isKeyFrame && (!m_seek || (m_context.Typed().backward ? frame.Seconds() <= *m_seek
                                                                         : frame.Seconds() >= *m_seek));
        }
        return !m_seek || Reached(frame, isKeyFrame);
    }

    /// Whether the time to begin at has come for the frame's channel: pictures wait for a key frame.
    bool Reached(const Frame& frame, bool isKeyFrame) {
        if (frame.type == recordings::kPictureFrame) {
            return m_begun.Has(frame.channel);
        }
        const bool reached = frame.Seconds() >= *m_seek;
        if (reached && isKeyFrame) {
            m_begun.Add(frame.channel);
        }
        return reached;
    }

    void Show(const Frame& frame) {
        m_answer.ShowRow({m_context.Clock().TrueInstant(frame.time), m_context.Names().Channel(frame.channel),
                          KindOf(frame), uint64_t{frame.type}, uint64_t{frame.size}});
        ++m_frames;
        m_bytes += frame.size;
    }

    Context& m_context;
    Renderer& m_answer;
    std::optional<uint32_t> m_seek;
    recordings::ChannelSet m_begun; ///< channels whose key frame at or after the seek time has come
    uint64_t m_frames = 0;
    uint64_t m_bytes = 0;
};

/// What the options select of every block.
Selection SelectionOf(const Context& context) {
    Selection selection;
    selection.range = context.Asked().range;
    selection.channels = context.Asked().channels.Without(context.Disk().Hidden());
    return selection;
}

/// Reports what is wrong with a block as a whole.
/// @return the block; null when it cannot be played, and when it holds no recording
const Block* FindBlock(Context& context, uint32_t number) {
    context.Blocks().Report({}, [&](const Problem& problem) {
        if (problem.block == number) {
            context.Problems()(problem);
        }
    });
    const Block* const block = context.BlockOf(number);
    return block == nullptr || block->unreadable || block->wiped ? nullptr : block;
}

ExitCode PlayUnit(Context& context, uint32_t number) {
    const uint32_t count = context.Disk().Facts().blockCount;
    if (number >= count) {
        throw Failure(fmt::format("{}: has {} blocks, from 0 on: there is no block {}",
                                  context.Typed().partition, count, number));
    }
    Player player(context);
    const Block* const block = FindBlock(context, number);
    if (block != nullptr) {
        player.PlayBlock(*block, SelectionOf(context));
    }
    return player.Finish();
}

ExitCode PlayRecord(Context& context, const std::string& text) {
    const RecordName name = ReadRecordName(text);
    const Block* const block = FindBlock(context, name.block);
    const auto record = block == nullptr ? std::nullopt : FindRecord(context, *block, name);
    const bool lost = block == nullptr && context.BlockOf(name.block) != nullptr;
    if (!record && !lost) {
        throw Failure(context.Typed().partition + ": holds no record " + text +
                      "; list shows those there are");
    }
    Player player(context);
    if (record) {
        Selection selection = SelectionOf(context);
        selection.channels = selection.channels.And({1u << record->channel});
        selection.range = {std::max(selection.range.first, record->start),
                           std::min(selection.range.last, record->end)};
        player.PlayBlock(*block, selection);
    }
    return player.Finish();
}

ExitCode PlayRange(Context& context) {
    const Selection selection = SelectionOf(context);
    context.Blocks().Report(selection.range, context.Problems());
    std::vector<size_t> entries = context.Blocks().Candidates(selection.range);
    if (context.Typed().backward) {
        std::reverse(entries.begin(), entries.end());
    }
    Player player(context);
    const recordings::Watch watch = context.Watch("playing");
    for (size_t i = 0; i < entries.size(); ++i) {
        watch({i, entries.size(), 0});
        const Block& block = context.Blocks().All()[entries[i]];
        if (!block.unreadable && !block.wiped) {
            player.PlayBlock(block, selection);
        }
    }
    return player.Finish();
}

} // namespace

void CheckPlay(const Options& options) {
    if (!options.record.empty()) {
        ReadRecordName(options.record);
    }
}

ExitCode Play(Context& context) {
    if (context.Typed().unit) {
        return PlayUnit(context, *context.Typed().unit);
    }
    return context.Typed().record.empty() ? PlayRange(context) : PlayRecord(context, context.Typed().record);
}

} // namespace diskaccess
