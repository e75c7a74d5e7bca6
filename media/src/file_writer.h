#ifndef MEDIA_SRC_FILE_WRITER_H
#define MEDIA_SRC_FILE_WRITER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "owned_descriptor.h"
#include "pipeline.h"

namespace media {

/// Fills a file from its start to its end, and takes the SHA-256 of what it holds then. Both are done by the threads of
/// a pipeline: what goes wrong shows a little later. Each function but the destructor throws Error (CannotWrite,
/// CannotReadBack) from then on.
class FileWriter {
public:
    /// @param path for messages
    /// @param descriptor an empty file, open for reading and writing; the writer closes it
    /// @param pipeline must outlive the writer
    FileWriter(std::string path, OwnedDescriptor descriptor, Pipeline& pipeline);
    /// Writes to what may be a pipe, from where it stands on: nothing can be rewritten there.
    /// @param stream the writer closes it
    static std::unique_ptr<FileWriter> ToStream(std::string name, OwnedDescriptor stream, Pipeline& pipeline);
    /// What is not written yet is dropped.
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    /// Appends bytes, which are copied.
    void Write(const void* data, size_t size);
    /// Says that Rewrite() will come. Without that, hashing what is appended would be in vain if it does.
    void ExpectRewrite();
    /// Replaces bytes that were appended. The file is then read once more to hash it.
    void Rewrite(uint64_t offset, const void* data, size_t size);

    /// Makes a sparse file of it, before anything is appended. No digest is taken: that of a large hole would take as
    /// long as that of as many bytes.
    void MakeSparse();
    /// Appends a hole, which reads as zeros.
    void Skip(uint64_t size);

    /// Bytes appended so far.
    uint64_t Size() const { return m_size; }
    /// Has the threads write everything out to the medium, and hash it. Nothing may be appended any more.
    void BeginCompletion();
    /// Waits until that is done.
    void AwaitCompletion();
    /// Of the whole file, in hexadecimal; after AwaitCompletion().
    const std::string& Sha256() const { return m_sha256; }

private:
    struct State;
    FileWriter(std::string path, std::shared_ptr<State> state, Pipeline& pipeline);
    void Send();
    void Check() const;

    std::string m_path;
    Pipeline& m_pipeline;
    std::shared_ptr<State> m_state;
    std::shared_ptr<Chunk> m_chunk;
    uint64_t m_size = 0;
    bool m_sparse = false;
    bool m_hashing = true; ///< what is appended; else the file is read once more
    std::string m_sha256;
};

} // namespace media

#endif // MEDIA_SRC_FILE_WRITER_H
