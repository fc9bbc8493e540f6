// What pages are put together from.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "service/report/html.h"
#include "tavo/service/watch.h"

namespace tavo {

Markup row(std::initializer_list<Markup> cells);
Markup cell(const std::string& text);
Markup code(const std::string& text);
/// Addresses and amounts, which stay in one line.
Markup figure(const std::string& text, bool isCode = false);

/// Nothing without rows; tells how many it leaves out.
Markup table(const std::vector<const char*>& heads, const std::vector<Markup>& rows);
/// The same, a long one below a line that opens it.
Markup foldedTable(const std::vector<const char*>& heads, const std::vector<Markup>& rows, const std::string& noun);
/// A part of the page with its heading; nothing without inner.
Markup section(const char* title, const Markup& inner);

/// What the counters did while a status was watched.
Markup watchSection(const StatusHistory& history);

}  // namespace tavo
