#ifndef DISKACCESS_SOURCE_H
#define DISKACCESS_SOURCE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "media/source_identity.h"
#include "recordings/source.h"

namespace diskaccess {

/// What the user named, opened for reading only, and what must not be written because of it.
class OpenedSource {
public:
    /// @param partition its number on a whole disk, if it was given
    /// @param standardOutput where the program's output goes
    /// @throws recordings::Error when it cannot be opened
    /// @throws Failure when the output leads into it
    OpenedSource(const std::string& path, std::optional<uint32_t> partition, int standardOutput);

    /// Holds as long as the source is open.
    const media::SourceIdentity& Identity() const { return m_identity; }
    /// The source; once.
    std::unique_ptr<recordings::Source> Take() { return std::move(m_source); }

private:
    std::unique_ptr<recordings::Source> m_source;
    media::SourceIdentity m_identity;
};

/// Makes sure that nothing is printed into a source, as `list disk >> disk` would.
/// @param name the source's
/// @throws Failure when standard output or standard error leads into it
void KeepOutputFrom(const std::string& name, const media::SourceIdentity& source, int standardOutput);

} // namespace diskaccess

#endif // DISKACCESS_SOURCE_H
