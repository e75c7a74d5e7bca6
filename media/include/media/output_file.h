#ifndef MEDIA_OUTPUT_FILE_H
#define MEDIA_OUTPUT_FILE_H

/// @file output_file.h
/// Files that appear whole or not at all, and never take the place of what they are made from.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "media/source_identity.h"

namespace media {

class FileWriter;
class Pipeline;

/// What an output may take the place of.
struct OutputRules {
    const SourceIdentity& source; ///< nothing of this, ever; must outlive what is made by the rules
    bool replace = false;         ///< whether a file of the output's name may be replaced
};

/// A file that was made.
struct Exported {
    std::string path;
    uint64_t size = 0;  ///< bytes
    std::string sha256; ///< of all of it, in hexadecimal
};

/// A file that gets its name only when it is whole.
///
/// Until then it has a name that nobody can foresee, in the folder that it is to lie in. Call Complete(), TakeName()
/// and Keep(), in this order; an object that goes before Keep() leaves nothing, and what had the name before has it
/// again.
class OutputFile {
public:
    /// @param pipeline writes and hashes the file; must outlive it
    /// @throws Error when the place is taken, or the file cannot be made
    OutputFile(std::string path, const OutputRules& rules, Pipeline& pipeline);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// What fills the file.
    FileWriter& Bytes() { return *m_bytes; }

    /// Has what is not on the medium yet, or not hashed, done meanwhile. Nothing may be written any more.
    void BeginCompletion();
    /// Waits until everything is on the medium, and hashed.
    /// @throws Error when the medium is full, for one
    void Complete();
    /// Gives the file its name. The place is looked at again: what may not be replaced may have come there meanwhile.
    /// @throws Error when it has
    void TakeName();
    /// Makes the name final: what was replaced is gone.
    void Keep();

    const std::string& Path() const;
    /// A descriptor of the folder, the caller's to close; -1 when it cannot be read.
    int OpenFolder() const;
    /// After Complete().
    Exported Result() const;

private:
    class Naming;
    std::unique_ptr<Naming> m_naming;
    std::unique_ptr<FileWriter> m_bytes;
    bool m_completing = false;
};

/// Files that are made together: all of them, or none. They are written by one thread and hashed by another, which
/// handle no signals.
class Outputs {
public:
    /// @param whileWaiting called several times a second while the threads are waited for; it throws to end the work
    explicit Outputs(const OutputRules& rules, std::function<void()> whileWaiting = {});
    ~Outputs();
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    /// Begins a file. It lives as long as this object.
    /// @throws Error when it cannot be made, or was begun before
    OutputFile& Make(const std::string& path);

    /// Begins to write to a stream instead, which may be a pipe. It has no name to take: what was written is written.
    /// @param name for messages, and what the manifest calls it
    /// @param stream open for writing; it stays the caller's
    /// @throws Error when it leads into the source
    FileWriter& MakeStream(const std::string& name, int stream);

    /// Completes all files that were begun but one, which tells of them.
    /// @return what they are, in the order they were begun in, the stream first
    std::vector<Exported> CompleteOthers(const OutputFile& one) { return CompleteAllBut(&one); }
    /// The same where nothing tells of them.
    std::vector<Exported> CompleteAll() { return CompleteAllBut(nullptr); }

    /// Gives all files their names, the one begun first as the last: where it is, all others are. Each must be complete.
    /// If one cannot get its name, none does; but a file that was replaced stays so on file systems that cannot
    /// exchange names. The names are on the medium when it returns. Of two that publish into one folder, the second waits:
    /// their files never get mixed.
    void Publish();

private:
    std::vector<Exported> CompleteAllBut(const OutputFile* one);

    OutputRules m_rules;
    std::unique_ptr<Pipeline> m_pipeline;
    std::string m_streamName;
    std::unique_ptr<FileWriter> m_stream; ///< if there is one
    std::vector<std::unique_ptr<OutputFile>> m_files;
};

/// Looks at the places of files, before the work for them begins.
/// @throws Error when one of them cannot be made, or may not
void CheckPlaces(const std::vector<std::string>& paths, const OutputRules& rules);

/// A file as it is to be.
struct FileContents {
    std::string path;
    std::string bytes;
};

/// Makes files of what is in memory: all of them, or none.
/// @throws Error
std::vector<Exported> WriteFiles(const std::vector<FileContents>& files, const OutputRules& rules);

} // namespace media

#endif // MEDIA_OUTPUT_FILE_H
