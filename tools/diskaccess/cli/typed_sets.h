#ifndef DISKACCESS_TYPED_SETS_H
#define DISKACCESS_TYPED_SETS_H

/// @file typed_sets.h
/// Sets of channels and of event types, as users type them: numbers, or the names that they gave these.

#include <optional>
#include <string>

#include "cli/names.h"
#include "recordings/query.h"

namespace diskaccess {

/// Channels: "all", or numbers, ranges and names, like "0,2-4,door".
/// @throws WrongUse
recordings::ChannelSet ReadChannels(const std::string& text, const Names& names);

/// Event types: "all", or masks and names, like "0x5,door".
/// @param option that the text was given to
/// @return nothing when the text is empty
/// @throws WrongUse
std::optional<recordings::EventMask> ReadEventTypes(const std::string& text, const std::string& option,
                                                    const Names& names);

} // namespace diskaccess

#endif // DISKACCESS_TYPED_SETS_H
