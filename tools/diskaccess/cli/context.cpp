#include "cli/context.h"

#include <ctime>
#include <optional>
#include <utility>

#include "cli/password.h"
#include "render/amounts.h"
#include "render/printable.h"

namespace diskaccess {

namespace {

/// The bytes of a source that is open already.
class SharedSource : public recordings::Source {
public:
    /// @param source must outlive this
    explicit SharedSource(const recordings::Source& source) : m_source(source) {}

    const std::string& Name() const override { return m_source.Name(); }
    uint64_t Size() const override { return m_source.Size(); }
    bool IsBlockDevice() const override { return m_source.IsBlockDevice(); }
    std::optional<recordings::Partition> PartOfDisk() const override { return m_source.PartOfDisk(); }
    std::vector<int> Descriptors() const override { return m_source.Descriptors(); }
    size_t Read(uint64_t offset, void* data, size_t size) const override {
        return m_source.Read(offset, data, size);
    }
    void WillNeed(uint64_t offset, size_t size) const override { m_source.WillNeed(offset, size); }

private:
    const recordings::Source& m_source;
};

bool WritesFiles(const Options& options) {
    return !options.output.empty() || !options.svg.empty() || !options.html.empty();
}

} // namespace

// What is wrong with the options is said before anything is read.
Context::Context(const Options& options, std::string command)
    : m_options(options), m_command(std::move(command)), m_zone(ReadZone(options)), m_clock(SettleSkew()),
      m_names(options.namesFile), m_query(ReadQuery(m_options, m_zone, m_names, std::time(nullptr))),
      m_problems(options.partition,
                 [this](int64_t time) { return m_zone.TextOfMicros(m_clock.TrueInstant(time).micros); }),
      m_source(options.partition, options.partitionNumber, m_output.Descriptor()) {
    m_problems.BeforeEachLine([this] {
        if (m_progress) {
            m_progress->Hide();
        }
    });
    m_disk = std::make_unique<recordings::Disk>(m_source.Take(), options.diskType);
    for (const recordings::Problem& problem : m_disk->OpeningProblems()) {
        m_problems.Print(problem);
    }
    Unlock();
}

/// The skew that was typed, or that the check of the clock shows.
int64_t Context::SettleSkew() {
    if (!m_options.clockCheck.empty()) {
        m_clockCheck = ReadClockCheck(m_options.clockCheck, m_zone, std::time(nullptr));
        m_options.skew = m_clockCheck->Skew();
    }
    return m_options.skew;
}

void Context::Unlock() {
    if (m_disk->Hidden().Empty()) {
        return;
    }
    m_password = GivenPassword(m_options.passwordFile, m_options.askPassword);
    if (m_disk->Unlock(m_password.value_or(""))) {
        return;
    }
    const recordings::Problem problem = ProblemOfLock(*m_disk);
    if (m_password) {
        const std::string line = m_options.partition + ": wrong password: channels " +
                                 ChannelSetText(m_disk->Hidden()) +
                                 " stay hidden; give the right one with --ask-password, --password-file FILE "
                                 "or DISKACCESS_PASSWORD";
        if (WritesFiles(m_options)) {
            throw Failure(line); // a file of what is not hidden would outlive the complaint
        }
        m_wrongPassword = true;
        m_problems.Know(problem);
        Complain(line);
        return;
    }
    m_problems.Print(problem);
}

std::unique_ptr<recordings::Disk> Context::OpenAnother() const {
    auto disk = std::make_unique<recordings::Disk>(std::make_unique<SharedSource>(m_disk->Bytes()),
                                                   m_options.diskType);
    if (!disk->Hidden().Empty()) {
        disk->Unlock(m_password.value_or(""));
    }
    return disk;
}

void Context::Print(const std::string& text) {
    m_output.Write(text);
    m_output.Flush();
}

const recordings::BlockList& Context::Blocks() {
    if (!m_blocks) {
        m_blocks = std::make_unique<recordings::BlockList>(
            recordings::BlockList::Read(*m_disk, Watch("reading blocks")));
        m_blockOfNumber.resize(m_disk->BlockCount());
        for (const recordings::Block& block : m_blocks->All()) {
            m_blockOfNumber.at(block.number) = &block;
        }
    }
    return *m_blocks;
}

const recordings::Block* Context::BlockOf(uint32_t number) {
    Blocks();
    return number < m_blockOfNumber.size() ? m_blockOfNumber[number] : nullptr;
}

recordings::Watch Context::Watch(const std::string& doing) {
    m_progress = std::make_unique<Progress>(doing);
    return [this](const recordings::Progress& progress) {
        const double total = progress.total == 0 ? 1 : static_cast<double>(progress.total);
        m_progress->Show(static_cast<double>(progress.done) / total, progress.bytes);
        return true;
    };
}

Renderer& Context::Answer() {
    if (!m_answer) {
        m_answer = MakeRenderer(m_options.format, m_zone, [this](const std::string& text) {
            if (m_progress && m_output.IsTerminal()) {
                m_progress->Hide();
            }
            m_output.Write(text);
        });
        m_answer->Begin(m_command, Printable(m_options.partition));
    }
    return *m_answer;
}

ExitCode Context::Finish() {
    ShowTable(Answer(), m_problems.Listed("losses", recordings::Severity::Loss, m_clock));
    ShowTable(Answer(), m_problems.Listed("notes", recordings::Severity::Note, m_clock));
    return FinishWith(m_problems.Code());
}

ExitCode Context::FinishWithoutAnswer() {
    m_progress.reset();
    return m_wrongPassword ? kFailed : m_problems.Code();
}

ExitCode Context::FinishWith(ExitCode code) {
    Answer().End();
    m_output.Flush();
    m_progress.reset();
    return m_wrongPassword ? kFailed : code;
}

} // namespace diskaccess
