#ifndef DISKACCESS_EVIDENCE_H
#define DISKACCESS_EVIDENCE_H

#include <functional>
#include <optional>
#include <string>

#include "cli/context.h"
#include "media/error.h"
#include "media/request.h"

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
Failure ToFailure(const media::Error& error);

/// Asks whether to go on, and shows how far work has come.
/// @param doing "exporting"
recordings::Watch InterruptibleWatch(Context& context, const std::string& doing);

/// Says that the source could not be hashed wholly, if so.
void NoteSourceDigest(const Context& context, const std::optional<media::AreaDigest>& digest);

} // namespace diskaccess

#endif // DISKACCESS_EVIDENCE_H
