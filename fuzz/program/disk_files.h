#ifndef FUZZ_PROGRAM_DISK_FILES_H
#define FUZZ_PROGRAM_DISK_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "program/hostile_disk.h"

namespace fuzzing {

/// How disks lie in files: mostly as they are, sometimes in parts, and sometimes there is a damaged E01 image instead. Each by
/// the number of its run alone.
class DiskFiles {
public:
    /// @param whole a file with a disk that nothing is wrong with
    explicit DiskFiles(const std::string& whole);

    /// The files that a disk was put into, the one that is named to the program first.
    struct Put {
        std::string story; ///< what is wrong with the disk, and how it lies
        std::vector<std::string> paths;
    };
    /// @param path where the disk is put if it is one file; other files lie beside it, with endings of their own
    Put Write(const FileDisk& disk, uint64_t number, const std::string& path) const;

private:
    enum class Form { Whole, Split, Expert };

    Form FormOf(uint64_t number) const;

    std::string m_expertImage; ///< empty: there is no program here that makes one
};

} // namespace fuzzing

#endif // FUZZ_PROGRAM_DISK_FILES_H
