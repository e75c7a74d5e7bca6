#include "file_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "digest.h"
#include "media/error.h"

namespace media {

namespace {

/// Bytes after which the kernel is told to begin writing them to the medium. Without that it gathers what memory holds,
/// and writing out the file's end would take as long as everything before it, with no way to interrupt it.
constexpr uint64_t kSyncStep = 0x200000;

/// A pipe that has room takes so much at once; with more, the writer would sleep until somebody reads, and an export whose
/// reader pauses could not be interrupted.
constexpr size_t kPipePiece = 4096;
/// How often a full pipe is left, to see whether the work was ended, in milliseconds.
constexpr int kPipeWait = 100;

bool IsFile(int descriptor) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

/// What could not be done.
enum class Fault { None, Writing, ReadingBack };

} // namespace

/// What the threads know of the file.
struct FileWriter::State {
    explicit State(OwnedDescriptor file, bool isStream = false)
        : owner(std::move(file)), descriptor(owner.Get()), stream(isStream),
          piece(!isStream || IsFile(descriptor) ? Chunk::kSize : kPipePiece) {}
    ~State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void Fail(Fault kind, int error);
    bool Failed() const { return fault != Fault::None; }
    /// Whether there is any use in going on.
    bool Alive() const { return !abandoned && !Failed(); }

    void Put(uint64_t offset, const void* data, size_t size);
    ssize_t PutPiece(uint64_t offset, const char* bytes, size_t size) const;
    void SyncBehind(uint64_t end);
    void Sync();
    /// The file may end with a hole.
    void SetSize(uint64_t size);
    /// Reads the file, and sends it to the hasher.
    static void ReadBack(const std::shared_ptr<State>& state, Pipeline& pipeline);
    size_t Get(uint64_t offset, uint8_t* data);

    const OwnedDescriptor owner;
    const int descriptor;
    const bool stream;  ///< written in order, and never read
    const size_t piece; ///< what is written at once
    std::atomic<bool> abandoned{false};
    std::atomic<Fault> fault{Fault::None};
    std::atomic<int> systemError{0};
    std::atomic<bool> written{false}; ///< everything, to the medium
    std::atomic<bool> hashed{false};  ///< everything
    uint64_t synced = 0;              ///< the writer's alone
    Digest digest;                    ///< the hasher's, until everything is hashed
};

void FileWriter::State::Fail(Fault kind, int error) {
    if (!Failed()) {
        systemError = error;
        fault = kind;
    }
}

void FileWriter::State::Put(uint64_t offset, const void* data, size_t size) {
    const auto* const bytes = static_cast<const char*>(data);
    for (size_t done = 0; done < size && Alive();) {
        const ssize_t put = PutPiece(offset + done, bytes + done, std::min(size - done, piece));
        if (put < 0 && errno != EINTR && errno != EAGAIN) {
            Fail(Fault::Writing, errno);
        }
        done += static_cast<size_t>(std::max<ssize_t>(put, 0));
    }
}

ssize_t FileWriter::State::PutPiece(uint64_t offset, const char* bytes, size_t size) const {
    if (!stream) {
        return pwrite(descriptor, bytes, size, static_cast<off_t>(offset));
    }
    pollfd room = {descriptor, POLLOUT, 0};
    return poll(&room, 1, kPipeWait) == 0 ? 0 : write(descriptor, bytes, size);
}

/// Begins to write out the last step, and waits for the one before it.
void FileWriter::State::SyncBehind(uint64_t end) {
    while (!stream && Alive() && end - synced >= kSyncStep) {
        const auto begin = static_cast<off_t>(synced);
        sync_file_range(descriptor, begin, kSyncStep, SYNC_FILE_RANGE_WRITE);
        if (synced >= kSyncStep) {
            sync_file_range(descriptor, begin - static_cast<off_t>(kSyncStep), kSyncStep,
                            SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
        }
        synced += kSyncStep;
    }
}

void FileWriter::State::Sync() {
    // Pipes and the like cannot be synchronised.
    if (Alive() && fsync(descriptor) != 0 && errno != EINVAL && errno != EROFS) {
        Fail(Fault::Writing, errno);
    }
}

void FileWriter::State::SetSize(uint64_t size) {
    if (Alive() && ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
        Fail(Fault::Writing, errno);
    }
}

size_t FileWriter::State::Get(uint64_t offset, uint8_t* data) {
    ssize_t got = -1;
    do {
        got = pread(descriptor, data, Chunk::kSize, static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        Fail(Fault::ReadingBack, errno);
    }
    return static_cast<size_t>(std::max<ssize_t>(got, 0));
}

void FileWriter::State::ReadBack(const std::shared_ptr<State>& state, Pipeline& pipeline) try {
    for (uint64_t offset = 0; state->Alive();) {
        std::shared_ptr<Chunk> chunk = pipeline.TakeChunk();
        chunk->size = state->Get(offset, chunk->bytes.get());
        if (chunk->size == 0 || !pipeline.AdmitOnThread(*chunk)) {
            return;
        }
        offset += chunk->size;
        pipeline.Hasher().Post([state, chunk] { state->digest.Add(chunk->bytes.get(), chunk->size); });
    }
} catch (const std::bad_alloc&) {
    state->Fail(Fault::ReadingBack, ENOMEM);
}

FileWriter::FileWriter(std::string path, OwnedDescriptor descriptor, Pipeline& pipeline)
    : FileWriter(std::move(path), std::make_shared<State>(std::move(descriptor)), pipeline) {}

FileWriter::FileWriter(std::string path, std::shared_ptr<State> state, Pipeline& pipeline)
    : m_path(std::move(path)), m_pipeline(pipeline), m_state(std::move(state)) {}

std::unique_ptr<FileWriter> FileWriter::ToStream(std::string name, OwnedDescriptor stream,
                                                 Pipeline& pipeline) {
    auto state = std::make_shared<State>(std::move(stream), true);
    return std::unique_ptr<FileWriter>(new FileWriter(std::move(name), std::move(state), pipeline));
}

FileWriter::~FileWriter() {
    m_state->abandoned = true;
}

void FileWriter::Write(const void* data, size_t size) {
    const auto* from = static_cast<const uint8_t*>(data);
    while (size != 0) {
        if (!m_chunk) {
            m_chunk = m_pipeline.TakeChunk();
        }
        const size_t part = std::min(size, Chunk::kSize - m_chunk->size);
        std::memcpy(m_chunk->bytes.get() + m_chunk->size, from, part);
        m_chunk->size += part;
        m_size += part;
        from += part;
        size -= part;
        if (m_chunk->size == Chunk::kSize) {
            Send();
        }
    }
}

void FileWriter::Send() {
    const std::shared_ptr<Chunk> chunk = std::exchange(m_chunk, nullptr);
    Check();
    if (!chunk) {
        return;
    }
    m_pipeline.Admit(*chunk);
    const uint64_t end = m_size;
    m_pipeline.Writer().Post([state = m_state, chunk, end] {
        state->Put(end - chunk->size, chunk->bytes.get(), chunk->size);
        state->SyncBehind(end);
    });
    if (m_hashing) {
        m_pipeline.Hasher().Post([state = m_state, chunk] {
            if (state->Alive()) {
                state->digest.Add(chunk->bytes.get(), chunk->size);
            }
        });
    }
}

void FileWriter::ExpectRewrite() {
    m_hashing = false;
}

void FileWriter::Rewrite(uint64_t offset, const void* data, size_t size) {
    Send();
    m_hashing = false;
    const auto* const bytes = static_cast<const uint8_t*>(data);
    m_pipeline.Writer().Post([state = m_state, offset, copy = std::vector<uint8_t>(bytes, bytes + size)] {
        state->Put(offset, copy.data(), copy.size());
    });
}

void FileWriter::MakeSparse() {
    m_sparse = true;
    m_hashing = false;
}

void FileWriter::Skip(uint64_t size) {
    Send();
    m_size += size;
}

void FileWriter::Check() const {
    const Fault fault = m_state->fault;
    if (fault != Fault::None && m_state->stream) {
        throw Error(m_state->systemError == EPIPE ? ErrorKind::NobodyReads : ErrorKind::CannotWrite,
                    fmt::format("{}: cannot be written: {}; what was written is not whole", m_path,
                                std::strerror(m_state->systemError)));
    }
    if (fault != Fault::None) {
        const bool writing = fault == Fault::Writing;
        throw Error(writing ? ErrorKind::CannotWrite : ErrorKind::CannotReadBack,
                    fmt::format("{}: cannot be {}: {}; nothing was kept", m_path,
                                writing ? "written" : "read back", std::strerror(m_state->systemError)));
    }
}

void FileWriter::BeginCompletion() {
    Send();
    const auto finishHash = [state = m_state, &pipeline = m_pipeline] {
        state->hashed = true;
        pipeline.Announce();
    };
    if (m_sparse) {
        m_pipeline.Writer().Post([state = m_state, size = m_size] { state->SetSize(size); });
    }
    if (m_hashing || m_sparse) {
        m_pipeline.Hasher().Post(finishHash);
    } else {
        // The writer has written everything when it comes to this, and the hasher then does what it is sent.
        m_pipeline.Hasher().Post([state = m_state] { state->digest.Restart(); });
        m_pipeline.Writer().Post([state = m_state, &pipeline = m_pipeline, finishHash] {
            State::ReadBack(state, pipeline);
            pipeline.Hasher().Post(finishHash);
        });
    }
    m_pipeline.Writer().Post([state = m_state, &pipeline = m_pipeline] {
        state->Sync();
        state->written = true;
        pipeline.Announce();
    });
}

void FileWriter::AwaitCompletion() {
    m_pipeline.Await([this] { return m_state->written && m_state->hashed; });
    Check();
    m_sha256 = m_sparse ? "" : m_state->digest.Text();
}

} // namespace media
