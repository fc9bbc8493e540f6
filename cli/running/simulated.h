// -d sim:DIR: this program runs itself again with simulated interfaces in place of the hardware.
#pragma once

#include <string>
#include <vector>

namespace cli {

/// Does not return when the simulated interfaces have to be loaded first: the program starts again.
/// Returns at once when it runs on them already, or none is asked for. Throws Failure or tavo::Error.
/// @param specs  what -d says
void startOnSimulatedInterfaces(const std::vector<std::string>& specs, char** argv);

}  // namespace cli
