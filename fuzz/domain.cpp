// The domain table as JSON: what is taken comes back the same from what would be shown of it.
#include <cstring>

#include "cli/commands/domainTable.h"
#include "fuzz/fuzz.h"
#include "tavo/service/domainFile.h"
#include "tavo/service/error.h"

namespace {

using Entries = std::vector<tavo::DomainEntry>;

std::optional<Entries> entriesIn(const std::string& content, std::optional<int> only) {
    const fuzz::MemoryFile file(content);
    try {
        return tavo::readDomainFile(file.path(), only);
    } catch (const tavo::Error& error) {
        HOLDS(error.problem == tavo::Problem::FileRefused && *error.what() != '\0' && !error.hint.empty());
        return {};
    }
}

bool isSame(const tavo::DomainEntry& a, const tavo::DomainEntry& b) {
    return a.index == b.index && a.hasKey == b.hasKey && std::memcmp(&a.address, &b.address, sizeof a.address) == 0;
}

void check(const Entries& entries, std::optional<int> only) {
    HOLDS(!entries.empty() && entries.size() <= (only ? 1U : 2U));
    cli::Json table = cli::Json::array();
    for (const auto& entry : entries) {
        HOLDS(entry.index <= 1 && (!only || entry.index == static_cast<unsigned>(*only)));
        HOLDS(!cli::domainText(entry.index, entry.address, true).empty());
        table.push_back(cli::domainJson(entry.index, entry.address, entry.hasKey));
    }
    const auto again = entriesIn(table.dump(), only);
    HOLDS(again && again->size() == entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) HOLDS(isSame((*again)[i], entries[i]));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string content(reinterpret_cast<const char*>(data), size);
    for (const std::optional<int> only : {std::optional<int>(), std::optional<int>(0), std::optional<int>(1)}) {
        if (const auto entries = entriesIn(content, only)) check(*entries, only);
    }
    return 0;
}
