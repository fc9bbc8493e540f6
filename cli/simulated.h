// -d sim:DIR: this program runs itself again with the simulated interface in place of the hardware.
#pragma once

#include <string>

namespace cli {

/// Does not return when the simulated interface has to be preloaded first: the program starts again.
/// Returns at once when it runs on it already. Throws Failure when it cannot be found.
/// @param description  the text after "sim:"
void startOnSimulatedInterface(const std::string& description, char** argv);

}  // namespace cli
