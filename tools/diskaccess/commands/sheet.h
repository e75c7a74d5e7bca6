#ifndef DISKACCESS_SHEET_H
#define DISKACCESS_SHEET_H

#include "cli/context.h"

namespace diskaccess {

/// Looks at the options of a sheet.
/// @throws WrongUse
void CheckSheet(const Options& options);

/// Draws the pictures of a time range on one page: a row a camera, a column a time.
/// @throws Failure, media::Error, recordings::Error (Cancelled)
ExitCode TakeSheet(Context& context);

} // namespace diskaccess

#endif // DISKACCESS_SHEET_H
