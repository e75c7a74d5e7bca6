#include "recordings/problem.h"

#include <algorithm>
#include <tuple>

namespace recordings {

namespace {

std::string Number(uint64_t value) {
    return std::to_string(value);
}

/// "3 frames", "1 frame"
std::string Count(uint64_t count, const std::string& what) {
    return Number(count) + " " + what + (count == 1 ? "" : "s");
}

std::string BlockText(const Problem& problem) {
    return "block " + (problem.block ? Number(*problem.block) : std::string("?"));
}

std::string ChannelText(const Problem& problem) {
    return problem.channel ? ", channel " + Number(*problem.channel) : std::string();
}

/// "0, 2, 3"
std::string ChannelsText(uint32_t channels) {
    std::string text;
    for (uint32_t channel = 0; channel < 32; ++channel) {
        if ((channels >> channel & 1u) != 0) {
            text += (text.empty() ? "" : ", ") + Number(channel);
        }
    }
    return text;
}

/// "channel 3 is", "channels 0, 3 are"
std::string Channels(uint32_t channels) {
    const bool isOne = (channels & (channels - 1)) == 0;
    return (isOne ? "channel " : "channels ") + ChannelsText(channels) + (isOne ? " is" : " are");
}

class Describer {
public:
    Describer(const Problem& problem, const std::function<std::string(int64_t)>& timeText)
        : m_problem(problem), m_timeText(timeText) {}

    std::string Text() const {
        const Problem& p = m_problem;
        std::string block = BlockText(p);
        switch (p.kind) {
        case ProblemKind::TablesUnreadable:
            return "the tables of bad blocks cannot be read: every block is looked at";
        case ProblemKind::BackupTablesUsed:
            return "the tables of bad blocks cannot be read: their backup copies are used";
        case ProblemKind::DeviceCutOff:
            return "the disk or its copy is cut off: " + Count(p.count, "block") + " from " + block + " on " +
                   (p.count == 1 ? "is missing, and what it held" : "are missing, and what they held");
        case ProblemKind::BlocksNotNamed:
            return "the disk states more blocks than a recorder numbers: " + Count(p.count, "block") +
                   " from " + block + " on are left out";
        case ProblemKind::ChannelsLocked:
            return Channels(p.channels) + " locked and left out";
        case ProblemKind::BlockUnreadable:
            return block + ": cannot be read: what it holds is missing" + Between();
        case ProblemKind::BlockWiped:
            return block + ": was recorded, but holds no recording any more" + Between();
        case ProblemKind::BlocksLost:
            return "between blocks " + Edge(p.block) + " and " + Edge(p.blockAfter) +
                   ": what was recorded is not there any more (" + Count(p.count, "block") + ")" + Between();
        case ProblemKind::HeadDamaged:
            return block + ": its head is damaged; it is read all the same";
        case ProblemKind::TailDamaged:
            return block + ": its tail is damaged; it is read all the same";
        case ProblemKind::IndexDamaged:
            return block + ChannelText(p) + ": its index is damaged; its frames are read all the same";
        case ProblemKind::BlockSuspect:
            return block + ": the recorder has met errors on it; it is read all the same";
        case ProblemKind::BlockMarkedBad:
            return block + ": is marked bad and not read, but holds a recording" + Between();
        case ProblemKind::BytesUnreadable:
            return Stretch("cannot be read");
        case ProblemKind::BytesDamaged:
            return Stretch("are damaged");
        case ProblemKind::FramesMissing:
            return block + ChannelText(p) + ": " +
                   (p.count != 0 ? Count(p.count, "frame") : std::string("frames")) +
                   " that the index tells of " + (p.count == 1 ? "is" : "are") + " not there" + Between();
        case ProblemKind::FrameDamaged:
            return block + ChannelText(p) + ": the head of the frame at offset " +
                   (p.offset ? Number(*p.offset) : std::string("?")) +
                   " is damaged: its time, type, channel or length is wrong" + Between();
        case ProblemKind::NotClosed:
            return block + ": was never closed: its recordings are read from its frames";
        case ProblemKind::NotDecodable:
            return block + ChannelText(p) + ": " + Count(p.count, "video frame") +
                   (p.count == 1 ? " is" : " are") + " left out: the key frame that " +
                   (p.count == 1 ? "it needs" : "they need") + " is not there" + Between();
        case ProblemKind::TimesCollide:
            return block + ChannelText(p) + ": " + Count(p.count, "frame") +
                   (p.count == 1 ? " has" : " have") + " the time of the frame before, or an earlier one" +
                   Between();
        case ProblemKind::ClockJumps:
            return block + ChannelText(p) + ": the recorder's clock jumps from " + Time(p.before, "?") +
                   " to " + Time(p.after, "?") +
                   ": the file goes on without the jump, and its manifest tells the times";
        case ProblemKind::EncodingChanges:
            return block + ChannelText(p) + ": is encoded otherwise from " + Time(p.after, "here") +
                   " on, and goes on in a file of its own";
        case ProblemKind::TablesMisplaced:
            return "the partition head has the tables of bad blocks where they cannot lie";
        case ProblemKind::TablesDiffer:
            return "the tables of bad blocks differ from their backup copies about " +
                   Count(p.count, "block") + ", first about " + block;
        case ProblemKind::BackupTablesUnreadable:
            return "the backup copies of the tables of bad blocks cannot be read";
        case ProblemKind::BlocksOutsideRing:
            return "the recording goes on in " + block + ", after the last block that the head states";
        case ProblemKind::BlockRetired:
            return block + ": is marked bad; the recorder does not use it any more";
        case ProblemKind::ClockSetBack:
            return block + ": begins earlier than the block recorded before it ends" + Between();
        case ProblemKind::PayloadsDamaged:
            return block + ChannelText(p) + ": " + Count(p.count, "video frame") +
                   (p.count == 1 ? " is" : " are") + " not what the type or the channel's other frames tell" +
                   Between();
        case ProblemKind::ParametersMissing:
            return block + ChannelText(p) + ": none of " + Count(p.count, "key frame") +
                   " carries the parameters that it takes to decode it" + Between();
        case ProblemKind::PicturesDamaged:
            return block + ChannelText(p) + ": " + Count(p.count, "picture") +
                   (p.count == 1 ? " does" : " do") + " not decode, or not whole" + Between();
        case ProblemKind::SoundDamaged:
            return block + ChannelText(p) + ": " + Count(p.count, "frame") + " of sound " +
                   (p.count == 1 ? "does" : "do") + " not decode and " + (p.count == 1 ? "is" : "are") +
                   " not in the file" +
                   (p.after && m_timeText ? ", from " + m_timeText(*p.after) + " on" : "");
        }
        return block;
    }

private:
    static std::string Edge(const std::optional<uint32_t>& block) {
        return block ? Number(*block) : std::string("?");
    }

    std::string Stretch(const char* how) const {
        return BlockText(m_problem) + ": " + Number(m_problem.bytes) + " bytes from offset " +
               Number(m_problem.offset.value_or(0)) + " on " + how + ": video between " +
               Time(m_problem.before, "its start") + " and " + Time(m_problem.after, "its end") +
               " is missing";
    }

    std::string Time(const std::optional<int64_t>& time, const char* none) const {
        return time && m_timeText ? m_timeText(*time) : std::string(none);
    }

    /// When it lies, as far as that is known.
    std::string Between() const {
        if (!m_timeText || (!m_problem.before && !m_problem.after)) {
            return "";
        }
        if (m_problem.before && m_problem.after) {
            return ", between " + m_timeText(*m_problem.before) + " and " + m_timeText(*m_problem.after);
        }
        return m_problem.before ? ", after " + m_timeText(*m_problem.before)
                                : ", before " + m_timeText(*m_problem.after);
    }

    const Problem& m_problem;
    const std::function<std::string(int64_t)>& m_timeText;
};

auto KeyOf(const Problem& p) {
    return std::tie(p.kind, p.severity, p.block, p.blockAfter, p.channel, p.channels, p.offset, p.bytes,
                    p.count, p.before, p.after);
}

} // namespace

const char* NameOf(ProblemKind kind) {
    switch (kind) {
    case ProblemKind::TablesUnreadable:
        return "tables_unreadable";
    case ProblemKind::BackupTablesUsed:
        return "backup_tables_used";
    case ProblemKind::DeviceCutOff:
        return "device_cut_off";
    case ProblemKind::BlocksNotNamed:
        return "blocks_not_named";
    case ProblemKind::ChannelsLocked:
        return "channels_locked";
    case ProblemKind::BlockUnreadable:
        return "block_unreadable";
    case ProblemKind::BlockWiped:
        return "block_wiped";
    case ProblemKind::BlocksLost:
        return "blocks_lost";
    case ProblemKind::HeadDamaged:
        return "head_damaged";
    case ProblemKind::TailDamaged:
        return "tail_damaged";
    case ProblemKind::IndexDamaged:
        return "index_damaged";
    case ProblemKind::BlockSuspect:
        return "block_suspect";
    case ProblemKind::BlockMarkedBad:
        return "block_marked_bad";
    case ProblemKind::BytesUnreadable:
        return "bytes_unreadable";
    case ProblemKind::BytesDamaged:
        return "bytes_damaged";
    case ProblemKind::FramesMissing:
        return "frames_missing";
    case ProblemKind::FrameDamaged:
        return "frame_damaged";
    case ProblemKind::NotClosed:
        return "not_closed";
    case ProblemKind::NotDecodable:
        return "not_decodable";
    case ProblemKind::TimesCollide:
        return "times_collide";
    case ProblemKind::ClockJumps:
        return "clock_jumps";
    case ProblemKind::EncodingChanges:
        return "encoding_changes";
    case ProblemKind::TablesMisplaced:
        return "tables_misplaced";
    case ProblemKind::TablesDiffer:
        return "tables_differ";
    case ProblemKind::BackupTablesUnreadable:
        return "backup_tables_unreadable";
    case ProblemKind::BlocksOutsideRing:
        return "blocks_outside_ring";
    case ProblemKind::BlockRetired:
        return "block_retired";
    case ProblemKind::ClockSetBack:
        return "clock_set_back";
    case ProblemKind::PayloadsDamaged:
        return "payloads_damaged";
    case ProblemKind::ParametersMissing:
        return "parameters_missing";
    case ProblemKind::PicturesDamaged:
        return "pictures_damaged";
    case ProblemKind::SoundDamaged:
        return "sound_damaged";
    }
    return "unknown";
}

std::string Describe(const Problem& problem, const std::function<std::string(int64_t)>& timeText) {
    return Describer(problem, timeText).Text();
}

bool ProblemList::Less::operator()(const Problem& a, const Problem& b) const {
    return KeyOf(a) < KeyOf(b);
}

void ProblemList::Add(const Problem& problem) {
    if (m_seen.insert(problem).second) {
        m_problems.push_back(problem);
        m_anyLoss = m_anyLoss || problem.severity == Severity::Loss;
    }
}

} // namespace recordings
