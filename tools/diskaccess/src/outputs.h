#ifndef DISKACCESS_OUTPUTS_H
#define DISKACCESS_OUTPUTS_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "interruption.h"
#include "output_file.h"

namespace diskaccess {

/// The files that a command makes: all of them, or none.
///
/// From the first one on, SIGINT and SIGTERM do not end the program: ask Interruption often. Once Publish() has begun they
/// come too late, and nothing is said of files that are all there.
class Outputs {
public:
    /// @param rules its source must stay as long as the object does
    explicit Outputs(const OutputRules& rules) : m_rules(rules) {}
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    /// Begins a file. It lives as long as this object.
    /// @throws Failure when it cannot be made, or was begun before
    OutputFile& Make(const std::string& path);

    /// Gives all files their names, the one begun first as the last: where it is, all others are. Each must be complete.
    /// If one cannot get its name, none does; but a file that was replaced stays so on file systems that cannot
    /// exchange names.
    void Publish();

private:
    OutputRules m_rules;
    std::optional<Interruption> m_interruption;
    std::vector<std::unique_ptr<OutputFile>> m_files;
};

} // namespace diskaccess

#endif // DISKACCESS_OUTPUTS_H
