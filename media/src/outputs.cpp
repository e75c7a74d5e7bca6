#include <algorithm>
#include <utility>

#include "file_writer.h"
#include "media/error.h"
#include "media/output_file.h"
#include "pipeline.h"

namespace media {

Outputs::Outputs(const OutputRules& rules, std::function<void()> whileWaiting)
    : m_rules(rules), m_pipeline(std::make_unique<Pipeline>(std::move(whileWaiting))) {}

Outputs::~Outputs() = default;

OutputFile& Outputs::Make(const std::string& path) {
    const bool begun = std::any_of(m_files.begin(), m_files.end(),
                                   [&path](const auto& file) { return file->Path() == path; });
    if (begun) {
        throw Error(ErrorKind::OutputTwice, path + ": two streams would bear this name");
    }
    m_files.push_back(std::make_unique<OutputFile>(path, m_rules, *m_pipeline));
    return *m_files.back();
}

std::vector<Exported> Outputs::CompleteOthers(const OutputFile& one) {
    // All begin at once: while one is written out, the next is hashed.
    for (const auto& file : m_files) {
        if (file.get() != &one) {
            file->BeginCompletion();
        }
    }
    std::vector<Exported> results;
    for (const auto& file : m_files) {
        if (file.get() != &one) {
            file->Complete();
            results.push_back(file->Result());
        }
    }
    return results;
}

void Outputs::Publish() {
    for (auto file = m_files.rbegin(); file != m_files.rend(); ++file) {
        (*file)->TakeName();
    }
    for (const auto& file : m_files) {
        file->Keep();
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
