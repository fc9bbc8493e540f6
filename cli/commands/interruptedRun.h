// A run that was cut off, as the commands tell of it.
#pragma once

#include <optional>

#include "cli/output/report.h"
#include "tavo/service/history.h"

namespace cli {

/// {"image", "sha256", "backup", "started"}, null for what is not known; null for none.
Json interruptedJson(const std::optional<tavo::InterruptedRun>& run);

/// result.interrupted, a warning, and the state of the flash. device: "00001234 at 1-4.2".
void tellInterrupted(Report& report, const std::string& device, const std::optional<tavo::InterruptedRun>& run);

}  // namespace cli
