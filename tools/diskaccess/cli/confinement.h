#ifndef DISKACCESS_CONFINEMENT_H
#define DISKACCESS_CONFINEMENT_H

/// @file confinement.h
/// What the program keeps of its rights while it reads a disk that may be forged: should a defect let the disk take the
/// program over, it can neither write to other files nor start programs nor send anything anywhere.

#include <string>
#include <vector>

namespace diskaccess {

/// What a command needs of the system, beside memory and what it has open already.
struct Needs {
    std::vector<std::string> readable; ///< files and folders that it opens for reading
    std::vector<std::string>
        writable;         ///< folders in which it makes files, and files that it opens for writing
    bool network = false; ///< serves requests, or asks a server
    std::vector<std::string> listable = {}; ///< folders whose names it reads, to find what lies beside a file
};

/// What the kernel watches from now on.
struct Confinement {
    bool files = false;   ///< nothing but what is needed can be opened
    bool calls = false;   ///< system calls that no reader of a disk needs are refused
    bool network = false; ///< but not those that send something

    /// In a sentence, for those who ask.
    std::string Text() const;
};

/// Gives up, for the rest of the process's life, everything but @p needs and what programs as such need: the system's
/// libraries, zone data, and what the kernel says of devices. Files are watched where the kernel has Landlock. Called before
/// other threads are started.
Confinement Confine(const Needs& needs);

/// How a command is confined before it reads anything: Confine(), or what leaves the process as it is.
using Confiner = Confinement (*)(const Needs& needs);

/// A file, and those beside it that differ from it in what follows the last dot alone: the parts of an image.
std::vector<std::string> WithPartsBeside(const std::string& path);

} // namespace diskaccess

#endif // DISKACCESS_CONFINEMENT_H
