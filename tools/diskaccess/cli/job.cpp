#include "cli/job.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "cli/failure.h"
#include "cli/password.h"
#include "cli/typed_time.h"

namespace diskaccess {

namespace {

/// The last second that a search may end at: the recorder's seconds are signed.
constexpr int64_t kLastSecond = 0x7FFFFFFF;

uint32_t ToDiskTime(int64_t trueTime, int64_t skew) {
    return static_cast<uint32_t>(std::clamp<int64_t>(trueTime + skew, 0, kLastSecond));
}

/// A number from a list like "0,2-4", up to 31.
uint32_t ReadChannel(const std::string& text, const std::string& list) {
    const bool digits =
        !text.empty() && text.size() <= 2 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || std::stoul(text) > 31) {
        throw WrongUse("--channel: '" + list +
                       "' is no list of channels; give numbers from 0 to 31, like 0,2-4");
    }
    return static_cast<uint32_t>(std::stoul(text));
}

uint32_t ReadChannels(const std::string& list) {
    uint32_t set = 0;
    for (size_t begin = 0; begin <= list.size();) {
        const size_t end = std::min(list.find(',', begin), list.size());
        const std::string item = list.substr(begin, end - begin);
        const size_t dash = item.find('-');
        const uint32_t first = ReadChannel(item.substr(0, dash), list);
        const uint32_t last = dash == std::string::npos ? first : ReadChannel(item.substr(dash + 1), list);
        if (first > last) {
            throw WrongUse("--channel: '" + item + "' runs backwards");
        }
        for (uint32_t chn = first; chn <= last; ++chn) {
            set |= 1u << chn;
        }
        begin = end + 1;
    }
    return set;
}

std::string BlockNumbers(const std::vector<uint32_t>& blocks) {
    constexpr size_t kMost = 10;
    const auto end = blocks.begin() + static_cast<std::ptrdiff_t>(std::min(blocks.size(), kMost));
    std::string text = fmt::format("{}", fmt::join(blocks.begin(), end, ", "));
    return blocks.size() > kMost ? fmt::format("{} and {} more", text, blocks.size() - kMost) : text;
}

} // namespace

Job::Job(const Options& options, const char* command)
    : m_options(options), m_command(command), m_zone(options.zone), m_output(options.verbose),
      m_partition(options.partition, options.diskType, m_output.Descriptor()), m_now(std::time(nullptr)) {
    // What is wrong with the options is said before anything is read.
    WantedRange();
    WantedChannels();
    WantedAlarms();
    Unlock();
}

void Job::Unlock() {
    unsigned int mode = 0;
    if (Search().GetEncryptInfo(&mode) != 0) {
        return;
    }
    std::optional<std::string> password = GivenPassword(m_options.passwordFile, m_options.askPassword);
    std::string tried = password.value_or("");
    if (Search().CheckEncryptInfo(reinterpret_cast<unsigned char*>(tried.data())) == 0) {
        return;
    }
    m_hidden = m_partition.Head().EncryptMap;
    const std::string hidden = ChannelSetText(m_hidden);
    const char* const how = "--ask-password, --password-file FILE or DISKACCESS_PASSWORD";
    if (password) {
        Note(fmt::format("{}: wrong password: channels {} stay hidden; give the right one with {}",
                         m_options.partition, hidden, how),
             kFailed);
    } else {
        Note(fmt::format("{}: channels {} are locked and left out; give the password with {}",
                         m_options.partition, hidden, how),
             kDone);
    }
}

uint32_t Job::ReadDiskTime(const std::string& text) const {
    return ToDiskTime(ReadTime(text, m_zone, m_now, Twice::First).first, m_options.skew);
}

Range Job::WantedRange() const {
    Range range;
    if (!m_options.from.empty()) {
        const TypedTime from = ReadTime(m_options.from, m_zone, m_now, Twice::First);
        range.first = ToDiskTime(from.first, m_options.skew);
    }
    if (!m_options.to.empty()) {
        const TypedTime to = ReadTime(m_options.to, m_zone, m_now, Twice::Second);
        range.last = ToDiskTime(to.last, m_options.skew);
        range.endOfMedia = ToDiskTime(to.first == to.last ? to.last : to.last + 1, m_options.skew);
    }
    if (range.first > range.last) {
        throw WrongUse("--from lies after --to");
    }
    return range;
}

uint32_t Job::WantedChannels() const {
    return m_options.channels.empty() || m_options.channels == "all" ? 0xFFFFFFFF
                                                                     : ReadChannels(m_options.channels);
}

std::optional<uint64_t> Job::WantedAlarms() const {
    const std::string& text = m_options.alarm;
    if (text.empty()) {
        return std::nullopt;
    }
    if (text == "all") {
        return std::numeric_limits<uint64_t>::max();
    }
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hexadecimal ? text.substr(2) : text;
    const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    try {
        if (digits.find_first_not_of(allowed) == std::string::npos) {
            const uint64_t mask = std::stoull(digits, nullptr, hexadecimal ? 16 : 10);
            if (mask != 0) {
                return mask;
            }
        }
    } catch (const std::out_of_range&) {
        // said below
    }
    throw WrongUse("--alarm: '" + text + "' is no set of event types; give a mask like 0x5, or all");
}

bool Job::AsksEveryBlock() const {
    return m_options.everyBlock || (m_options.from.empty() && m_options.to.empty());
}

bool Job::ReadsFailed() {
    m_readsFailed = m_output.TakeLibraryFailures() != 0 || m_readsFailed;
    return m_readsFailed;
}

void Job::Note(const std::string& line, ExitCode code) {
    if (!m_said.insert(line).second) {
        return;
    }
    Complain(line);
    // A failure outweighs a loss.
    if (m_code != kFailed && code != kDone) {
        m_code = code;
    }
}

void Job::NoteMissingBlocks() {
    const uint32_t missing = m_partition.MissingBlocks();
    if (missing != 0) {
        const PartHead_t& head = m_partition.Head();
        Note(fmt::format(
                 "{}: is cut off after {} bytes: blocks {} to {} of {} are missing, and what they held; copy "
                 "the partition again",
                 m_options.partition, m_partition.Size(), head.BlkCount - missing, head.BlkCount - 1,
                 head.BlkCount),
             kFailed);
    }
}

void Job::NoteUnreadableBlocks() {
    const std::vector<uint32_t> blocks = m_partition.UnreadableBlocks();
    if (!blocks.empty()) {
        Note(fmt::format(
                 "{}: cannot be read everywhere: what block{} {} hold{} may be missing here; the disk may be "
                 "failing",
                 m_options.partition, blocks.size() == 1 ? "" : "s", BlockNumbers(blocks),
                 blocks.size() == 1 ? "s" : ""),
             kDataLost);
    }
    m_output.TakeLibraryFailures();
}

ExitCode Job::Finish(Report report) {
    report.command = m_command;
    report.partition = Printable(m_options.partition);
    m_output.Write(Render(report, m_options.format, m_zone));
    return Finish();
}

ExitCode Job::Finish() {
    const bool readsFailed = ReadsFailed();
    NoteMissingBlocks();
    if (readsFailed) {
        NoteUnreadableBlocks();
    }
    return m_code;
}

} // namespace diskaccess
