#include "media/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "file_writer.h"
#include "media/error.h"
#include "output_place.h"
#include "pipeline.h"

namespace media {

namespace {

/// Times to try for a name that others may take, or give up, at the same moment.
constexpr int kTries = 16;

/// A name that nobody can foresee. It does not hold the file's own, which may be as long as a name can be.
std::string TemporaryName() {
    std::array<unsigned char, 8> bytes = {};
    if (getentropy(bytes.data(), bytes.size()) != 0) {
        throw Error(ErrorKind::CannotMake,
                    fmt::format("the kernel gives no random numbers: {}", std::strerror(errno)));
    }
    return fmt::format("diskaccess-{:02x}.part", fmt::join(bytes, ""));
}

} // namespace

/// The name of the file, and what had it before.
class OutputFile::Naming {
public:
    Naming(std::string path, const OutputRules& rules);
    ~Naming();
    Naming(const Naming&) = delete;
    Naming& operator=(const Naming&) = delete;

    /// Makes the file under a name that no other program can have put a link or a file of its own at.
    /// @return its descriptor
    OwnedDescriptor Make();
    void TakeName();
    void Keep();
    const std::string& Path() const { return m_place.Path(); }
    int OpenFolder() const { return openat(m_place.Folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

private:
    /// How far the file has come.
    enum class State {
        Absent,    ///< not made yet
        Temporary, ///< under its temporary name
        Named,     ///< under its own name, which was free
        Exchanged, ///< under its own name; what was replaced has the temporary one
        Kept,      ///< under its own name for good
    };

    bool TakeFreeName();
    bool LinkToFreeName();
    bool RenameToHeldName();
    void Replace();
    void GiveNameBack();
    void RemoveTemporary() const;
    bool IsThisFile(const std::string& name) const;

    OutputPlace m_place;
    OutputRules m_rules;
    std::string m_temporary;
    State m_state = State::Absent;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

OutputFile::Naming::Naming(std::string path, const OutputRules& rules)
    : m_place(std::move(path)), m_rules(rules) {
    m_place.Check(m_rules);
}

OutputFile::Naming::~Naming() {
    if (m_state == State::Temporary) {
        RemoveTemporary();
    } else if (m_state == State::Named || m_state == State::Exchanged) {
        GiveNameBack();
    }
}

OwnedDescriptor OutputFile::Naming::Make() {
    int file = -1;
    for (int i = 0; i < kTries && file < 0; ++i) {
        m_temporary = TemporaryName();
        file = openat(m_place.Folder(), m_temporary.c_str(),
                      O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (file < 0 && errno != EEXIST) {
            break;
        }
    }
    if (file < 0) {
        m_place.CannotBeMade(errno);
    }
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        const int error = errno;
        unlinkat(m_place.Folder(), m_temporary.c_str(), 0);
        close(file);
        m_place.CannotBeMade(error);
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
    m_state = State::Temporary;
    return file;
}

void OutputFile::Naming::TakeName() {
    // What has the name may come and go between two calls.
    for (int i = 0; i < kTries && m_state == State::Temporary; ++i) {
        if (!TakeFreeName()) {
            m_place.Check(m_rules);
            Replace();
        }
    }
    if (m_state == State::Temporary) {
        m_place.CannotBeMade(EBUSY);
    }
}

/// @return false when the name is taken
bool OutputFile::Naming::TakeFreeName() {
    if (renameat2(m_place.Folder(), m_temporary.c_str(), m_place.Folder(), m_place.Name().c_str(),
                  RENAME_NOREPLACE) == 0) {
        m_state = State::Named;
        return true;
    }
    return errno != EEXIST && LinkToFreeName();
}

/// The same, for file systems that do not know how to rename without replacing.
bool OutputFile::Naming::LinkToFreeName() {
    if (linkat(m_place.Folder(), m_temporary.c_str(), m_place.Folder(), m_place.Name().c_str(), 0) == 0) {
        m_state = State::Named;
        RemoveTemporary();
        return true;
    }
    return errno != EEXIST && RenameToHeldName();
}

/// The same, for file systems that have no links either: an empty file holds the name until it is taken.
bool OutputFile::Naming::RenameToHeldName() {
    const char* const name = m_place.Name().c_str();
    const int holder =
        openat(m_place.Folder(), name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (holder < 0) {
        if (errno == EEXIST) {
            return false;
        }
        m_place.CannotBeMade(errno);
    }
    close(holder);
    if (renameat(m_place.Folder(), m_temporary.c_str(), m_place.Folder(), name) != 0) {
        const int error = errno;
        unlinkat(m_place.Folder(), name, 0);
        m_place.CannotBeMade(error);
    }
    m_state = State::Named;
    return true;
}

/// Takes the name of what has it. Where the file system can exchange names, what was replaced is looked at once more
/// under the temporary name: it may be another file than a moment ago. Where it cannot, what was replaced is gone.
void OutputFile::Naming::Replace() {
    const int folder = m_place.Folder();
    const char* const name = m_place.Name().c_str();
    if (renameat2(folder, m_temporary.c_str(), folder, name, RENAME_EXCHANGE) == 0) {
        m_state = State::Exchanged;
        m_place.CheckEntry(m_temporary, m_rules);
    } else if (errno != ENOENT) {
        if (renameat(folder, m_temporary.c_str(), folder, name) != 0) {
            m_place.CannotBeMade(errno);
        }
        m_state = State::Kept;
    }
}

void OutputFile::Naming::Keep() {
    if (m_state == State::Exchanged) {
        unlinkat(m_place.Folder(), m_temporary.c_str(), 0);
    }
    m_state = State::Kept;
}

/// Undoes TakeName(), unless somebody else has put something in the file's place since then.
void OutputFile::Naming::GiveNameBack() {
    const int folder = m_place.Folder();
    const char* const name = m_place.Name().c_str();
    if (!IsThisFile(m_place.Name())) {
        return;
    }
    if (m_state == State::Named) {
        unlinkat(folder, name, 0);
    } else if (renameat2(folder, m_temporary.c_str(), folder, name, RENAME_EXCHANGE) == 0) {
        RemoveTemporary();
    }
}

void OutputFile::Naming::RemoveTemporary() const {
    if (IsThisFile(m_temporary)) {
        unlinkat(m_place.Folder(), m_temporary.c_str(), 0);
    }
}

bool OutputFile::Naming::IsThisFile(const std::string& name) const {
    struct stat entry = {};
    return fstatat(m_place.Folder(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 &&
           entry.st_dev == m_device && entry.st_ino == m_inode;
}

OutputFile::OutputFile(std::string path, const OutputRules& rules, Pipeline& pipeline)
    : m_naming(std::make_unique<Naming>(std::move(path), rules)),
      m_bytes(std::make_unique<FileWriter>(m_naming->Path(), m_naming->Make(), pipeline)) {}

OutputFile::~OutputFile() = default;

const std::string& OutputFile::Path() const {
    return m_naming->Path();
}

int OutputFile::OpenFolder() const {
    return m_naming->OpenFolder();
}

void OutputFile::BeginCompletion() {
    if (!std::exchange(m_completing, true)) {
        m_bytes->BeginCompletion();
    }
}

void OutputFile::Complete() {
    BeginCompletion();
    m_bytes->AwaitCompletion();
}

void OutputFile::TakeName() {
    m_naming->TakeName();
}

void OutputFile::Keep() {
    m_naming->Keep();
}

Exported OutputFile::Result() const {
    return {Path(), m_bytes->Size(), m_bytes->Sha256()};
}

} // namespace media
