#include <chrono>

#include "service/flash/access.h"
#include "service/flash/journal.h"
#include "service/flash/sfdp.h"

namespace tavo {
namespace {

void eraseByWish(Operation& op, const FlashDriver& driver, const FlashChip& chip) {
    op.begin(Phase::Erase, usualEraseTime(chip));
    op.stopNote(kEraseStopNote);
    const TAVO_STATUS status = op.tryCall("erase the flash", [&] {
        rememberChange(op, {}, {}, {});
        return eraseAll(op, driver, chip);
    });
    if (status != TAVO_SUCCESS) {
        Error error = statusError(status, Side::Bridge, "erase the flash of " + op.device.name());
        error.hint = "repeat the erase, or program an image; replug the interface if that fails too";
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
    Operation op(device, control);
    auto result = withFlash(op, kSettleBeforeErase, options.clockHz, [&](const FlashDriver& driver, FlashChip chip) {
        readSfdp(op, driver, chip);
        const auto start = std::chrono::steady_clock::now();
        EraseResult done{chip, 0, 0, {}};
        const bool isPart = options.range && partOf(op, chip, options.range).size() < chip.size;
        if (isPart)
            done.sectorsErased = erasePart(op, driver, chip, *options.range);
        else
            eraseByWish(op, driver, chip);
        op.throwIfCancelled();
        done.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return done;
    });
    if (result.sectorsErased > 0) waitForBoot(op);  // an erased chip has nothing to start
    result.state = op.state;
    return result;
}

}  // namespace tavo
