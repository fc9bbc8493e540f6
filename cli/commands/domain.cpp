#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/domainTable.h"
#include "cli/commands/keptBackup.h"
#include "cli/running/session.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

Json json(const tavo::DomainTable& table, bool showKeys) {
    Json entries = Json::array();
    for (unsigned i = 0; i < table.size(); ++i) entries.push_back(domainJson(i, table[i], showKeys));
    return entries;
}

void readDomains(Session& session, bool showKeys) {
    const auto table = tavo::readDomainTable(session.device(), session.control());
    session.report.result["domains"] = json(table, showKeys);
    for (unsigned i = 0; i < table.size(); ++i) session.report.line(domainText(i, table[i], showKeys));
}

bool isOtherKey(const LonAddress& one, const LonAddress& other) {
    return !std::equal(std::begin(one.authenticationKey), std::end(one.authenticationKey),
                       std::begin(other.authenticationKey));
}

void tellChange(Report& report, const tavo::DomainTable& before, const tavo::DomainTable& after) {
    report.result["before"] = json(before, false);
    for (unsigned i = 0; i < after.size(); ++i) {
        report.line("before  " + domainText(i, before[i], false));
        report.line("after   " + domainText(i, after[i], false) +
                    (isOtherKey(before[i], after[i]) ? ", key changed" : ""));
    }
}

struct WriteOptions {
    std::string path;
    std::optional<int> index;
    tavo::DomainWriteOptions how;
};

void writeTable(Session& session, const tavo::DomainTable& before, const tavo::DomainTable& wanted,
                tavo::DomainWriteOptions how) {
    std::vector<unsigned> changed;
    how.changed = &changed;
    try {
        tellKept(session.report, tavo::writeDomainTable(session.device(), before, wanted, how, session.control()));
    } catch (const tavo::Error&) {
        session.report.result["changed"] = changed;
        throw;
    }
    session.report.result["after"] = json(wanted, false);  // read back
    session.report.state.node = {tavo::Knowledge::Written, "domain table written"};
    session.report.note("written");
}

void writeDomains(Session& session, WriteOptions& options) {
    options.how.source = options.path;
    Report& report = session.report;
    const auto entries =
        tavo::readDomainFile(options.path, options.index);  // a bad file ends here, the device untouched
    const auto before = tavo::readDomainTable(session.device(), session.control());
    const auto wanted = tavo::tableWith(before, entries);
    tellChange(report, before, wanted);
    if (session.options.dryRun) {
        report.result["after"] = json(wanted, false);
        return report.note("would be changed like this; nothing was done (--dry-run)");
    }
    session.confirm("write this domain table into the Neuron of " + session.deviceName() + "?");
    writeTable(session, before, wanted, options.how);
}

}  // namespace

Run declareDomainRead(Arguments& arguments) {
    auto showKeys = std::make_shared<bool>(false);
    arguments.flag("--show-keys", *showKeys, "show the authentication keys");
    return [showKeys](Session& session) { readDomains(session, *showKeys); };
}

Run declareDomainWrite(Arguments& arguments) {
    auto options = std::make_shared<WriteOptions>();
    arguments.required("FILE.json", options->path, "what domain read --json gives, whole or one entry");
    arguments.asksTogether([options] { return "make " + options->path + " the domain table"; });
    arguments.number("--index", "N", options->index, 0, 1, "write this entry only, 0 or 1");
    arguments.flag("--keep-keys", options->how.keepKeys, "keep the keys of the table that was there, too");
    arguments.flag("--no-backup", options->how.noBackup, kNoBackupHelp);
    return [options](Session& session) { writeDomains(session, *options); };
}

}  // namespace cli
