// Several devices side by side: one child process each, one row each, the worst exit code.
#pragma once

#include <string>

#include "cli/usage.h"

namespace cli {

/// True when the command line asks for more than one device, or for all of them.
bool wantsSeveral(const Invocation& invocation);

/// Runs the command on each of them. @return the exit code of the program.
int runSeveral(const Invocation& invocation, int argc, char** argv);

/// Puts a serial number in the place of each "{serial}".
std::string withSerial(std::string text, const std::string& serial);
bool hasSerialMark(const std::string& text);

}  // namespace cli
