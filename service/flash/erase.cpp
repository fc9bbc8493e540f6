#include <chrono>

#include "service/flash/access.h"
#include "service/flash/journal.h"

namespace tavo {
namespace {

void erase(Operation& op, const FlashDriver& driver, const FlashChip& chip) {
    op.throwIfCancelled();
    rememberChange(op, {}, {}, {});
    op.begin(Phase::Erase, usualEraseTime(chip.size));
    op.stopNote(kEraseStopNote);
    op.step("call: erase the flash");
    op.state.flash = FlashState::Uncertain;
    CY_RETURN_STATUS status = driver.unprotect();
    if (status == CY_SUCCESS) status = driver.eraseChip(chip.size);
    if (status != CY_SUCCESS) {
        Error error = statusError(cypressToTavo(status), Side::Bridge, "erase the flash of " + op.device.name());
        error.hint = "repeat the erase, or program an image; replug the interface if that fails too";
        op.fail(error);
    }
    op.state.flash = FlashState::Erased;
    forgetChange(op);  // an erased chip is what was wanted
    op.end();
}

}  // namespace

EraseResult eraseFlash(Device& device, const Control& control) {
    Operation op(device, control);
    auto result = withFlash(op, kSettleBeforeErase, [&](const FlashDriver& driver, const FlashChip& chip) {
        const auto start = std::chrono::steady_clock::now();
        erase(op, driver, chip);
        op.throwIfCancelled();
        return EraseResult{chip, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), {}};
    });
    result.state = op.state;
    return result;
}

}  // namespace tavo
