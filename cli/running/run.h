// Runs a command on one device.
#pragma once

#include <functional>

#include "cli/arguments/usage.h"
#include "cli/running/session.h"

namespace cli {

/// Ends work in the one way that its failure says: nothing leaves this but an exit code.
Exit guarded(Session& session, const std::function<Exit()>& work);

/// Finds the device and runs the command on it, in the thread that calls. Throws what they throw.
Exit runCommand(Session& session, const Invocation& invocation);

/// What is to be asked before the command runs; empty: nothing.
std::string questionOf(const Invocation& invocation);

/// Puts the serial number, as far as it may stand in a file name, in the place of each "{serial}".
std::string withSerial(std::string text, const std::string& serial);
bool hasSerialMark(const std::string& text);

}  // namespace cli
