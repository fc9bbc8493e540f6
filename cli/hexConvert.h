// Any valid Intel HEX to the kind that the library reads.
#pragma once

#include <string>
#include <vector>

#include "cli/files.h"

namespace cli {

/// Rewrites path into out: line feeds, upper case, record types 00, 01 and 04 only, every byte at its
/// own address. Reads strictly; throws Failure (exit 7, or 8 for the file system) at the first fault.
/// @return what was changed, one sentence each; empty when the text is the same.
std::vector<std::string> convertHex(const std::string& path, const Descriptor& out, const std::string& outName);

}  // namespace cli
