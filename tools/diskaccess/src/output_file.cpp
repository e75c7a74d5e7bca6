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

#include "failure.h"

namespace diskaccess {

namespace {

constexpr size_t kBufferSize = 0x100000;

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

OutputFile::OutputFile(std::string path, bool replace)
    : m_path(std::move(path)), m_partPath(m_path + ".part"), m_replace(replace),
      m_hash(std::make_unique<Hash>()) {
    struct stat status = {};
    if (!replace && lstat(m_path.c_str(), &status) == 0) {
        throw Failure(m_path + ": exists already; give another --output, or --force to replace it");
    }
    m_fd = open(m_partPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (m_fd < 0) {
        throw Failure(
            fmt::format("{}: cannot be made: {}; give another --output", m_partPath, std::strerror(errno)));
    }
    m_buffer.reserve(kBufferSize);
}

OutputFile::~OutputFile() {
    if (m_fd >= 0) {
        close(m_fd);
    }
    if (!m_finished) {
        unlink(m_partPath.c_str());
    }
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
            throw Failure(
                fmt::format("{}: cannot be written: {}; nothing was kept", m_partPath, std::strerror(errno)));
        }
        written += static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
    m_buffer.clear();
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
        const ssize_t got = pread(m_fd, chunk.data(), chunk.size(), at);
        if (got < 0) {
            throw Failure(fmt::format("{}: cannot be read back: {}", m_partPath, std::strerror(errno)));
        }
        if (got == 0) {
            return;
        }
        m_hash->Add(chunk.data(), static_cast<size_t>(got));
        at += got;
    }
}

void OutputFile::Finish() {
    Flush();
    if (m_seeked) {
        HashAgain();
    }
    m_sha256 = m_hash->Text();
    struct stat status = {};
    fstat(m_fd, &status);
    m_size = static_cast<uint64_t>(status.st_size);
    const int closed = close(std::exchange(m_fd, -1));
    // A link fails where a file of that name has come up meanwhile; a rename would replace it.
    const bool named = m_replace
                           ? std::rename(m_partPath.c_str(), m_path.c_str()) == 0
                           : link(m_partPath.c_str(), m_path.c_str()) == 0 ||
                                 (errno != EEXIST && std::rename(m_partPath.c_str(), m_path.c_str()) == 0);
    if (closed != 0 || !named) {
        throw Failure(
            fmt::format("{}: cannot be finished: {}; nothing was kept", m_path, std::strerror(errno)));
    }
    unlink(m_partPath.c_str());
    m_finished = true;
}

} // namespace diskaccess
