#ifndef MEDIA_SRC_OUTPUT_PLACE_H
#define MEDIA_SRC_OUTPUT_PLACE_H

#include <string>

#include "media/output_file.h"

namespace media {

/// The place of an output: a name in a folder. The folder is held open, so that it stays the same one even if the names
/// that lead to it change.
class OutputPlace {
public:
    /// @throws Error when there is no such folder
    explicit OutputPlace(std::string path);
    ~OutputPlace();
    OutputPlace(const OutputPlace&) = delete;
    OutputPlace& operator=(const OutputPlace&) = delete;

    /// As the user named it, for messages.
    const std::string& Path() const { return m_path; }
    const std::string& Name() const { return m_name; }
    int Folder() const { return m_folder; }

    /// Looks at what has the name now.
    /// @throws Error when an output may not take its place
    void Check(const OutputRules& rules) const { CheckEntry(m_name, rules); }
    /// Looks at another name in the folder, on behalf of this place.
    void CheckEntry(const std::string& name, const OutputRules& rules) const;

    /// "cannot be made: ...", for an error number.
    [[noreturn]] void CannotBeMade(int error) const;

private:
    std::string m_path;
    std::string m_name;
    int m_folder = -1;
};

} // namespace media

#endif // MEDIA_SRC_OUTPUT_PLACE_H
