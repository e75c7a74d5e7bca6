#ifndef FUZZ_SUPPORT_SCRATCH_FOLDER_H
#define FUZZ_SUPPORT_SCRATCH_FOLDER_H

/// @file scratch_folder.h
/// A folder for what a run writes, in memory where there is a file system there.

#include <set>
#include <string>

namespace fuzzing {

/// Made with a name that nobody else has, and removed with all that lies in it.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string PathOf(const std::string& name) const { return m_path + "/" + name; }
    /// The names of all that lies in it.
    std::set<std::string> Names() const;

private:
    std::string m_path;
};

/// A file as a text.
std::string Contents(const std::string& path);
void MakeFile(const std::string& path, const std::string& contents);

} // namespace fuzzing

#endif // FUZZ_SUPPORT_SCRATCH_FOLDER_H
