// Runs a program on the simulated interface: what tavo-sim and `tavo-util -d sim:DIR` share. Nothing
// here needs libtavo-sim at link time.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Names and values of environment variables.
using Environment = std::vector<std::pair<std::string, std::string>>;

/// libtavo-sim.so in front of LD_PRELOAD and the descriptions ("DIR,size=4M") in TAVO_SIM, their folders made
/// absolute: a program started with these sees one attached interface for each, device numbers in that order.
/// The library is looked for beside the running program, beside the library this is part of, and where the two are
/// installed.
/// Throws std::invalid_argument for a description that parseOptions refuses and for a folder named twice,
/// std::runtime_error, with what to do, when the library is not found or cannot be preloaded.
Environment preloadEnvironment(const std::vector<std::string>& descriptions);
/// Sets them in this process, for programs that it executes from now on.
void preparePreload(const std::vector<std::string>& descriptions);
void preparePreload(const std::string& description);

/// The port path that the interface of that description has in CyGetPortPath: "sim:" and the absolute folder
/// without links. Throws std::invalid_argument for a description that parseOptions refuses.
std::string portPathOf(const std::string& description);

/// True in a program that was started with the library preloaded.
bool isPreloaded();

}  // namespace sim
