// status --watch
#pragma once

#include "cli/running/session.h"
#include "tavo/service/watch.h"

namespace cli {

/// Shows the counters until Ctrl-C, or as many looks as the options say: drawn anew in their place on a terminal, a
/// block of lines a look elsewhere, with --json an object a line.
void watchStatus(Session& session, tavo::WatchOptions options);

}  // namespace cli
