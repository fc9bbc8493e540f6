// Ctrl-C: a signal only leaves a note; the operation stops where it can release everything.
#pragma once

namespace cli {

/// Thrown where an operation may stop. Not a std::exception: the library lets it pass after its
/// releases and does not take it for a bad image file.
struct Interrupted {};

/// From now on SIGINT, SIGTERM and SIGHUP are noted instead of ending the process.
void noteSignals();
bool isInterruptNoted();
void throwIfInterrupted();  ///< throws Interrupted

}  // namespace cli
