#include <algorithm>

#include "service/report/parts.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr std::size_t kBars = 120;  // as many as can be told apart on a narrow page
constexpr int kHeight = 40;         // of a chart, in its own units

/// Looks side by side that share a bar.
struct Bar {
    Counts change{};
    bool isUnanswered = false;
};

std::size_t looksPerBar(const StatusHistory& history) {
    return (history.looks.size() + kBars - 1) / kBars;
}

std::vector<Bar> barsOf(const StatusHistory& history) {
    const std::size_t together = looksPerBar(history);
    std::vector<Bar> bars((history.looks.size() + together - 1) / together);
    for (std::size_t i = 0; i < history.looks.size(); ++i) {
        const StatusLook& look = history.looks[i];
        Bar& bar = bars[i / together];
        bar.isUnanswered = bar.isUnanswered || !look.status;
        for (std::size_t k = 0; k < kStatusCounters; ++k) bar.change[k] += look.change[k];
    }
    return bars;
}

Markup rectangle(std::size_t x, int height, const char* style) {
    return Markup::tag("rect", Markup(),
                       "x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(kHeight - height) +
                           "\" width=\"0.85\" height=\"" + std::to_string(height) + "\" class=\"" + style + "\"");
}

Markup chart(const std::vector<Bar>& bars, std::size_t counter) {
    std::uint32_t highest = 1;
    for (const Bar& bar : bars) highest = std::max(highest, bar.change[counter]);
    Markup inner;
    for (std::size_t i = 0; i < bars.size(); ++i) {
        const std::uint64_t change = bars[i].change[counter];
        if (bars[i].isUnanswered) inner += rectangle(i, kHeight, "miss");
        if (change > 0) inner += rectangle(i, std::max(2, static_cast<int>(change * kHeight / highest)), "grown");
    }
    const std::string box =
        "0 0 " + std::to_string(std::max<std::size_t>(bars.size(), 60)) + " " + std::to_string(kHeight);
    return Markup::tag("svg", inner,
                       "viewBox=\"" + box +
                           "\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"changes over time, "
                           "at most " +
                           std::to_string(highest) + " at once\"");
}

std::string timeOf(const StatusHistory& history, const StatusLook& look) {
    const auto since = std::chrono::duration<double>(look.seconds);
    return timeText(history.started + std::chrono::duration_cast<std::chrono::system_clock::duration>(since));
}

std::string changesText(const StatusLook& look) {
    std::string text;
    for (std::size_t k = 0; k < kStatusCounters; ++k) {
        if (look.change[k] == 0) continue;
        text +=
            (text.empty() ? "" : ", ") + std::string(statusCounter(k).label) + " +" + std::to_string(look.change[k]);
    }
    return text;
}

/// The looks in which something happened.
std::vector<Markup> events(const StatusHistory& history) {
    std::vector<Markup> rows;
    for (const StatusLook& look : history.looks) {
        std::string text = look.status ? changesText(look) : "no answer: " + look.why;
        if (look.cleared) text = "counters set back" + (text.empty() ? "" : "; " + text);
        if (!text.empty()) rows.push_back(row({figure(timeOf(history, look)), cell(text)}));
    }
    return rows;
}

std::string lengthText(const StatusHistory& history) {
    std::string text = countText(history.looks.size(), "look") + " in " + secondsText(history.looks.back().seconds);
    if (history.unanswered() > 0) text += ", " + std::to_string(history.unanswered()) + " without an answer";
    if (looksPerBar(history) > 1) text += "; a bar is " + countText(looksPerBar(history), "look");
    return text;
}

}  // namespace

Markup watchSection(const StatusHistory& history) {
    if (history.looks.empty()) return {};
    const std::vector<Bar> bars = barsOf(history);
    const StatusLook* last = history.lastAnswered();
    std::vector<Markup> rows;
    for (std::size_t k = 0; k < kStatusCounters; ++k) {
        const std::string now = last == nullptr ? "" : std::to_string(countsOf(*last->status)[k]);
        const Markup name = Markup::tag("p", statusCounter(k).label) +
                            Markup::tag("p", statusCounter(k).meaning, "class=\"faint\"") + chart(bars, k);
        rows.push_back(
            row({Markup::tag("td", name), figure((history.total[k] > 0 ? "+" : "") + std::to_string(history.total[k])),
                 figure(now)}));
    }
    return section("Counters", Markup::tag("p", lengthText(history), "class=\"faint\"") +
                                   table({"Counter", "Change", "Count"}, rows)) +
           section("What happened when", foldedTable({"Time", "Change"}, events(history), "change"));
}

}  // namespace tavo
