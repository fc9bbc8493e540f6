// What this host remembers while a flash is being changed; a host that cannot is warned of, not refused.
#pragma once

#include <string>

#include "service/operation.h"

namespace tavo {

/// Before the first step that changes the flash. image and backup are file names; empty: none. The backup of
/// an earlier run that was cut off is kept in mind: that one holds what was there before.
void rememberChange(Operation& op, const std::string& image, const std::string& sha256, const std::string& backup);

/// The flash holds what was wanted.
void forgetChange(Operation& op);

}  // namespace tavo
