#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/domainTable.h"
#include "cli/session.h"
#include "tavo/neuron.h"

namespace cli {
namespace {

using Table = LonAddress[2];

void tell(Report& report, const Table& table, bool showKeys) {
    report.result["domains"] = Json::array();
    for (unsigned i = 0; i < 2; ++i) {
        report.result["domains"].push_back(domainJson(i, table[i], showKeys));
        report.line(domainText(i, table[i], showKeys));
    }
}

void readTable(Session& session, Table& table) {
    session.call(Side::Neuron, "read the domain table", [&] { return readDomainTable(session.info(), table); });
}

void readDomains(Session& session, bool showKeys) {
    Table table;
    readTable(session, table);
    tell(session.report, table, showKeys);
}

bool isSame(const LonAddress& one, const LonAddress& other) {
    return std::memcmp(&one, &other, sizeof one) == 0;
}

/// What a failed write has left behind, seen by reading the table back.
std::string whatChanged(Session& session, const Table& before, const Table& wanted) {
    Table now;
    const TAVO_STATUS status =
        session.tryCall("read the domain table back", [&] { return readDomainTable(session.info(), now); });
    if (status != TAVO_SUCCESS) return "the domain table may have changed: it cannot be read back";
    Json& changed = session.report.result["changed"] = Json::array();
    std::string text = "domain table read back:";
    for (unsigned i = 0; i < 2; ++i) {
        const bool isUnchanged = isSame(now[i], before[i]);
        if (!isUnchanged) changed.push_back(i);
        const char* what = isUnchanged                 ? " unchanged"
                           : isSame(now[i], wanted[i]) ? " written"
                                                       : " holds something else";
        text += (i == 0 ? " entry " : ", entry ") + std::to_string(i) + what;
    }
    return text;
}

void put(const DomainEntry& entry, LonAddress& into) {
    LonAddress address = entry.address;
    if (!entry.hasKey)
        std::copy(std::begin(into.authenticationKey), std::end(into.authenticationKey), address.authenticationKey);
    into = address;
}

struct WriteOptions {
    std::string path;
    std::optional<int> index;
};

void writeDomains(Session& session, const WriteOptions& options) {
    Report& report = session.report;
    const auto entries = readDomainFile(options.path, options.index);  // a bad file ends here, the device untouched
    Table before;
    readTable(session, before);
    Table wanted;
    std::copy(std::begin(before), std::end(before), wanted);
    for (const DomainEntry& entry : entries) put(entry, wanted[entry.index]);
    tell(report, wanted, false);
    if (session.options.dryRun) {
        report.note("would be the domain table; nothing was done (--dry-run)");
        return;
    }
    session.confirm("write this domain table into the Neuron of " + session.deviceName() + "?");
    const TAVO_STATUS status =
        session.tryCall("write the domain table", [&] { return writeDomainTable(session.info(), wanted); });
    if (status != TAVO_SUCCESS) {
        report.stateText = whatChanged(session, before, wanted);
        throw libraryFailure(status, Side::Neuron, "write the domain table of " + session.deviceName());
    }
    report.note("written");
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
    arguments.number("--index", "N", options->index, 0, 1, "write this entry only, 0 or 1");
    return [options](Session& session) { writeDomains(session, *options); };
}

}  // namespace cli
