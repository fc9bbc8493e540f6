#include "cli/commands/interruptedRun.h"

namespace cli {

Json interruptedJson(const std::optional<tavo::InterruptedRun>& run) {
    if (!run) return nullptr;
    const auto orNull = [](const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); };
    return {{"image", orNull(run->image)},
            {"sha256", orNull(run->sha256)},
            {"backup", orNull(run->backup)},
            {"started", orNull(run->started)}};
}

void tellInterrupted(Report& report, const std::string& device, const std::optional<tavo::InterruptedRun>& run) {
    report.result["interrupted"] = interruptedJson(run);
    if (!run) return;
    report.state.flash = interruptedState(*run);
    report.warning(device + ": " + interruptedText(*run), interruptedHint(*run));
}

}  // namespace cli
