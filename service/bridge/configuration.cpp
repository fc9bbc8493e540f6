// Reading and rewriting the bridge's configuration block.
#include "bridge/configBlock.h"
#include "platform/cyusbserial.h"
#include "service/bridge/access.h"
#include "service/store/keep.h"
#include "service/store/log.h"
#include "tavo/cyboot.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr const char* kUnchanged = "configuration block unchanged";
constexpr const char* kNotKnown = "configuration block not known: it may be damaged";

/// A bridge with a damaged block may not come up on USB again.
std::string keepPlugged(const std::string& backup) {
    const std::string first = "do not unplug the interface; write ";
    if (backup.empty()) return first + "a good block first: tavo-util config write";
    if (isKept(backup)) return first + "the old block first: tavo-util restore config";
    return first + "the old block first: tavo-util config write " + shellWord(backup);
}

void requirePrintable(const std::string& serial) {
    SerialNumber number;
    if (number.fromStringWithoutPrefix(serial.c_str())) return;
    throw Error(Problem::BadArgument, "'" + serial + "' cannot be a serial number",
                "1 to 32 printable ASCII characters");
}

void requireGood(const ConfigurationBlock& block, const std::string& source) {
    const std::string bad = fieldsOf(block).whyBad;
    if (bad.empty()) return;
    throw Error(Problem::FileRefused,
                (source.empty() ? "the block is" : source) + " refused: " + bad +
                    "; a bad block can make a bridge vanish from USB",
                source.empty()
                    ? "take a block that was read from a bridge; forced, it is written all the same"
                    : "take a block saved with tavo-util config read; tavo-util config write --force-block " +
                          shellWord(source) + " writes it all the same");
}

ConfigurationBlock blockOf(Operation& op) {
    ConfigurationBlock block{};
    bool refused = false;
    constexpr const char* kDoing = "read the configuration block";
    op.state.configuration = {Knowledge::Unchanged, kUnchanged};
    const TAVO_STATUS status = op.tryCall(kDoing, [&] { return readBlock(op, block, refused); });
    if (status == TAVO_SUCCESS) return block;
    op.fail(configurationError(op, status, std::string(kDoing) + " on " + op.device.name(), refused));
}

ConfigurationPlan planOf(Device& device, const Control& control, const char* doing, const char* action) {
    return operate(device, control, [&](Operation& op) {
        ConfigurationPlan plan;
        plan.before = plan.after = blockOf(op);
        plan.serial = device.info().serialNumber.text;
        plan.doing = doing;
        plan.action = action;
        return plan;
    });
}

/// A rewrite that keeps the serial number keeps the one in effect, not one that waits for a replug.
void notePendingSerial(ConfigurationPlan& plan) {
    const std::string inBlock = fieldsOf(plan.before).serial;
    if (inBlock != plan.serial) plan.pendingSerial = inBlock;
}

void finish(ConfigurationPlan& plan) {
    configBlock::finish(plan.after, plan.serial.c_str());
}

[[noreturn]] void failChanged(const Operation& op, const ConfigurationPlan& plan) {
    op.fail(Error(Problem::DeviceFailed,
                  "cannot " + plan.doing + " of " + op.device.name() + ": its block has changed in the meantime",
                  "repeat the command: another program has written the block"));
}

/// The requests of a rewrite, in the order in which the library sends them.
TAVO_STATUS writeBlock(Operation& op, const ConfigurationPlan& plan, bool& refused) {
    ConfigurationMode mode(op);
    if (mode.openStatus() != CY_SUCCESS) return cypressToTavo(mode.openStatus());
    UINT32 siliconId = 0;  // only a bridge that answers this is written to
    if (const auto status = CyGetSiliconID(mode.handle(), &siliconId); status != CY_SUCCESS)
        return cypressToTavo(status);
    const CY_RETURN_STATUS entered = mode.enter();
    refused = mode.isRefused();
    if (entered != CY_SUCCESS) return cypressToTavo(entered);
    ConfigurationBlock block{};
    if (plan.isEdit) {
        const CY_RETURN_STATUS status = CyReadDeviceConfig(mode.handle(), block.data());
        if (status != CY_SUCCESS) return cypressToTavo(status);
        if (block != plan.before) failChanged(op, plan);
    }
    block = plan.after;
    op.state.configuration = {Knowledge::Uncertain, kNotKnown};
    if (const auto status = CyWriteDeviceConfig(mode.handle(), block.data()); status != CY_SUCCESS) {
        return cypressToTavo(status);
    }
    return cypressToTavo(mode.leave());
}

/// A failed request may have come before or after the change: the bridge is asked what it holds.
[[noreturn]] void fail(Operation& op, const ConfigurationPlan& plan, const std::string& backup, TAVO_STATUS status,
                       bool refused) {
    Error error = configurationError(op, status, plan.doing + " of " + op.device.name(), refused);
    ConfigurationBlock now{};
    bool refusedNow = false;
    op.note("reads the block back");
    // Not ended by a cancellation: whoever stopped this needs to know it all the more.
    const bool known = readBlock(op, now, refusedNow) == TAVO_SUCCESS;
    if ((known && now == plan.before) || refused) {
        op.state.configuration = {Knowledge::Unchanged, kUnchanged};
    } else if (known && now == plan.after) {
        op.state.configuration = {Knowledge::Written, "configuration block written all the same"};
    } else {
        op.state.configuration = {Knowledge::Uncertain, kNotKnown};
        if (error.problem != Problem::NoDevice) error.hint = keepPlugged(backup);
    }
    op.fail(error);
}

void requireWritten(Operation& op, const ConfigurationPlan& plan, const std::string& backup) {
    op.state.configuration = {Knowledge::Written, "configuration block written; it takes effect after a replug"};
    ConfigurationBlock now{};
    bool refused = false;
    const TAVO_STATUS status = op.tryCall("read the block back", [&] { return readBlock(op, now, refused); });
    if (status == TAVO_SUCCESS && now == plan.after) return;
    if (status != TAVO_SUCCESS) {
        op.state.configuration.text = "configuration block written, not read back; it takes effect after a replug";
        op.fail(configurationError(op, status, "read the written configuration block of " + op.device.name(), refused));
    }
    op.state.configuration = {Knowledge::Uncertain, "configuration block not as written"};
    op.fail(Error(Problem::DeviceFailed, "the bridge of " + op.device.name() + " took the block and holds another one",
                  keepPlugged(backup)));
}

/// Into the file that the caller wants, and among the backups. @return the latter
std::string keep(const Device& device, const ConfigurationPlan& plan, const ConfigurationWriteOptions& options) {
    if (!options.backup.empty()) saveConfiguration(options.backup, plan.before, false);
    if (options.noBackup) return "";
    return keepBackup(device.description(), BackupKind::Configuration, plan.before);
}

}  // namespace

ConfigurationBlock readConfiguration(Device& device, const Control& control) {
    return operate(device, control, [&](Operation& op) { return blockOf(op); });
}

ConfigurationPlan planConfiguration(Device& device, const ConfigurationBlock& image,
                                    const ConfigurationPlanOptions& options, const Control& control) {
    if (!options.force) requireGood(image, options.source);
    if (options.serial) requirePrintable(*options.serial);
    ConfigurationPlan plan = planOf(device, control, "write the configuration block", "config write");
    plan.source = options.source;
    plan.after = image;
    options.serial ? void(plan.serial = *options.serial) : notePendingSerial(plan);
    finish(plan);
    return plan;
}

ConfigurationPlan planConfiguration(Device& device, const ConfigurationBlock& image,
                                    const std::optional<std::string>& serial, const Control& control) {
    return planConfiguration(device, image, ConfigurationPlanOptions{serial}, control);
}

ConfigurationPlan planSerialNumber(Device& device, const std::string& serial, const Control& control) {
    requirePrintable(serial);
    ConfigurationPlan plan = planOf(device, control, "set the serial number", "set-serial");
    plan.isEdit = true;
    plan.serial = serial;
    finish(plan);
    return plan;
}

ConfigurationPlan planScb0(Device& device, Scb0Role role, const Control& control) {
    ConfigurationPlan plan = planOf(device, control, "switch SCB0", "scb0");
    notePendingSerial(plan);
    configBlock::setScb0(plan.after, role == Scb0Role::Spi);
    finish(plan);
    return plan;
}

std::string writeConfiguration(Device& device, const ConfigurationPlan& plan, const ConfigurationWriteOptions& options,
                               const Control& control) {
    return operate(device, control, [&](Operation& op) -> std::string {
        if (!plan.changesAnything()) return "";
        const std::string kept = keep(device, plan, options);
        const std::string backup = kept.empty() ? options.backup : kept;
        LoggedRun run(op, plan.action.c_str(), BackupKind::Configuration);
        run.setImage(plan.source);
        run.setBackup(backup);
        if (plan.serial != device.description().serial) run.entry.serialAfter = plan.serial;
        return logged(run, [&] {
            op.state.configuration = {Knowledge::Unchanged, kUnchanged};
            run.begin();
            bool refused = false;
            const TAVO_STATUS status = op.tryCall(plan.doing, [&] { return writeBlock(op, plan, refused); });
            if (status != TAVO_SUCCESS) fail(op, plan, backup, status, refused);
            requireWritten(op, plan, backup);
            run.end();
            return options.backup.empty() ? kept : options.backup;
        });
    });
}

}  // namespace tavo
