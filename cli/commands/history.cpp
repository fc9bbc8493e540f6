#include "tavo/service/history.h"

#include <algorithm>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/running/session.h"

namespace cli {
namespace {

constexpr std::size_t kShownDigits = 12;

Json json(const tavo::HistoryEntry& entry) {
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    return {{"time", entry.time},
            {"action", entry.action},
            {"part", entry.part},
            {"result", entry.result},
            {"serial", orNull(entry.serial)},
            {"path", orNull(entry.path)},
            {"neuron_id", orNull(entry.neuronId)},
            {"image", orNull(entry.image)},
            {"sha256", orNull(entry.sha256)},
            {"serial_after", orNull(entry.serialAfter)},
            {"backup", orNull(entry.backup)},
            {"state", orNull(entry.state)},
            {"error", orNull(entry.error)},
            {"seconds", entry.seconds},
            {"tool", orNull(entry.tool)}};
}

std::string text(const tavo::HistoryEntry& entry) {
    const bool isOpen = entry.result == "started";
    std::string line = tavo::localTimeText(entry.time) + "  " + (entry.serial.empty() ? entry.path : entry.serial) +
                       "  " + entry.action + (entry.action == "restore" ? " " + entry.part : "") + "  " +
                       (isOpen ? "not finished: cut off, or still running" : entry.result);
    if (!entry.error.empty()) line += ": " + entry.error + " (" + entry.state + ")";
    if (!entry.image.empty()) line += "  " + entry.image;
    if (!entry.sha256.empty()) line += "  sha256 " + entry.sha256.substr(0, kShownDigits);
    if (!entry.serialAfter.empty()) line += "  serial number " + entry.serialAfter;
    if (!entry.backup.empty()) line += "  before: " + entry.backup;
    return line;
}

void history(Session& session, const std::optional<int>& last) {
    const tavo::History log = tavo::history(session.options.devices);
    const std::size_t count = log.entries.size();
    session.report.result["entries"] = Json::array();
    for (std::size_t i = last ? count - std::min<std::size_t>(count, *last) : 0; i < count; ++i) {
        session.report.result["entries"].push_back(json(log.entries[i]));
        session.report.line(text(log.entries[i]));
    }
    if (count == 0) session.report.note("nothing is remembered");
    for (const auto& fault : log.faults) session.report.warning(fault);
}

}  // namespace

Run declareHistory(Arguments& arguments) {
    auto last = std::make_shared<std::optional<int>>();
    arguments.number("--last", "N", *last, 1, 1000000, "only the last N runs");
    return [last](Session& session) { history(session, *last); };
}

}  // namespace cli
