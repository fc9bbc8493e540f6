// What was there before a change, as the commands tell of it.
#pragma once

#include <string>

#include "cli/output/report.h"

namespace cli {

inline constexpr const char* kNoBackupHelp = "keep no backup of what was there (see tavo-util restore)";

/// result.backup, and where it is; null and nothing for none.
inline void tellKept(Report& report, const std::string& file) {
    report.result["backup"] = file.empty() ? Json(nullptr) : Json(file);
    if (!file.empty()) report.note("what was there before is in " + file);
}

}  // namespace cli
