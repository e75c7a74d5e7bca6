#ifndef DISKACCESS_IDENTITY_H
#define DISKACCESS_IDENTITY_H

#include <optional>

#include "cli/context.h"
#include "render/report.h"

namespace diskaccess {

/// What a partition is.
struct Identity {
    Facts facts;
    std::optional<Table> channels; ///< how each is encoded, where a block tells
};

Identity IdentityOf(Context& context);

} // namespace diskaccess

#endif // DISKACCESS_IDENTITY_H
