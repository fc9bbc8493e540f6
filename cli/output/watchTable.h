// The counters of a watched status as rows of text.
#pragma once

#include <string>
#include <vector>

#include "tavo/service/watch.h"

namespace cli {

struct TableStyle {
    int columns = 80;
    bool isUtf8 = false;  ///< bars instead of digits
};

/// Name of the device and what it says, how long it is watched, then a row for each counter: "*" when it has grown
/// since the last look, its change since then and since the start, the count, and its history as far as there is room.
std::vector<std::string> watchTable(const tavo::StatusHistory& history, const std::string& name,
                                    const TableStyle& style);

/// What came of it: how many looks, and what each counter that grew means.
std::vector<std::string> watchSummary(const tavo::StatusHistory& history);

/// The last changes of one counter, the newest at the right, against the largest of them: "." for none, "x" for a look
/// without an answer.
std::string sparkline(const tavo::StatusHistory& history, std::size_t counter, std::size_t width, bool isUtf8);

}  // namespace cli
