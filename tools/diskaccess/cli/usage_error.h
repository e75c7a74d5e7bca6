#ifndef DISKACCESS_USAGE_ERROR_H
#define DISKACCESS_USAGE_ERROR_H

#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace diskaccess {

/// What is wrong with a command line, and what there is instead, in one line.
/// @param program what refused the line
std::string UsageErrorText(const CLI::App& program, const CLI::ParseError& error);

/// An option was given an empty value, as scripts do that leave a variable unset. Taken for the option left out, it would
/// silently ask for everything.
/// @throws WrongUse that names it
void RefuseEmptyValues(const CLI::App& command);

} // namespace diskaccess

#endif // DISKACCESS_USAGE_ERROR_H
