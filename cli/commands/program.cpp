#include <algorithm>
#include <cmath>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/flashAccess.h"
#include "cli/hexImage.h"
#include "cli/session.h"
#include "tavo/flash.h"

namespace cli {
namespace {

struct Options {
    std::string file;
};

constexpr const char* kProgramAgain = "program the image again before the interface is used";

// A page program with its verification on a 900 kHz SPI bus, and the library's fixed waits.
constexpr double kSecondsPerPage = 0.0066;
constexpr double kFixedSeconds = 1.7;

HexFile checkFile(const std::string& path, const PrivateFile& copy) {
    progress().begin("check");
    HexFile file = readHexFile(path, {}, &copy);
    if (!file.isGood()) throw refusal(path, file);
    progress().end(countText(file.touchedPages(), "page"));
    return file;
}

/// The size is known only now; the copy is read again to name the line.
void checkAgainstChip(const std::string& path, const HexFile& file, const PrivateFile& copy, const FlashChip& chip) {
    if (file.image.ranges().back().last < chip.size) return;
    const HexFile again = readHexFile(copy.path(), {std::min(chip.size, kAddressable)}, nullptr);
    throw refusal(path, again);
}

void tellPlan(Session& session, const HexFile& file) {
    Report& report = session.report;
    const double seconds = kFixedSeconds + kSecondsPerPage * file.image.pagesWithData();
    report.result["planned"] = {"erase", "program", "verify"};
    report.result["pages_written"] = 0;
    report.result["pages_planned"] = file.image.pagesWithData();
    report.result["pages_blank"] = file.image.blankPages();
    report.result["estimated_seconds"] = seconds;
    report.result["sha256"] = file.sha256;
    report.line("would erase the whole flash of " + session.deviceName() + ", then program and verify " +
                countText(file.image.pagesWithData(), "page") + " (" + std::to_string(file.image.blankPages()) +
                " blank)");
    report.line("about " + secondsText(std::ceil(seconds)) +
                " on a device, and the erase: by the chip's size 2 to 200 s");
    report.line("nothing was done (--dry-run)");
}

/// The library has begun: a failed step may have come before or after the first erased byte.
Failure programFailure(Session& session, TAVO_STATUS status) {
    Failure failure = libraryFailure(status, Side::Bridge, "program " + session.deviceName());
    failure.exit = Exit::FailedFlashLost;
    failure.hint = kProgramAgain;
    session.report.flashState = FlashState::Uncertain;
    if (status == TAVO_FILE_NOT_FOUND) session.report.flashState = FlashState::Erased;
    if (status == TAVO_FLASH_PROGRAMMING_FAILED) {
        session.report.flashState = FlashState::Incomplete;
        if (!session.libraryErrors().empty()) failure.text += ": " + session.libraryErrors();
    }
    return failure;
}

/// The first report of the library ends the erase: it comes after the first page.
const Measure* bytesMeasure = nullptr;

void onProgramProgress(char percent) {
    throwIfInterrupted();
    if (bytesMeasure != nullptr) {
        progress().begin("program", "", *bytesMeasure);
        bytesMeasure = nullptr;
    }
    progress().share(percent);
}

void programImage(Session& session, const HexFile& file, const PrivateFile& copy, const FlashChip& chip) {
    Report& report = session.report;
    const Measure measure{file.image.byteCount(),
                          [&](int percent) { return file.bytesAtPercent[static_cast<std::size_t>(percent)]; }};
    bytesMeasure = &measure;
    progress().begin("erase", usualEraseTime(chip.size));
    progress().setStopNote("Ctrl-C noted: a chip erase cannot be stopped, waiting for its end");
    const auto status = session.tryCall("program the flash", [&] {
        report.flashState = FlashState::Uncertain;
        try {
            return programSpiFlash(session.device(), copy.path().c_str(), onProgramProgress);
        } catch (const Interrupted&) {
            report.flashState = FlashState::Incomplete;  // the callback comes after a page
            throw;
        }
    });
    if (status != TAVO_SUCCESS) throw programFailure(session, status);
    report.flashState = FlashState::Programmed;
    progress().end();
    progress().begin("verify");
    progress().end("every page was read back and compared right after it was programmed");
}

void program(Session& session, const Options& options) {
    const PrivateFile copy;
    const HexFile file = checkFile(options.file, copy);
    if (session.options.dryRun) return tellPlan(session, file);
    const FlashChip chip = inspectFlash(session);
    checkAgainstChip(options.file, file, copy, chip);
    Report& report = session.report;
    report.result["sha256"] = file.sha256;
    report.result["backup"] = nullptr;
    const Stopwatch watch;
    programImage(session, file, copy, chip);
    report.result["pages_written"] = file.image.pagesWithData();
    report.result["pages_blank"] = file.image.blankPages();
    report.result["seconds"] = watch.seconds();
    std::string text = "done: " + countText(file.image.pagesWithData(), "page") + " in " + secondsText(watch.seconds());
    if (file.image.blankPages() > 0) text += ", " + countText(file.image.blankPages(), "blank page") + " left erased";
    report.note(text);
}

}  // namespace

Run declareProgram(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "the Intel HEX file");
    return [options](Session& session) { program(session, *options); };
}

}  // namespace cli
