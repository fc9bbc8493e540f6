#include "cli/commands/configurationChanges.h"

#include <cstdio>
#include <cstring>

#include "cli/commands/keptBackup.h"
#include "tavo/service/text.h"

namespace cli {

std::string offsetText(std::size_t offset) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%03X", static_cast<unsigned>(offset));
    return text;
}

std::size_t showChanges(Report& report, const tavo::ConfigurationPlan& plan) {
    const auto changes = tavo::compareConfiguration(plan.before, plan.after);
    showChanges(report, changes);
    return changes.size();
}

void showChanges(Report& report, const std::vector<tavo::ByteChange>& changes) {
    constexpr std::size_t kRow = 16;
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
        std::string before;
        std::string after;
        for (std::size_t i = first; i < first + count; ++i) {
            before += tavo::hexText(&changes[i].before, 1) + " ";
            after += " " + tavo::hexText(&changes[i].after, 1);
        }
        report.line(offsetText(start) + "  " + before + "->" + after + name);
        first += count;
    }
}

void addBackup(Arguments& arguments, tavo::ConfigurationWriteOptions& how) {
    arguments.text("--backup", "FILE", how.backup, "also write the block that was there to this new file");
    arguments.isOutput(how.backup);
    arguments.flag("--no-backup", how.noBackup, kNoBackupHelp);
}

void warnOfPendingSerial(Session& session, const tavo::ConfigurationPlan& plan) {
    if (plan.pendingSerial.empty()) return;
    session.report.warning("the block holds the serial number " + plan.pendingSerial +
                               ", which is not in effect yet; it becomes " + plan.serial + " again",
                           "replug first to keep " + plan.pendingSerial);
}

bool rewriteBlock(Session& session, const tavo::ConfigurationPlan& plan, const tavo::ConfigurationWriteOptions& how,
                  const std::string& question) {
    Report& report = session.report;
    report.result["backup"] = nullptr;
    if (showChanges(report, plan) == 0) {
        report.note("the bridge holds that block already, nothing written");
        return false;
    }
    if (session.options.dryRun) {
        report.note("nothing was done (--dry-run)");
        return false;
    }
    session.confirm(question + "?");
    tellKept(report, tavo::writeConfiguration(session.device(), plan, how, session.control()));
    report.state.configuration = {tavo::Knowledge::Written,
                                  "configuration block written; it takes effect after a replug"};
    return true;
}

}  // namespace cli
