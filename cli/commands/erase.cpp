#include "cli/commands/commands.h"
#include "cli/flashAccess.h"
#include "cli/session.h"
#include "tavo/flash.h"

namespace cli {
namespace {

void erase(Session& session) {
    Report& report = session.report;
    if (session.options.dryRun) {
        report.result["planned"] = {"erase"};
        report.note("would erase the whole flash of " + session.deviceName() + "; nothing was done");
        return;
    }
    const FlashChip chip = inspectFlash(session);
    const Stopwatch watch;
    session.progress.begin("erase", usualEraseTime(chip.size));
    session.progress.setStopNote("Ctrl-C noted: a chip erase cannot be stopped, waiting for its end");
    const TAVO_STATUS status = session.tryCall("erase the flash", [&] {
        report.state.flash = FlashState::Uncertain;
        return eraseSpiFlash(session.info());
    });
    if (status != TAVO_SUCCESS) {
        Failure failure = libraryFailure(status, Side::Bridge, "erase the flash of " + session.deviceName());
        failure.exit = Exit::FailedFlashLost;
        failure.hint = "repeat the erase, or program an image; replug the interface if that fails too";
        throw failure;
    }
    report.state.flash = FlashState::Erased;
    session.progress.end();
    throwIfInterrupted();
    report.result["seconds"] = watch.seconds();
    report.note("erased " + sizeText(chip.size) + " in " + secondsText(watch.seconds()));
}

}  // namespace

Run declareErase(Arguments&) {
    return erase;
}

}  // namespace cli
