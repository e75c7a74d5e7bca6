#ifndef DISKACCESS_PICTURES_H
#define DISKACCESS_PICTURES_H

#include <optional>
#include <string>
#include <vector>

#include "cli/context.h"
#include "media/output_file.h"
#include "media/stills.h"

namespace diskaccess {

/// The --output of pictures in its parts: what lies before the ending, and the ending with its point.
struct PictureOutput {
    std::string stem;
    std::string ending;
    bool folder = false; ///< files in it are named by their time
    media::PictureFormat format = media::PictureFormat::Jpeg;
};

/// @throws WrongUse when it names no picture
PictureOutput ReadPictureOutput(const std::string& output);

bool HasPicture(const media::Still& still);

/// Shows what was made.
/// @param files of the stills that have a picture, in their order
void ShowStills(Context& context, const std::vector<media::Still>& stills,
                const std::vector<media::Exported>& files);

/// Shows what a page has on it, and the page.
/// @param sheet nothing when it was not made, for want of a picture
void ShowSheet(Context& context, const std::vector<media::Still>& stills,
               const std::optional<media::Exported>& sheet);

/// Ends the answer: with a loss when a picture could not be had, or not whole.
ExitCode FinishStills(Context& context, const std::vector<media::Still>& stills);

} // namespace diskaccess

#endif // DISKACCESS_PICTURES_H
