#ifndef DISKACCESS_EVIDENCE_H
#define DISKACCESS_EVIDENCE_H

#include <functional>
#include <optional>
#include <string>

#include "cli/context.h"
#include "cli/failure.h"
#include "media/error.h"
#include "media/request.h"
#include "recordings/error.h"
#include "render/report.h"

namespace diskaccess {

/// What files are made from, by whom and with what, as the options and the source tell.
media::Provenance ProvenanceOf(Context& context);

/// @throws WrongUse when --output can be no file's name
void CheckOutputName(const Options& options);

/// Fills in what the options of all commands that write files say.
void FillRequest(Context& context, media::Request& request);

/// The key that is to sign, if one is.
/// @throws Failure
std::optional<media::SigningKey> ReadSigningKey(const Options& options);

/// A failure of media/ as the program reports it: with what to do about it.
/// @param output what names the output: an option, or "name" where there are several
Failure ToFailure(const media::Error& error, const std::string& output = "--output");

/// Does work of media/, and reports its errors as the program does.
/// @param interrupted what is said when the user has ended it
/// @return what @p work returns
/// @throws Failure
template <typename Work>
auto ReportingErrors(const char* interrupted, const Work& work) {
    try {
        return work();
    } catch (const media::Error& error) {
        throw ToFailure(error);
    } catch (const recordings::Error& error) {
        if (error.Kind() == recordings::ErrorKind::Cancelled) {
            throw Failure(interrupted);
        }
        throw;
    }
}

/// What is said where an end leaves nothing.
constexpr const char* kNothingKept = "interrupted; nothing was kept";

/// The path of a file that was made; nothing where there is none.
Value PathOrNothing(const std::string& path);

/// Asks whether to go on, and shows how far work has come.
/// @param doing "exporting"
recordings::Watch InterruptibleWatch(Context& context, const std::string& doing);

/// Says that the source could not be hashed wholly, if so.
void NoteSourceDigest(const Context& context, const std::optional<media::AreaDigest>& digest);

} // namespace diskaccess

#endif // DISKACCESS_EVIDENCE_H
