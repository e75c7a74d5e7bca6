#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "file_writer.h"
#include "media/error.h"
#include "media/output_file.h"
#include "output_place.h"
#include "pipeline.h"

namespace media {

Outputs::Outputs(const OutputRules& rules, std::function<void()> whileWaiting)
    : m_rules(rules), m_pipeline(std::make_unique<Pipeline>(std::move(whileWaiting))) {}

Outputs::~Outputs() = default;

OutputFile& Outputs::Make(const std::string& path) {
    const bool begun = std::any_of(m_files.begin(), m_files.end(),
                                   [&path](const auto& file) { return file->Path() == path; });
    if (begun) {
        throw Error(ErrorKind::OutputTwice, path + ": two streams would get this name");
    }
    m_files.push_back(std::make_unique<OutputFile>(path, m_rules, *m_pipeline));
    return *m_files.back();
}

FileWriter& Outputs::MakeStream(const std::string& name, int stream) {
    struct stat status = {};
    if (fstat(stream, &status) == 0 && m_rules.source.Includes(status)) {
        throw Error(ErrorKind::OutputIsSource, name + ": leads into the source, which is never written");
    }
    OwnedDescriptor own = fcntl(stream, F_DUPFD_CLOEXEC, 0);
    if (own.Get() < 0) {
        throw Error(ErrorKind::CannotMake, name + ": cannot be written: " + std::strerror(errno));
    }
    m_streamName = name;
    m_stream = FileWriter::ToStream(name, std::move(own), *m_pipeline);
    return *m_stream;
}

std::vector<Exported> Outputs::CompleteAllBut(const OutputFile* one) {
    // All begin at once: while one is written out, the next is hashed.
    if (m_stream) {
        m_stream->BeginCompletion();
    }
    for (const auto& file : m_files) {
        if (file.get() != one) {
            file->BeginCompletion();
        }
    }
    std::vector<Exported> results;
    if (m_stream) {
        m_stream->AwaitCompletion();
        results.push_back({m_streamName, m_stream->Size(), m_stream->Sha256()});
    }
    for (const auto& file : m_files) {
        if (file.get() != one) {
            file->Complete();
            results.push_back(file->Result());
        }
    }
    return results;
}

namespace {

/// The folder that files get their names in, held against other programs that publish into it.
class HeldFolder {
public:
    explicit HeldFolder(const OutputFile& file) : m_path(file.Path()), m_fd(file.OpenFolder()) {
        for (int i = 0; i < kTries && m_fd >= 0 && flock(m_fd, LOCK_EX | LOCK_NB) != 0; ++i) {
            std::this_thread::sleep_for(kBetween);
        }
    }
    ~HeldFolder() {
        if (m_fd >= 0) {
            close(m_fd); // which gives it free
        }
    }
    HeldFolder(const HeldFolder&) = delete;
    HeldFolder& operator=(const HeldFolder&) = delete;

    /// Has the names that were given written to the medium. Some file systems know no such thing for folders.
    void Sync() const {
        if (m_fd >= 0 && fsync(m_fd) != 0 && errno != EINVAL && errno != EROFS) {
            throw Error(ErrorKind::CannotWrite, m_path + ": its name cannot be written: " +
                                                    std::strerror(errno) + "; nothing was kept");
        }
    }

private:
    /// Naming files takes a moment: who holds the folder for longer, or a file system that knows no locks, does not keep
    /// the files from their names.
    static constexpr int kTries = 500;
    static constexpr std::chrono::milliseconds kBetween{20};

    std::string m_path;
    int m_fd;
};

} // namespace

void Outputs::Publish() {
    if (m_files.empty()) {
        return;
    }
    const HeldFolder folder(*m_files.front());
    for (auto file = m_files.rbegin(); file != m_files.rend(); ++file) {
        (*file)->TakeName();
    }
    folder.Sync();
    for (const auto& file : m_files) {
        file->Keep();
    }
}

void CheckPlaces(const std::vector<std::string>& paths, const OutputRules& rules) {
    for (const std::string& path : paths) {
        OutputPlace(path).Check(rules);
    }
}

std::vector<Exported> WriteFiles(const std::vector<FileContents>& files, const OutputRules& rules) {
    Outputs outputs(rules);
    std::vector<OutputFile*> made;
    for (const FileContents& file : files) {
        made.push_back(&outputs.Make(file.path));
        made.back()->Bytes().Write(file.bytes.data(), file.bytes.size());
        made.back()->BeginCompletion();
    }
    std::vector<Exported> results;
    for (OutputFile* const file : made) {
        file->Complete();
        results.push_back(file->Result());
    }
    outputs.Publish();
    return results;
}

} // namespace media
