// The domain table as JSON: the result of `domain read`, and what `domain write` takes.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/output/report.h"
#include "tavo/service/neuron.h"

namespace cli {

/// @param showKey  false: the key is null
Json domainJson(unsigned index, const LonAddress& entry, bool showKey);
/// "0  domain 4A            subnet   1  node  10  key hidden"
std::string domainText(unsigned index, const LonAddress& entry, bool showKey);

struct DomainEntry {
    unsigned index = 0;
    LonAddress address;
    bool hasKey = false;  ///< false: the key that is there stays
};

/// Reads what `domain read` gives with --json, or its "domains", or one of those.
/// @param only  takes one entry: the file's for that index, or its single one
/// Throws tavo::Error (FileRefused or FileSystem), naming the entry and the range.
std::vector<DomainEntry> readDomainFile(const std::string& path, std::optional<int> only);

}  // namespace cli
