// Ctrl-C: a signal only sets a token; the operation stops where it can release everything.
#pragma once

#include "tavo/service/operation.h"

namespace cli {

/// From now on SIGINT, SIGTERM and SIGHUP set the token instead of ending the process.
void noteSignals();
/// The token of the process: what stops one device's work stops all.
const tavo::CancelToken& interruptToken();
bool isInterruptNoted();

}  // namespace cli
