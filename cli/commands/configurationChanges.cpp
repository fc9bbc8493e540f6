#include "cli/commands/configurationChanges.h"

#include <cstdio>
#include <cstring>

#include "tavo/service/text.h"

namespace cli {

std::string offsetText(std::size_t offset) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%03X", static_cast<unsigned>(offset));
    return text;
}

std::size_t showChanges(Report& report, const tavo::ConfigurationBlock& before, const tavo::ConfigurationBlock& after) {
    constexpr std::size_t kRow = 16;
    const auto changes = tavo::compareConfiguration(before, after);
    Json& told = report.result["changed"] = Json::array();
    for (const auto& change : changes) {
        told.push_back({{"offset", change.offset}, {"old", change.before}, {"new", change.after}});
    }
    for (std::size_t first = 0; first < changes.size();) {
        // A row holds neighbouring bytes of one field.
        const std::size_t start = changes[first].offset;
        const char* field = tavo::configurationFieldAt(start);
        std::size_t count = 1;
        while (first + count < changes.size() && count < kRow && changes[first + count].offset == start + count &&
               std::strcmp(tavo::configurationFieldAt(start + count), field) == 0) {
            ++count;
        }
        const std::string name = *field == '\0' ? "" : "  (" + std::string(field) + ")";
        report.line(offsetText(start) + "  " + tavo::hexText(&before[start], count) + " -> " +
                    tavo::hexText(&after[start], count) + name);
        first += count;
    }
    return changes.size();
}

void warnOfPendingSerial(Session& session, const tavo::ConfigurationPlan& plan) {
    if (plan.pendingSerial.empty()) return;
    session.report.warning("the block holds the serial number " + plan.pendingSerial +
                               ", which is not in effect yet; it becomes " + plan.serial + " again",
                           "replug first to keep " + plan.pendingSerial);
}

bool rewriteBlock(Session& session, const tavo::ConfigurationPlan& plan, const std::string& backup,
                  const std::string& question) {
    Report& report = session.report;
    report.result["backup"] = nullptr;
    if (showChanges(report, plan.before, plan.after) == 0) {
        report.note("the bridge holds that block already, nothing written");
        return false;
    }
    if (session.options.dryRun) {
        report.note("nothing was done (--dry-run)");
        return false;
    }
    session.confirm(question + "?");
    const std::string kept = backup.empty() ? tavo::configurationBackupName(session.device().description()) : backup;
    tavo::saveConfiguration(kept, plan.before, false);
    report.result["backup"] = kept;
    report.note("the block that was there is in " + kept);
    tavo::writeConfiguration(session.device(), plan, kept, session.control());
    return true;
}

}  // namespace cli
