// The way back: on top of flash, bridge and neuron, which do it.
#include <cstring>

#include "service/flash/program.h"
#include "service/neuron/domains.h"
#include "service/store/keep.h"
#include "tavo/service/backups.h"
#include "tavo/service/domainFile.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr const char* kAction = "restore";

Error refused(const Backup& backup, const std::string& why, const std::string& hint) {
    return {Problem::FileRefused, backup.path + " refused: " + why, hint};
}

void requireSound(const Backup& backup) {
    if (!backup.isDamaged) return;
    throw refused(backup, "it does not hold what was kept", "take another one: tavo-util restore --list");
}

void restoreBlock(Device& device, const Backup& backup, const RestoreOptions& options, const Control& control,
                  RestoreResult& result) {
    const ConfigurationBlock block = loadConfiguration(backup.path);
    ConfigurationPlanOptions wanted;
    wanted.serial = fieldsOf(block).serial;
    wanted.source = backup.path;
    ConfigurationPlan plan = planConfiguration(device, block, wanted, control);
    plan.action = kAction;
    result.bytes = compareConfiguration(plan.before, plan.after);
    result.changed = plan.changesAnything();
    ConfigurationWriteOptions how;
    how.noBackup = options.noBackup;
    result.backup = writeConfiguration(device, plan, how, control);
    if (result.changed)
        result.state.configuration = {Knowledge::Written,
                                      "configuration block written; it takes effect after a replug"};
}

/// A masked key may only be the one that the Neuron has for that domain.
bool mayKeepKey(const DomainEntry& kept, const LonAddress& now) {
    const DomainFields wanted = fieldsOf(kept.address);
    return !wanted.inUse || (!kept.isKeyReplaced && wanted.domainId == fieldsOf(now).domainId);
}

void restoreDomains(Device& device, const Backup& backup, const RestoreOptions& options, const Control& control,
                    RestoreResult& result) {
    const auto entries = readDomainFile(backup.path);
    const DomainTable before = readDomainTable(device, control);
    for (const DomainEntry& entry : entries) {
        if (entry.hasKey) continue;
        if (!mayKeepKey(entry, before[entry.index])) {
            throw refused(
                backup,
                "the key of entry " + std::to_string(entry.index) + " was not kept, and the Neuron has another one now",
                "put the key into a copy of the file and write that: tavo-util domain write; --keep-keys keeps "
                "keys the next time");
        }
        if (fieldsOf(entry.address).inUse) result.keptKeys.push_back(entry.index);
    }
    DomainWriteOptions how;
    how.changed = &result.domains;
    how.source = backup.path;
    how.noBackup = options.noBackup;
    const DomainTable wanted = tableWith(before, entries);
    result.changed = std::memcmp(&before, &wanted, sizeof before) != 0;
    if (!result.changed) return;
    result.backup = writeDomainTable(device, before, wanted, how, control, kAction);
    result.state.node = {Knowledge::Written, "domain table written"};
}

void restoreImage(Device& device, const Backup& backup, const RestoreOptions& options, const Control& control,
                  RestoreResult& result) {
    ReadOptions binary;
    binary.format = Format::Binary;
    const Image image = readImage(backup.path, binary);
    ProgramOptions how;
    how.imageName = backup.path;
    how.noBackup = options.noBackup;
    result.flash = programFlash(device, image, how, control, kAction);
    result.backup = result.flash->backup;
    result.changed = !result.flash->upToDate;
    result.state = result.flash->state;
}

using Way = void (*)(Device&, const Backup&, const RestoreOptions&, const Control&, RestoreResult&);
constexpr Way kWays[] = {restoreImage, restoreBlock, restoreDomains};  // in the order of BackupKind

}  // namespace

RestoreResult restore(Device& device, const Backup& backup, const RestoreOptions& options, const Control& control) {
    requireSound(backup);
    static_cast<void>(makeLatest(backup.path));  // a folder that cannot be written is told by what is kept next
    RestoreResult result;
    kWays[static_cast<std::size_t>(backup.kind)](device, backup, options, control, result);
    return result;
}

}  // namespace tavo
