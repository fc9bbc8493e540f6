#include "tavo/service/recover.h"

#include "cli/commands/commands.h"
#include "cli/commands/interruptedRun.h"
#include "cli/running/session.h"

namespace cli {
namespace {

constexpr const char* kMarks[] = {"ok    ", "FAIL  ", "-     "};  // in the order of tavo::Verdict

void tell(Report& report, const tavo::RecoverStep& step) {
    const bool skipped = step.verdict == tavo::Verdict::Skipped;
    report.result["steps"].push_back({{"step", step.text},
                                      {"ok", skipped ? Json(nullptr) : Json(step.verdict == tavo::Verdict::Ok)},
                                      {"text", step.why.empty() ? Json(nullptr) : Json(step.why)}});
    report.line(kMarks[static_cast<std::size_t>(step.verdict)] + step.text + (step.why.empty() ? "" : ": " + step.why));
}

void recover(Session& session) {
    if (session.options.dryRun) {
        session.report.note(
            "would end an unfinished SPI transfer, make SCB0 an SPI slave, drive pins 14 and 8 high, "
            "leave the configuration mode and read the flash ID; nothing was done (--dry-run)");
        return;
    }
    session.report.result["steps"] = Json::array();
    tavo::RecoverOptions options;
    options.each = [&](const tavo::RecoverStep& step) { tell(session.report, step); };
    const tavo::Recovery done = tavo::recover(session.device(), options, session.control());
    session.report.state = done.state;
    tellInterrupted(session.report, session.deviceName(), done.interrupted);
}

}  // namespace

Run declareRecover(Arguments&) {
    return recover;
}

}  // namespace cli
