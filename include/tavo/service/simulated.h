// Simulated interfaces in place of the attached ones: how a program is started on them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tavo/export.h"

namespace tavo {

/// True for "sim:DIR[,OPTIONS]". Throws Error (BadArgument) for what names no device.
TAVO_API bool isSimulated(const std::string& spec);

/// Names and values of the environment variables that a program has to be started with to see these simulated
/// interfaces, and no others. They are put in front of what this process has in them; nothing is set here.
/// Throws Error: BadArgument for a description or a folder named twice, NoPermission for a folder that this
/// user may not read and write, FileSystem for a relative one when the current folder has gone, Internal when
/// the simulated interface is not installed.
TAVO_API std::vector<std::pair<std::string, std::string>> simulatedEnvironment(const std::vector<std::string>& specs);

/// True when this process sees simulated interfaces only. The dynamic linker merely warns of a library that it
/// cannot load and goes on without it: a program started with simulatedEnvironment asks this first, or it
/// works on whatever is plugged in.
TAVO_API bool isOnSimulatedInterfaces();

}  // namespace tavo
