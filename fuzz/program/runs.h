#ifndef FUZZ_PROGRAM_RUNS_H
#define FUZZ_PROGRAM_RUNS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "program/command_lines.h"
#include "program/disk_files.h"
#include "program/hostile_disk.h"
#include "program/program_call.h"
#include "support/temp_dir.h"

namespace fuzzing {

/// The runs of the program on hostile disks: what they need, and what is looked at after each.
class Runs {
public:
    Runs();

    /// A run, in this process. What is wrong with how it ends is reported, which ends the process.
    /// @return the exit status of the command that counts
    int Run(uint64_t number);

    const CommandLines& Lines() const { return m_lines; }
    /// What a run is about, in lines.
    std::string Story(uint64_t number) const;
    /// Saves the disk of a run, or its parts.
    void Save(uint64_t number, const std::string& path) const;
    /// What the program has complained of last. Also for the process that this one was forked from.
    std::string Complaints() const { return m_call.Complaints(); }

private:
    void MakeFiles();
    void MakeManifests();
    void DamageManifest(uint64_t number) const;
    void EmptyFolders() const;
    /// Empties the folders, and puts the disk of a run into its own.
    DiskFiles::Put PutDisk(uint64_t number) const;
    /// The command lines of a run, of the disk that lies at a path.
    std::vector<CommandLine> LinesOf(uint64_t number, const std::string& path) const;
    /// Runs a line, and looks at how it ended.
    int RunLine(const CommandLine& line);
    void CheckComplaints(const CommandLine& line, const ProgramEnd& end) const;
    void CheckAnswer(const CommandLine& line, const ProgramEnd& end) const;
    void CheckFolders(const CommandLine& line, const ProgramEnd& end) const;

    test_support::TempDir m_folder;
    HostileDisks m_disks;
    std::optional<DiskFiles> m_files;
    CommandLines m_lines;
    ProgramCall m_call;
};

} // namespace fuzzing

#endif // FUZZ_PROGRAM_RUNS_H
