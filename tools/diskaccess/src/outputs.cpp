#include "outputs.h"

#include <algorithm>

#include "cli/failure.h"

namespace diskaccess {

OutputFile& Outputs::Make(const std::string& path) {
    const bool begun = std::any_of(m_files.begin(), m_files.end(),
                                   [&path](const auto& file) { return file->Path() == path; });
    if (begun) {
        throw Failure(path + ": two streams would bear this name; give --audio another codec");
    }
    if (!m_interruption) {
        m_interruption.emplace();
    }
    m_files.push_back(std::make_unique<OutputFile>(path, m_rules));
    return *m_files.back();
}

void Outputs::Publish() {
    Interruption::EndIfAsked();
    for (auto file = m_files.rbegin(); file != m_files.rend(); ++file) {
        (*file)->TakeName();
    }
    for (const auto& file : m_files) {
        file->Keep();
    }
}

} // namespace diskaccess
