#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/configurationChanges.h"
#include "cli/commands/keptBackup.h"
#include "cli/commands/programmed.h"
#include "cli/running/session.h"
#include "tavo/service/backups.h"
#include "tavo/service/history.h"

namespace cli {
namespace {

using tavo::BackupKind;
constexpr BackupKind kKinds[] = {BackupKind::Flash, BackupKind::Configuration, BackupKind::Domains};
constexpr std::size_t kShownDigits = 12;

struct Options {
    std::string which;
    std::string kind;
    bool list = false;
    tavo::RestoreOptions how;
};

const BackupKind* kindOf(const std::string& word) {
    const auto* const found = std::find_if(std::begin(kKinds), std::end(kKinds),
                                           [&](BackupKind kind) { return word == tavo::backupKindName(kind); });
    return found == std::end(kKinds) ? nullptr : found;
}

Json json(const tavo::Backup& backup) {
    return {{"id", backup.id},
            {"kind", tavo::backupKindName(backup.kind)},
            {"file", backup.path},
            {"time", backup.time},
            {"bytes", backup.bytes},
            {"sha256", backup.sha256},
            {"damaged", backup.isDamaged},
            {"taken_before", backup.takenBefore.empty() ? Json(nullptr) : Json(backup.takenBefore)}};
}

std::string text(const tavo::Backup& backup) {
    return std::string(tavo::backupKindText(backup.kind)) + " of " + tavo::localTimeText(backup.time) + ", " +
           sizeText(backup.bytes) + ", sha256 " + backup.sha256.substr(0, kShownDigits) +
           (backup.takenBefore.empty() ? "" : ", kept before: " + backup.takenBefore) +
           (backup.isDamaged ? ", DAMAGED" : "");
}

/// @param kind  the only one that is listed; null: all
void list(Session& session, const BackupKind* kind) {
    Report& report = session.report;
    report.result["backups"] = Json::array();
    auto all = tavo::backups(session.device().description());
    std::erase_if(all, [kind](const tavo::Backup& backup) { return kind != nullptr && backup.kind != *kind; });
    for (const auto& backup : all) {
        report.result["backups"].push_back(json(backup));
        report.line(backup.id + "  " + text(backup));
    }
    if (all.empty()) report.note("nothing of " + session.deviceName() + " is kept here");
}

void tellDone(Session& session, const tavo::RestoreResult& done) {
    Report& report = session.report;
    report.state = done.state;
    report.result["changed"] = done.changed;
    if (!done.changed) return report.note("already there: nothing was written");
    if (done.flash) tellProgrammed(session, *done.flash);
    if (!done.bytes.empty()) showChanges(report, done.bytes);
    if (!done.domains.empty()) report.result["domains"] = done.domains;
    if (!done.flash) tellKept(report, done.backup);
    report.note(done.bytes.empty() ? "restored" : "restored; unplug and replug to apply");
}

void restore(Session& session, const Options& options) {
    Report& report = session.report;
    const bool isOnlyKind = options.kind.empty() && kindOf(options.which) != nullptr;
    const std::string word = isOnlyKind ? options.which : options.kind.empty() ? "flash" : options.kind;
    const BackupKind* kind = kindOf(word);
    if (kind == nullptr) throw Failure{Exit::Usage, word + " is no kind of backup", "flash, config or domain", {}};
    if (options.list && !isOnlyKind && !options.which.empty())
        throw Failure{Exit::Usage, "--list shows all that is kept, or all of a kind", "flash, config or domain", {}};
    if (options.list) return list(session, options.which.empty() ? nullptr : kind);
    const tavo::Backup backup =
        tavo::findBackup(session.device().description(), *kind, isOnlyKind ? "" : options.which);
    report.result["restored"] = json(backup);
    report.line(text(backup));
    if (const std::string doubt = tavo::doubtAbout(backup, session.device().description()); !doubt.empty())
        report.warning(doubt, "compare its time and what it was kept before; config set-serial tells interfaces apart");
    if (session.options.dryRun) return report.note("nothing was done (--dry-run)");
    session.confirm("put it back into " + session.deviceName() + "?");
    const auto done = tavo::restore(session.device(), backup, options.how, session.control());
    for (const unsigned entry : done.keptKeys) {
        report.warning("the key of entry " + std::to_string(entry) + " is not in the backup: the Neuron's own stays");
    }
    tellDone(session, done);
}

}  // namespace

Run declareRestore(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.optional("WHICH", options->which, "the beginning of an ID or of a sha256 (default: the latest)");
    arguments.optional("KIND", options->kind, "flash (the default), config or domain");
    for (const char* name : {"WHICH", "KIND"}) arguments.suggest(name, {"flash", "config", "domain"});
    arguments.flag("--list", options->list, "show what is kept, and do nothing");
    arguments.flag("--no-backup", options->how.noBackup, kNoBackupHelp);
    arguments.asksTogether([options] {
        if (options->list) return std::string();
        const std::string kind = options->kind.empty() ? "" : " " + options->kind;
        return "restore " + (options->which.empty() ? "what was in the flash" : options->which) + kind;
    });
    return [options](Session& session) { restore(session, *options); };
}

}  // namespace cli
