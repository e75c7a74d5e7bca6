#ifndef DISKACCESS_NAMES_H
#define DISKACCESS_NAMES_H

#include <cstdint>
#include <map>
#include <string>

#include "recordings/query.h"
#include "render/report.h"

namespace diskaccess {

/// The file of names that is read when none is given: names.json in the user's configuration folder. Empty where there is
/// none.
std::string UsualNamesFile();

/// What the user calls channels and event types, by a file of theirs.
class Names {
public:
    Names() = default;
    /// @param given a JSON document as names.schema.json describes it; empty: names.json in the user's configuration folder,
    ///        if it is there
    /// @throws Failure when it cannot be read, or is no such document
    explicit Names(const std::string& given);

    /// A channel, with its name in text.
    Value Channel(uint32_t channel) const;
    Value Channels(ChannelSet channels) const;
    /// Event types, with their names in text: "door, panic button, 0x20".
    Value EventTypes(uint64_t types) const;

    /// The same as text alone: the number where there is no name.
    std::string ChannelText(uint32_t channel) const;
    std::string EventText(uint64_t types) const;

    /// The channels, and the event types, that have a name; none when nothing does.
    recordings::ChannelSet ChannelsNamed(const std::string& name) const;
    uint64_t EventTypesNamed(const std::string& name) const;

private:
    std::map<uint32_t, std::string> m_channels;
    std::map<uint64_t, std::string> m_eventTypes; ///< by type bit
};

} // namespace diskaccess

#endif // DISKACCESS_NAMES_H
