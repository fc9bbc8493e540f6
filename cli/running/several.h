// Several devices side by side: one thread each, one row each, the worst exit code.
#pragma once

#include "cli/arguments/usage.h"
#include "cli/running/session.h"

namespace cli {

/// True when the command line asks for more than one device, or for all of them.
bool wantsSeveral(const Invocation& invocation);

/// Runs the command on each of them; what happens to one does not end the others.
/// @param session  of the whole: it asks the question, nothing else
/// @return the exit code of the program.
Exit runSeveral(Session& session, const Invocation& invocation, int argc, char** argv);

}  // namespace cli
