#include "cli/source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "cli/failure.h"

namespace diskaccess {

namespace {

bool LeadsInto(int descriptor, const media::SourceIdentity& source) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && source.Includes(status);
}

/// Opens all parts of a source, after a look at the first.
std::unique_ptr<recordings::Source> OpenGuarded(const std::string& path, int standardOutput) {
    const int first = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (first >= 0) {
        const media::SourceIdentity identity(first);
        close(first);
        KeepOutputFrom(path, identity, standardOutput);
    }
    return recordings::OpenWhole(path);
}

} // namespace

// Where the output leads is looked at as soon as a file is open: if it leads there, not even an error may be printed.
OpenedSource::OpenedSource(const std::string& path, std::optional<uint32_t> partition, int standardOutput)
    : m_source(OpenGuarded(path, standardOutput)), m_identity(m_source->Descriptors()) {
    KeepOutputFrom(path, m_identity, standardOutput);
    m_source = recordings::FindPartition(std::move(m_source), partition);
}

void KeepOutputFrom(const std::string& name, const media::SourceIdentity& source, int standardOutput) {
    const bool output = LeadsInto(standardOutput, source);
    const bool complaints = LeadsInto(STDERR_FILENO, source);
    if (complaints) {
        // Not even this may be said there.
        if (output || dup2(standardOutput, STDERR_FILENO) < 0) {
            close(STDERR_FILENO);
        }
    }
    if (output || complaints) {
        throw Failure(
            fmt::format("{}: standard {} leads into it, and it is never written; send the output elsewhere",
                        name, output ? "output" : "error"));
    }
}

} // namespace diskaccess
