// Runs a program on the simulated interface: what tavo-sim and `tavo-util -d sim:DIR` share. Nothing
// here needs libtavo-sim at link time.
#pragma once

#include <string>

namespace sim {

/// Puts libtavo-sim.so in front of LD_PRELOAD and the description ("DIR,size=4M") into TAVO_SIM, its
/// folder made absolute, for programs that this process executes from now on. The library is looked
/// for beside the running program and in the library folder next to that one's.
/// Throws std::invalid_argument for a description that parseOptions refuses, std::runtime_error, with
/// what to do, when the library is not found or cannot be preloaded.
void preparePreload(const std::string& description);

/// True in a program that was started with the library preloaded.
bool isPreloaded();

}  // namespace sim
