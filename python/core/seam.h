// Which interfaces the service layer of this module finds: attached ones, or simulated ones.
#pragma once

#include <string>

namespace binding {

/// The functions of a simulated interface take the place of the real ones, until this is called with an empty path.
/// @param library  file of the module that has them
/// Throws std::runtime_error: it cannot be loaded, another one is preloaded, or this process had the service layer
/// before this module.
void useSimulated(const std::string& library);

}  // namespace binding
