#include "job.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/failure.h"
#include "cli/password.h"
#include "render/amounts.h"

namespace diskaccess {

namespace {

std::string BlockNumbers(const std::vector<uint32_t>& blocks) {
    constexpr size_t kMost = 10;
    const auto end = blocks.begin() + static_cast<std::ptrdiff_t>(std::min(blocks.size(), kMost));
    std::string text = fmt::format("{}", fmt::join(blocks.begin(), end, ", "));
    return blocks.size() > kMost ? fmt::format("{} and {} more", text, blocks.size() - kMost) : text;
}

} // namespace

// What is wrong with the options is said before anything is read.
Job::Job(const Options& options, std::string command)
    : m_options(options), m_command(std::move(command)), m_zone(ReadZone(options)), m_clock(options.skew),
      m_now(std::time(nullptr)), m_query(ReadQuery(options, m_zone, m_now)),
      m_libraryMessages(false),
      m_partition(options.partition, options.diskType, m_output.Descriptor()) {
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
    const std::string hidden = ChannelSetText({m_hidden});
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
    return diskaccess::ReadDiskTime(text, m_zone, m_clock, m_now);
}

Range Job::WantedRange() const {
    const auto searched = [](uint32_t second) { return std::min(second, kLastSearchedSecond); };
    return {searched(m_query.range.first), searched(m_query.range.last), searched(m_query.cutAt)};
}

bool Job::AsksEveryBlock() const {
    return m_everyBlock || (m_options.from.empty() && m_options.to.empty());
}

bool Job::ReadsFailed() {
    m_readsFailed = m_libraryMessages.TakeFailures() != 0 || m_readsFailed;
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
    m_libraryMessages.TakeFailures();
}

Renderer& Job::Answer() {
    if (!m_answer) {
        m_answer =
            MakeRenderer(m_options.format, m_zone, [this](const std::string& text) { m_output.Write(text); });
        m_answer->Begin(m_command, Printable(m_options.partition));
    }
    return *m_answer;
}

ExitCode Job::Finish(const Report& report) {
    Show(Answer(), report);
    return Finish();
}

ExitCode Job::Finish() {
    if (m_answer) {
        m_answer->End();
    }
    m_output.Flush();
    const bool readsFailed = ReadsFailed();
    NoteMissingBlocks();
    if (readsFailed) {
        NoteUnreadableBlocks();
    }
    return m_code;
}

} // namespace diskaccess
