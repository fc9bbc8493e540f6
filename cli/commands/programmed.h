// A programming as the commands tell of it.
#pragma once

#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {

/// What was done, line and result.
void tellProgrammed(Session& session, const tavo::ProgramResult& done);

}  // namespace cli
