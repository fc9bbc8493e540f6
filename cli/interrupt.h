// Ctrl-C: a signal only sets a token; the operation stops where it can release everything.
#pragma once

#include "tavo/service/operation.h"

namespace cli {

/// Thrown where an operation may stop. Not a std::exception: the library lets it pass after its
/// releases and does not take it for a bad image file.
struct Interrupted {};

/// From now on SIGINT, SIGTERM and SIGHUP set the token instead of ending the process.
void noteSignals();
/// The token of the process: what stops one device's work stops all.
const tavo::CancelToken& interruptToken();
bool isInterruptNoted();
void throwIfInterrupted();  ///< throws Interrupted

}  // namespace cli
