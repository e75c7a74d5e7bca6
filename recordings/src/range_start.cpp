#include "range_start.h"

#include <algorithm>

#include "block_reader.h"
#include "format/index_tables.h"

namespace recordings {

namespace {

/// Blocks that are looked into, in each direction: with 32 busy channels a block lasts less than a second, and key frames
/// come every few seconds.
constexpr size_t kMostBlocks = 32;

/// A recording goes on after a pause of no more than this.
constexpr int64_t kGap = (disk_access::kMergeGap - 1) * kMicros;

class RangeStartFinder {
public:
    RangeStartFinder(const Disk& disk, const BlockList& blocks, const FrameQuery& query, FrameBuffer& buffer,
                     const std::function<void()>& breathe)
        : m_disk(disk), m_blocks(blocks.All()), m_query(query), m_buffer(buffer), m_breathe(breathe) {}

    RangeStart Find(const BlockRun& run) {
        m_result.first = run.first;
        LookForwards(run);
        LookBackwards(run.first);
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            Settle(channel);
        }
        return m_result;
    }

private:
    /// What is known of the video of a channel before the range.
    struct Channel {
        std::optional<StartPlace> key;  ///< the last key frame before the range, and after every loss
        std::optional<int64_t> first;   ///< the first frame that was looked at: the earliest one
        std::optional<int64_t> last;    ///< the last frame before the range
        std::optional<int64_t> inRange; ///< the first frame of the range
        bool settled = false;           ///< nothing earlier is needed
        bool lost = false;
    };

    /// Goes on until each channel has reached the range.
    void LookForwards(const BlockRun& run) {
        ChannelSet expected;
        for (size_t entry = run.first; entry <= run.last && entry - run.first < kMostBlocks; ++entry) {
            expected.bits |= m_blocks[entry].channels.And(m_query.channels).bits;
            ScanForwards(entry);
            const bool any = std::any_of(m_channels.begin(), m_channels.end(),
                                         [](const Channel& each) { return each.inRange.has_value(); });
            if (any && Reached(expected)) {
                return;
            }
        }
    }

    bool Reached(ChannelSet channels) const {
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            if (channels.Has(channel) && !m_channels[channel].inRange) {
                return false;
            }
        }
        return true;
    }

    void ScanForwards(size_t entry) {
        Scan(entry, [&](const Frame& frame, Channel& channel) {
            if (channel.inRange) {
                return;
            }
            if (m_query.range.Holds(frame.Seconds())) {
                channel.inRange = frame.time;
                // A key frame needs none before it; nor does a recording that begins here.
                const bool begins = channel.last && TimeBetween(*channel.last, frame.time) > kGap;
                channel.settled = frame.type == kKeyFrame || channel.key || channel.lost || begins;
                if (frame.type == kKeyFrame || begins) {
                    channel.key.reset();
                    channel.lost = false;
                }
                return;
            }
            Pass(entry, frame, channel);
        });
    }

    /// Takes a frame before the range.
    void Pass(size_t entry, const Frame& frame, Channel& channel) const {
        if (frame.Seconds() >= m_query.range.first) {
            return;
        }
        if (frame.type == kKeyFrame) {
            channel.key = StartPlace{entry, frame.offset, frame.time};
            channel.lost = false;
        }
        channel.last = frame.time;
    }

    /// Goes back from block to block for the channels that have found no key frame yet.
    void LookBackwards(size_t first) {
        for (size_t steps = 1; !AllSettled(); ++steps) {
            if (steps > first) {
                return; // nothing older is there
            }
            const size_t entry = first - steps;
            const bool follows = m_blocks[entry].sequence + 1 == m_blocks[entry + 1].sequence;
            if (!follows || steps > kMostBlocks) {
                LoseUnsettled();
                return;
            }
            LookBack(entry);
        }
    }

    bool AllSettled() const {
        return std::all_of(m_channels.begin(), m_channels.end(),
                           [](const Channel& each) { return !each.inRange || each.settled; });
    }

    void LoseUnsettled() {
        for (Channel& channel : m_channels) {
            channel.lost = channel.lost || (channel.inRange && !channel.settled);
        }
    }

    void LookBack(size_t entry) {
        std::array<Channel, kChannels> later;
        std::swap(later, m_channels);
        Scan(entry, [&](const Frame& frame, Channel& channel) { Pass(entry, frame, channel); });
        std::swap(later, m_channels);
        for (uint32_t number = 0; number < kChannels; ++number) {
            Channel& channel = m_channels[number];
            const Channel& found = later[number];
            if (!channel.inRange || channel.settled) {
                continue;
            }
            const bool over = found.last && TimeBetween(*found.last, *channel.first) > kGap;
            if (!over) {
                channel.key = found.key;
                channel.lost = found.lost;
            }
            channel.settled = over || found.key || found.lost;
            channel.first = found.first ? found.first : channel.first;
        }
    }

    /// Goes through the video of a block's wanted channels. A loss makes useless what was found before it.
    template <typename Take>
    void Scan(size_t entry, const Take& take) {
        BlockReader reader(m_disk, m_blocks[entry], Want::Heads, m_buffer, m_breathe);
        Frame frame;
        Lost lost;
        bool more = true;
        while (more) {
            more = reader.Next(frame, lost);
            Lose(lost.media);
            if (more && frame.IsVideo() && m_query.channels.Has(frame.channel)) {
                Channel& channel = m_channels[frame.channel];
                channel.first = channel.first ? channel.first : frame.time;
                take(frame, channel);
            }
        }
        if (m_blocks[entry].unreadable || m_blocks[entry].wiped) {
            Lose(ChannelSet::All());
        }
        m_result.bytesRead += reader.BytesRead();
    }

    void Lose(ChannelSet media) {
        for (uint32_t channel = 0; channel < kChannels; ++channel) {
            Channel& each = m_channels[channel];
            if (media.Has(channel) && !each.inRange) {
                each.key.reset();
                each.lost = true;
            }
        }
    }

    void Settle(uint32_t number) {
        const Channel& channel = m_channels[number];
        if (channel.inRange && channel.key) {
            m_result.places[number] = channel.key;
            m_result.first = std::min(m_result.first, channel.key->entry);
        } else if (channel.lost) {
            m_result.lost.Add(number);
        }
    }

    const Disk& m_disk;
    const std::vector<Block>& m_blocks;
    const FrameQuery& m_query;
    FrameBuffer& m_buffer;
    const std::function<void()>& m_breathe;
    std::array<Channel, kChannels> m_channels;
    RangeStart m_result;
};

} // namespace

RangeStart FindRangeStart(const Disk& disk, const BlockList& blocks, const BlockRun& run,
                          const FrameQuery& query, FrameBuffer& buffer,
                          const std::function<void()>& breathe) {
    return RangeStartFinder(disk, blocks, query, buffer, breathe).Find(run);
}

} // namespace recordings
