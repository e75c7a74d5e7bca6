#ifndef FUZZ_PROGRAM_VISITOR_H
#define FUZZ_PROGRAM_VISITOR_H

#include "program/program_call.h"

namespace fuzzing {

/// Asks the viewer all that its page asks, has it export something, and ends it as Ctrl-C does.
void VisitViewer(const ProgramCall::Output& output, const ProgramCall::Stopped& stopped);

} // namespace fuzzing

#endif // FUZZ_PROGRAM_VISITOR_H
