#include "tavo/service/doctor.h"

#include <memory>

#include "cli/commands/commands.h"
#include "cli/running/session.h"

namespace cli {
namespace {

constexpr const char* kMarks[] = {"ok    ", "FAIL  ", "-     "};  // in the order of tavo::Verdict

std::string rowText(const tavo::Check& check) {
    std::string text = kMarks[static_cast<std::size_t>(check.verdict)] + std::string(check.item);
    if (!check.text.empty()) text += ": " + check.text;
    if (!check.hint.empty()) text += " - " + check.hint;
    return text;
}

void tell(Report& report, tavo::Check check) {
    check.hint = report.pasteable(check.hint);
    const bool skipped = check.verdict == tavo::Verdict::Skipped;
    report.result["checks"].push_back({{"item", check.item},
                                       {"ok", skipped ? Json(nullptr) : Json(check.verdict == tavo::Verdict::Ok)},
                                       {"text", check.text},
                                       {"hint", check.hint.empty() ? Json(nullptr) : Json(check.hint)}});
    report.line(rowText(check));
}

void doctor(Session& session, bool leaveFlash) {
    session.report.result["checks"] = Json::array();
    tavo::DoctorOptions options;
    options.restartNeuron = !session.options.dryRun && !leaveFlash;
    options.each = [&](const tavo::Check& check) { tell(session.report, check); };
    const tavo::Diagnosis diagnosis = tavo::doctor(session.device(), options, session.control());
    session.report.state = diagnosis.state;
    if (diagnosis.failed() == 0) return;
    // Whatever it found in the flash: this run has changed nothing there.
    throw Failure{Exit::FailedUnchanged, countText(diagnosis.failed(), "check") + " failed", "see the hints above", {}};
}

}  // namespace

Run declareDoctor(Arguments& arguments) {
    auto leaveFlash = std::make_shared<bool>(false);
    arguments.flag("--no-flash", *leaveFlash, "leave out the flash ID, for which the Neuron is restarted");
    return [leaveFlash](Session& session) { doctor(session, *leaveFlash); };
}

}  // namespace cli
