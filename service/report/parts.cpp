#include "service/report/parts.h"

#include <algorithm>

#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr std::size_t kListed = 200;
constexpr std::size_t kUnfolded = 12;

}  // namespace

Markup row(std::initializer_list<Markup> cells) {
    Markup all;
    for (const Markup& each : cells) all += each;
    return Markup::tag("tr", all);
}

Markup cell(const std::string& text) {
    return Markup::tag("td", text);
}

Markup code(const std::string& text) {
    return Markup::tag("td", text, "class=\"code\"");
}

Markup figure(const std::string& text, bool isCode) {
    return Markup::tag("td", text, isCode ? "class=\"code size\"" : "class=\"size\"");
}

Markup section(const char* title, const Markup& inner) {
    if (inner.isEmpty()) return {};
    return Markup::tag("section", Markup::tag("h2", title) + inner) + Markup::exactly("\n");
}

Markup table(const std::vector<const char*>& heads, const std::vector<Markup>& rows) {
    if (rows.empty()) return {};
    Markup head;
    for (const char* text : heads) head += Markup::tag("th", text, "scope=\"col\"");
    Markup body;
    for (std::size_t i = 0; i < std::min(rows.size(), kListed); ++i) body += rows[i] + Markup::exactly("\n");
    Markup all = Markup::tag("table", Markup::tag("thead", Markup::tag("tr", head)) + Markup::tag("tbody", body));
    if (rows.size() > kListed) all += Markup::tag("p", "and " + std::to_string(rows.size() - kListed) + " more");
    return all;
}

Markup foldedTable(const std::vector<const char*>& heads, const std::vector<Markup>& rows, const std::string& noun) {
    const Markup all = table(heads, rows);
    if (rows.size() <= kUnfolded) return all;
    return Markup::tag("details", Markup::tag("summary", countText(rows.size(), noun)) + all);
}

}  // namespace tavo
