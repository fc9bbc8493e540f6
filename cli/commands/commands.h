// One declaring function a command; see command.h.
#pragma once

#include "cli/command.h"

namespace cli {

Run declareList(Arguments& arguments);
Run declareCheck(Arguments& arguments);
Run declareProgram(Arguments& arguments);
Run declareErase(Arguments& arguments);

}  // namespace cli
