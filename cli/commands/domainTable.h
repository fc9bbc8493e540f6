// The domain table as the commands show it.
#pragma once

#include <string>

#include "cli/output/report.h"
#include "tavo/service/domainFile.h"

namespace cli {

/// @param showKey  false: the key is null
Json domainJson(unsigned index, const LonAddress& entry, bool showKey);
/// "0  domain 4A            subnet   1  node  10  key hidden"
std::string domainText(unsigned index, const LonAddress& entry, bool showKey);

}  // namespace cli
