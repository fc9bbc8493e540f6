// Programming, for runs that the log calls by another name.
#pragma once

#include "tavo/service/flash.h"

namespace tavo {

/// The public one. action: "restore".
ProgramResult programFlash(Device& device, const Image& image, const ProgramOptions& options, const Control& control,
                           const char* action);

}  // namespace tavo
