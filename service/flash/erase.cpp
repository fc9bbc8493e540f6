#include <chrono>

#include "service/flash/access.h"
#include "service/flash/chipBackup.h"
#include "service/flash/journal.h"
#include "service/flash/read.h"
#include "service/flash/sfdp.h"
#include "service/store/log.h"

namespace tavo {
namespace {

void eraseByWish(Operation& op, const FlashDriver& driver, const FlashChip& chip, const std::string& backup) {
    op.begin(Phase::Erase, usualEraseTime(chip));
    op.stopNote(kEraseStopNote);
    const TAVO_STATUS status = op.tryCall("erase the flash", [&] {
        rememberChange(op, {}, {}, backup);
        return eraseAll(op, driver, chip);
    });
    if (status != TAVO_SUCCESS) {
        Error error = statusError(status, Side::Bridge, "erase the flash of " + op.device.name());
        error.hint = "repeat the erase; replug the interface if that fails too";
        op.fail(error);
    }
    op.state.flash = FlashState::Erased;
    forgetChange(op);  // an erased chip is what was wanted
    op.end();
}

}  // namespace

TAVO_STATUS eraseAll(Operation& op, const FlashDriver& driver, const FlashChip& chip) {
    op.state.flash = FlashState::Uncertain;
    if (const auto status = driver.unprotect(); status != CY_SUCCESS) return cypressToTavo(status);
    return cypressToTavo(driver.eraseChip(chip));
}

EraseResult eraseFlash(Device& device, const EraseOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        ChipBackup backup(device, options.backup, !options.noBackup && !options.backup.empty());
        LoggedRun log(op, "erase", BackupKind::Flash);
        return logged(log, [&] {
            auto result =
                withFlash(op, kSettleBeforeErase, options.clockHz, [&](const FlashDriver& driver, FlashChip chip) {
                    readSfdp(op, driver, chip);
                    const bool isPart = options.range && partOf(op, chip, options.range).size() < chip.size;
                    if (backup.isWanted()) {
                        FlashReader reader(op, driver);
                        backup.save(op, readChip(op, reader, chip, Phase::Backup), chip.size);
                        op.throwIfCancelled();
                    }
                    const auto start = std::chrono::steady_clock::now();
                    EraseResult done{chip, 0, backup.path(), 0, {}};
                    log.setBackup(backup.remembered());
                    log.begin();
                    if (isPart)
                        done.sectorsErased = erasePart(op, driver, chip, *options.range, backup.remembered());
                    else
                        eraseByWish(op, driver, chip, backup.remembered());
                    op.throwIfCancelled();
                    done.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                    return done;
                });
            log.end();
            if (result.sectorsErased > 0) waitForBoot(op);  // an erased chip has nothing to start
            result.state = op.state;
            return result;
        });
    });
}

}  // namespace tavo
