#ifndef DISKACCESS_AMOUNTS_H
#define DISKACCESS_AMOUNTS_H

/// @file amounts.h
/// Numbers as people read them.

#include <cstdint>
#include <string>

#include "render/report.h"

namespace diskaccess {

/// "1.5 MiB"
std::string BytesText(uint64_t bytes);
/// "1:02:03", "2:03"
std::string DurationText(uint64_t seconds);
/// "0,2-4"; "none" for the empty set
std::string ChannelSetText(ChannelSet channels);
/// "2026-11-20"
std::string DateText(const Date& date);

} // namespace diskaccess

#endif // DISKACCESS_AMOUNTS_H
