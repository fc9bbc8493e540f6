// The cable of a simulated interface: pulled and put back by its folder, from any process.
#pragma once

#include <string>

namespace sim {

/// How often the interface of that folder has been unplugged or plugged in; odd: it is unplugged. Costs
/// one system call where that never happened.
/// @param file  plugFile() of the folder
unsigned plugChanges(const std::string& file);

inline bool isPluggedIn(unsigned changes) {
    return changes % 2 == 0;
}

std::string plugFile(const std::string& folder);

/// Unplugs the interface of that folder or plugs it in; makes the folder when it is not there. Programs
/// that run on it see it at their next call. Throws std::runtime_error, naming file and remedy.
/// @return false when it was that way already
bool setPluggedIn(const std::string& folder, bool pluggedIn);

}  // namespace sim
