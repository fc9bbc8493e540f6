#include "cli/commands/statusWatch.h"

#include <chrono>

#include "cli/commands/neuronNames.h"
#include "cli/output/watchTable.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

constexpr int kPipeColumns = 80;

Json countersJson(const std::optional<NeuronState>& state) {
    return state ? countsJson(tavo::countsOf(*state)) : Json(nullptr);
}

std::string timeOf(const tavo::StatusHistory& history, const tavo::StatusLook& look) {
    using Duration = std::chrono::system_clock::duration;
    const std::chrono::duration<double> since(look.seconds);
    return tavo::timeText(history.started + std::chrono::duration_cast<Duration>(since));
}

Json lookJson(const tavo::StatusHistory& history, const Json& device) {
    const tavo::StatusLook& look = history.looks.back();
    Json json{{"look", history.looks.size()},      {"device", device},
              {"time", timeOf(history, look)},     {"seconds", look.seconds},
              {"answer", look.status.has_value()}, {"why", look.status ? Json(nullptr) : Json(look.why)}};
    for (const StatusCode& code : kStatusCodes) {
        const std::uint8_t raw = look.status ? *look.status.*code.raw : 0;
        json[code.key] = look.status ? namedJson(code.name(raw), raw) : Json(nullptr);
    }
    json["counters"] = countersJson(look.status);
    json["change"] = look.status ? countsJson(look.change) : Json(nullptr);
    json["since_start"] = countsJson(history.total);
    json["cleared"] = look.cleared;
    return json;
}

Json summaryJson(const tavo::StatusHistory& history) {
    const tavo::StatusLook* last = history.lastAnswered();
    return {{"started", tavo::timeText(history.started)},
            {"seconds", history.looks.back().seconds},
            {"looks", history.looks.size()},
            {"unanswered", history.unanswered()},
            {"cleared", history.timesCleared()},
            {"counters", last == nullptr ? Json(nullptr) : countersJson(last->status)},
            {"since_start", countsJson(history.total)}};
}

bool isDrawnInPlace() {
    return display().hasRows() && console().showsResults();
}

std::vector<std::string> table(const Session& session, const tavo::StatusHistory& history) {
    const bool inPlace = isDrawnInPlace();
    const TableStyle style{inPlace ? console().width() : kPipeColumns, inPlace && console().showsUtf8()};
    return watchTable(history, session.deviceName(), style);
}

void show(Session& session, const tavo::StatusHistory& history) {
    if (session.report.isJson()) return session.report.atOnce({lookJson(history, session.report.device).dump()});
    std::vector<std::string> rows = table(session, history);
    if (isDrawnInPlace()) return session.progress.show(std::move(rows));
    rows.emplace_back();  // between two looks
    session.report.atOnce(rows);
}

void tellOutcome(Session& session, const tavo::StatusHistory& history) {
    if (history.looks.empty()) return;
    session.report.result = summaryJson(history);
    if (session.hasPage()) session.job.watch = history;
    session.job.summary = watchSummary(history).front();
    std::vector<std::string> lines = watchSummary(history);
    if (isDrawnInPlace()) {  // what stood there stays; it begins with how long that was
        const std::vector<std::string> rows = table(session, history);
        lines.erase(lines.begin());
        lines.insert(lines.begin(), rows.begin(), rows.end());
    }
    for (const std::string& line : lines) session.report.line(line);
}

}  // namespace

void watchStatus(Session& session, tavo::WatchOptions options) {
    tavo::StatusHistory history;
    options.each = [&](const tavo::StatusHistory& sofar) { show(session, sofar); };
    try {
        tavo::watchStatus(session.device(), history, options, session.control());
    } catch (const tavo::Error&) {
        session.progress.show({});
        tellOutcome(session, history);
        throw;
    }
    session.progress.show({});
    tellOutcome(session, history);
}

}  // namespace cli
