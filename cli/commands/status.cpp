#include <algorithm>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/interruptedRun.h"
#include "cli/commands/neuronNames.h"
#include "cli/commands/statusWatch.h"
#include "cli/running/session.h"
#include "tavo/service/history.h"
#include "tavo/service/neuron.h"
#include "tavo/service/text.h"

namespace cli {
namespace {

struct Options {
    std::string seconds;  // empty: one look
    std::optional<int> count;
    std::string html;
};

void tell(Report& report, std::string label, const std::string& value) {
    constexpr std::size_t kColumn = 27;
    std::replace(label.begin(), label.end(), '_', ' ');
    label += ':';
    report.line(label + std::string(kColumn - label.size(), ' ') + value);
}

void showOnce(Session& session) {
    Report& report = session.report;
    const NeuronState state = tavo::readStatus(session.device(), session.control());
    for (const StatusCode& code : kStatusCodes) {
        const std::uint8_t raw = state.*code.raw;
        report.result[code.key] = namedJson(code.name(raw), raw);
        tell(report, code.key, tavo::named(code.name(raw), raw));
    }
    report.result["firmware_version"] = state.versionNumber;
    report.result["model_number"] = state.modelNumber;
    report.result["counters"] = countsJson(tavo::countsOf(state));
    tell(report, "firmware_version", std::to_string(state.versionNumber));
    tell(report, "model_number", std::to_string(state.modelNumber));
    for (std::size_t i = 0; i < tavo::kStatusCounters; ++i) {
        tell(report, tavo::statusCounter(i).label, std::to_string(tavo::countsOf(state)[i]));
    }
}

void status(Session& session, const Options& options) {
    // Before the Neuron is asked: with half an image it does not answer.
    tellInterrupted(session.report, session.deviceName(), tavo::interruptedRun(session.device().description()));
    const bool isWatch = !options.seconds.empty() || options.count;
    if (!options.html.empty() && !isWatch)
        throw Failure{Exit::Usage,
                      "--html needs --watch",
                      "tavo-util status --watch --html " + tavo::shellWord(options.html),
                      {}};
    if (!isWatch) return showOnce(session);
    session.openPage(options.html, "status --watch");
    tavo::WatchOptions watch;
    if (!options.seconds.empty()) watch.intervalMs = static_cast<unsigned>(std::stod(options.seconds) * 1000);
    watch.looks = static_cast<std::size_t>(options.count.value_or(0));
    watchStatus(session, watch);
}

}  // namespace

Run declareStatus(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.seconds("--watch{2}", options->seconds, 0.2, 3600,
                      "look again every 2 seconds, or every --watch=SECONDS, until Ctrl-C; shows what the counters do");
    arguments.number("--count", "N", options->count, 1, 1000000, "watch, and end after that many looks");
    arguments.page(options->html);
    return [options](Session& session) { status(session, *options); };
}

}  // namespace cli
