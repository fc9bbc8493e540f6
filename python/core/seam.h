// Which interfaces the service layer of this module finds: attached ones, or simulated ones.
#pragma once

#include <string>

namespace binding {

/// The functions of libtavo-sim take the place of the real ones, until this is called with an empty path.
/// @param library  file of libtavo-sim.so
/// Throws std::runtime_error: it cannot be loaded, or this process had the service layer before this module.
void useSimulated(const std::string& library);

}  // namespace binding
