#include "output_file.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "cli/failure.h"
#include "interruption.h"

namespace diskaccess {

namespace {

constexpr size_t kBufferSize = 0x100000;
/// Times to try for a name that others may take, or give up, at the same moment.
constexpr int kTries = 16;

/// A name that nobody can foresee. It does not hold the file's own, which may be as long as a name can be.
std::string TemporaryName() {
    std::array<unsigned char, 8> bytes = {};
    if (getentropy(bytes.data(), bytes.size()) != 0) {
        throw Failure(fmt::format("the kernel gives no random numbers: {}", std::strerror(errno)));
    }
    return fmt::format("diskaccess-{:02x}.part", fmt::join(bytes, ""));
}

} // namespace

/// A running SHA-256.
struct OutputFile::Hash {
    Hash() { Restart(); }
    ~Hash() { EVP_MD_CTX_free(context); }
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;

    void Restart() const { EVP_DigestInit_ex(context, EVP_sha256(), nullptr); }
    void Add(const void* data, size_t size) const { EVP_DigestUpdate(context, data, size); }
    std::string Text() const {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest = {};
        unsigned int size = 0;
        EVP_DigestFinal_ex(context, digest.data(), &size);
        return fmt::format("{:02x}", fmt::join(digest.begin(), digest.begin() + size, ""));
    }

    EVP_MD_CTX* context = EVP_MD_CTX_new();
};

OutputFile::OutputFile(std::string path, const OutputRules& rules)
    : m_place(std::move(path)), m_rules(rules), m_hash(std::make_unique<Hash>()) {
    m_place.Check(m_rules);
    m_buffer.reserve(kBufferSize);
    Make();
}

OutputFile::~OutputFile() {
    if (m_state == State::Temporary) {
        RemoveTemporary();
    } else if (m_state != State::Kept) {
        GiveNameBack();
    }
    if (m_fd >= 0) {
        close(m_fd);
    }
}

/// Makes the file under a name that no other program can have put a link or a file of its own at.
void OutputFile::Make() {
    for (int i = 0; i < kTries && m_fd < 0; ++i) {
        m_temporary = TemporaryName();
        m_fd = openat(m_place.Folder(), m_temporary.c_str(),
                      O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
        if (m_fd < 0 && errno != EEXIST) {
            break;
        }
    }
    if (m_fd < 0) {
        m_place.CannotBeMade(errno);
    }
    struct stat status = {};
    if (fstat(m_fd, &status) != 0) {
        const int error = errno;
        unlinkat(m_place.Folder(), m_temporary.c_str(), 0);
        close(m_fd);
        m_place.CannotBeMade(error);
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
}

void OutputFile::Write(const void* data, size_t size) {
    if (!m_seeked) {
        m_hash->Add(data, size);
    }
    if (m_buffer.size() + size > kBufferSize) {
        Flush();
    }
    m_buffer.append(static_cast<const char*>(data), size);
    if (m_buffer.size() > kBufferSize) {
        Flush();
    }
}

void OutputFile::Flush() {
    for (size_t written = 0; written < m_buffer.size();) {
        const ssize_t put = write(m_fd, m_buffer.data() + written, m_buffer.size() - written);
        if (put < 0 && errno != EINTR) {
            CannotBeWritten(errno);
        }
        written += static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
    m_buffer.clear();
}

void OutputFile::CannotBeWritten(int error) const {
    throw Failure(fmt::format("{}: cannot be written: {}; nothing was kept", Path(), std::strerror(error)));
}

int64_t OutputFile::Seek(int64_t offset, int whence) {
    Flush();
    m_seeked = true;
    return lseek(m_fd, offset, whence);
}

void OutputFile::HashAgain() {
    m_hash->Restart();
    std::vector<char> chunk(kBufferSize);
    for (off_t at = 0;;) {
        Interruption::EndIfAsked();
        const ssize_t got = pread(m_fd, chunk.data(), chunk.size(), at);
        if (got < 0) {
            throw Failure(
                fmt::format("{}: cannot be read back: {}; nothing was kept", Path(), std::strerror(errno)));
        }
        if (got == 0) {
            return;
        }
        m_hash->Add(chunk.data(), static_cast<size_t>(got));
        at += got;
    }
}

void OutputFile::Complete() {
    Flush();
    if (m_seeked) {
        HashAgain();
    }
    m_sha256 = m_hash->Text();
    struct stat status = {};
    fstat(m_fd, &status);
    m_size = static_cast<uint64_t>(status.st_size);
    if (close(std::exchange(m_fd, -1)) != 0) {
        CannotBeWritten(errno);
    }
}

void OutputFile::TakeName() {
    // What bears the name may come and go between two calls.
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
bool OutputFile::TakeFreeName() {
    if (renameat2(m_place.Folder(), m_temporary.c_str(), m_place.Folder(), m_place.Name().c_str(),
                  RENAME_NOREPLACE) == 0) {
        m_state = State::Named;
        return true;
    }
    return errno != EEXIST && LinkToFreeName();
}

/// The same, for file systems that do not know how to rename without replacing.
bool OutputFile::LinkToFreeName() {
    if (linkat(m_place.Folder(), m_temporary.c_str(), m_place.Folder(), m_place.Name().c_str(), 0) == 0) {
        m_state = State::Named;
        RemoveTemporary();
        return true;
    }
    return errno != EEXIST && RenameToHeldName();
}

/// The same, for file systems that have no links either: an empty file holds the name until it is taken.
bool OutputFile::RenameToHeldName() {
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

/// Takes the name of what bears it. Where the file system can exchange names, what was replaced is looked at once more
/// under the temporary name: it may be another file than a moment ago. Where it cannot, what was replaced is gone.
void OutputFile::Replace() {
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

void OutputFile::Keep() {
    if (m_state == State::Exchanged) {
        unlinkat(m_place.Folder(), m_temporary.c_str(), 0);
    }
    m_state = State::Kept;
}

/// Undoes TakeName(), unless somebody else has put something in the file's place since then.
void OutputFile::GiveNameBack() {
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

void OutputFile::RemoveTemporary() const {
    if (IsThisFile(m_temporary)) {
        unlinkat(m_place.Folder(), m_temporary.c_str(), 0);
    }
}

bool OutputFile::IsThisFile(const std::string& name) const {
    struct stat entry = {};
    return fstatat(m_place.Folder(), name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) == 0 &&
           entry.st_dev == m_device && entry.st_ino == m_inode;
}

} // namespace diskaccess
