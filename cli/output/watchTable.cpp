#include "cli/output/watchTable.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "tavo/service/neuron.h"
#include "tavo/service/text.h"

namespace cli {
namespace {

constexpr const char* kBars[] = {".", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char* kDigits[] = {".", "1", "2", "3", "4", "5", "6", "7", "8"};
constexpr std::uint32_t kSteps = std::size(kBars) - 1;

constexpr int kOtherColumns = 52;  // without the history, with the column at the end that stays free
constexpr int kLongestHistory = 60;

const char* level(std::uint32_t change, std::uint32_t largest, bool isUtf8) {
    const std::uint32_t step = (change * kSteps + largest - 1) / largest;
    return isUtf8 ? kBars[step] : kDigits[step];
}

std::string row(const char* mark, const std::string& label, const std::string& last, const std::string& total,
                const std::string& count, const std::string& history) {
    char text[128];
    std::snprintf(text, sizeof text, "%s %-25s %6s %8s %6s", mark, label.c_str(), last.c_str(), total.c_str(),
                  count.c_str());
    return text + (history.empty() ? "" : "  " + history);
}

std::string signedText(std::uint32_t change) {
    return change == 0 ? "0" : "+" + std::to_string(change);
}

std::string stateText(const tavo::StatusLook& look) {
    if (!look.status) return "no answer (" + look.why + ")";
    const NeuronState& state = *look.status;
    return tavo::named(tavo::nodeStateName(state.nodeState), state.nodeState) + ", last reset " +
           tavo::named(tavo::resetCauseName(state.resetCause), state.resetCause) + ", " +
           tavo::named(tavo::errorLogName(state.errorLog), state.errorLog);
}

std::string lengthText(const tavo::StatusHistory& history) {
    std::string text =
        tavo::countText(history.looks.size(), "look") + " in " + tavo::secondsText(history.looks.back().seconds);
    if (history.unanswered() != 0) text += ", " + std::to_string(history.unanswered()) + " without an answer";
    if (history.timesCleared() != 0) text += ", counters set back " + tavo::countText(history.timesCleared(), "time");
    return text;
}

}  // namespace

std::string sparkline(const tavo::StatusHistory& history, std::size_t counter, std::size_t width, bool isUtf8) {
    const auto shown = std::span(history.looks).last(std::min(width, history.looks.size()));
    std::uint32_t largest = 1;
    for (const tavo::StatusLook& look : shown) largest = std::max(largest, look.change[counter]);
    std::string text;
    for (const tavo::StatusLook& look : shown) text += look.status ? level(look.change[counter], largest, isUtf8) : "x";
    return text;
}

std::vector<std::string> watchTable(const tavo::StatusHistory& history, const std::string& name,
                                    const TableStyle& style) {
    const tavo::StatusLook& last = history.looks.back();
    const tavo::StatusLook* answered = history.lastAnswered();
    const auto width = static_cast<std::size_t>(std::clamp(style.columns - kOtherColumns, 0, kLongestHistory));
    std::vector<std::string> rows{name + ": " + stateText(last), lengthText(history),
                                  row(" ", "", "last", "start", "count", width < 7 ? "" : "history")};
    for (std::size_t i = 0; i < tavo::kStatusCounters; ++i) {
        const std::string change = last.status ? signedText(last.change[i]) : "-";
        const std::string count = answered == nullptr ? "-" : std::to_string(tavo::countsOf(*answered->status)[i]);
        rows.push_back(row(last.change[i] == 0 ? " " : "*", tavo::statusCounter(i).label, change,
                           signedText(history.total[i]), count, sparkline(history, i, width, style.isUtf8)));
    }
    return rows;
}

std::vector<std::string> watchSummary(const tavo::StatusHistory& history) {
    std::vector<std::string> lines{lengthText(history)};
    for (std::size_t i = 0; i < tavo::kStatusCounters; ++i) {
        if (history.total[i] == 0) continue;
        lines.push_back(std::string(tavo::statusCounter(i).label) + " " + signedText(history.total[i]) + ": " +
                        tavo::statusCounter(i).meaning);
    }
    if (lines.size() == 1 && history.lastAnswered() != nullptr) lines.emplace_back("no counter has grown");
    return lines;
}

}  // namespace cli
