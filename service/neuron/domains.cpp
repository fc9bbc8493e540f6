#include "service/neuron/domains.h"

#include <cstring>
#include <optional>

#include "service/neuron/requests.h"
#include "service/store/keep.h"
#include "service/store/log.h"
#include "tavo/service/domainFile.h"

namespace tavo {
namespace {

bool isSame(const LonAddress& one, const LonAddress& other) {
    return std::memcmp(&one, &other, sizeof one) == 0;
}

TAVO_STATUS readEntries(Operation& op, DomainTable& table) {
    if (!op.device.info().areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    Channel channel(op);
    if (channel.status() != TAVO_SUCCESS) return notOpened(op, channel.status());
    onlyAsks(op);
    frames::Answer answer;
    for (unsigned char index = 0; index < table.size(); ++index) {
        if (!channel.exchange(frames::queryDomain(index), frames::kQueryDomainAnswer, answer)) {
            return TAVO_TRANSACTION_FAILED;
        }
        std::memcpy(&table[index], &answer[frames::kData], sizeof(LonAddress));
    }
    return TAVO_SUCCESS;
}

TAVO_STATUS writeEntries(Operation& op, const DomainTable& wanted) {
    if (!op.device.info().areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    Channel channel(op);
    if (channel.status() != TAVO_SUCCESS) return notOpened(op, channel.status());
    mayChange(op, "the domain table may have changed: tavo-util domain read shows it");
    frames::Answer answer;
    for (unsigned char index = 0; index < wanted.size(); ++index) {
        auto request = frames::updateDomain(index);
        std::memcpy(&request[frames::kEntryOffset], &wanted[index], sizeof(LonAddress));
        if (!channel.exchange(request, frames::kUpdateDomainAnswer, answer)) return TAVO_TRANSACTION_FAILED;
    }
    return TAVO_SUCCESS;
}

std::optional<DomainTable> readBack(Operation& op) {
    DomainTable now;
    const TAVO_STATUS status = op.tryCall("read the domain table back", [&] { return readEntries(op, now); });
    return status == TAVO_SUCCESS ? std::optional(now) : std::nullopt;
}

/// What a write has left behind.
PartState stateAfter(const std::optional<DomainTable>& now, const DomainTable& before, const DomainTable& wanted,
                     std::vector<unsigned>* changed) {
    if (!now) return {Knowledge::Uncertain, "the domain table may have changed: it cannot be read back"};
    PartState state{Knowledge::Unchanged, "domain table read back:"};
    for (unsigned i = 0; i < now->size(); ++i) {
        const bool isUnchanged = isSame((*now)[i], before[i]);
        if (!isUnchanged) state.knowledge = Knowledge::Uncertain;
        if (!isUnchanged && changed != nullptr) changed->push_back(i);
        const char* what = isUnchanged                    ? " unchanged"
                           : isSame((*now)[i], wanted[i]) ? " written"
                                                          : " holds something else";
        state.text += (i == 0 ? " entry " : ", entry ") + std::to_string(i) + what;
    }
    return state;
}

/// Nothing is kept of a table that stays as it is.
std::string keep(const Device& device, const DomainTable& before, const DomainTable& wanted,
                 const DomainWriteOptions& options) {
    if (options.noBackup || (isSame(before[0], wanted[0]) && isSame(before[1], wanted[1]))) return "";
    const std::string text = domainTableText(before, wanted, options.keepKeys);
    return keepBackup(device.description(), BackupKind::Domains,
                      {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

void writeAndCompare(Operation& op, const DomainTable& before, const DomainTable& wanted,
                     std::vector<unsigned>* changed) {
    const TAVO_STATUS status = op.tryCall("write the domain table", [&] { return writeEntries(op, wanted); });
    std::optional<DomainTable> now;
    if (op.state.node.knowledge == Knowledge::Uncertain) {
        now = readBack(op);
        op.state.node = stateAfter(now, before, wanted, changed);
    }
    const std::string name = "the domain table of " + op.device.name();
    if (status != TAVO_SUCCESS) op.fail(statusError(status, Side::Neuron, "write " + name));
    if (!now) op.fail(statusError(TAVO_TRANSACTION_FAILED, Side::Neuron, "read back " + name));
    if (isSame((*now)[0], wanted[0]) && isSame((*now)[1], wanted[1])) return;
    op.fail(Error(Problem::DeviceFailed, name + " is another one than was written", "tavo-util domain read shows it"));
}

}  // namespace

DomainTable readDomainTable(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        DomainTable table;
        op.call(Side::Neuron, "read the domain table", [&] { return readEntries(op, table); });
        return table;
    });
}

std::string writeDomainTable(Device& device, const DomainTable& before, const DomainTable& wanted,
                             const DomainWriteOptions& options, const Control& control) {
    return writeDomainTable(device, before, wanted, options, control, "domain write");
}

std::string writeDomainTable(Device& device, const DomainTable& before, const DomainTable& wanted,
                             const DomainWriteOptions& options, const Control& control, const char* action) {
    return operate(device, control, [&](Operation& op) -> std::string {
        if (options.changed != nullptr) options.changed->clear();
        const std::string backup = keep(device, before, wanted, options);
        LoggedRun run(op, action, BackupKind::Domains);
        run.setImage(options.source);
        run.setBackup(backup);
        return logged(run, [&] {
            run.begin();
            writeAndCompare(op, before, wanted, options.changed);
            run.end();
            return backup;
        });
    });
}

}  // namespace tavo
