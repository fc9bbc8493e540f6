#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

#include "cli/commands/commands.h"
#include "cli/flashAccess.h"
#include "cli/flashRead.h"
#include "cli/hexConvert.h"
#include "cli/session.h"
#include "tavo/flash.h"
#include "tavo/service/device.h"

namespace cli {
namespace {

struct Options {
    std::string file;
    bool convert = false;
    bool ifDifferent = false;
    std::string backup;
};

constexpr const char* kProgramAgain = "program the image again before the interface is used";

constexpr const char* kOtherName = "choose another name: a backup is never overwritten";

// A page program with its verification on a 900 kHz SPI bus, and the library's fixed waits.
constexpr double kSecondsPerPage = 0.0066;
constexpr double kFixedSeconds = 1.7;

/// Checks the file and leaves in copy the text that was checked: that, and nothing that somebody
/// writes into the file afterwards, is what gets programmed.
HexFile checkFile(Session& session, const Options& options, const PrivateFile& copy) {
    session.progress.begin("check");
    if (options.convert) {
        const auto changes = convertHex(options.file, copy.descriptor(), "the temporary file");
        session.report.result["changed"] = changes;
        for (const auto& change : changes) session.report.note("converted: " + change);
    }
    HexFile file = options.convert ? readHexFile(copy.path(), {}, nullptr) : readHexFile(options.file, {}, &copy);
    if (!file.isGood()) throw refusal(options.file, file);
    session.progress.end(countText(file.touchedPages(), "page"));
    return file;
}

void tellPlan(Session& session, const HexFile& file) {
    Report& report = session.report;
    const double seconds = kFixedSeconds + kSecondsPerPage * file.image.pagesWithData();
    report.result["planned"] = Json::array({"erase", "program", "verify"});
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
    session.report.state.flash = FlashState::Uncertain;
    if (status == TAVO_FILE_NOT_FOUND) session.report.state.flash = FlashState::Erased;
    if (status == TAVO_FLASH_PROGRAMMING_FAILED) {
        session.report.state.flash = FlashState::Incomplete;
        if (!session.libraryErrors().empty()) failure.text += ": " + session.libraryErrors();
    }
    // The library gives a page up after three attempts, whatever the reason was.
    if (!tavo::isStillAttached(session.info().portPath)) {
        failure.text += ": the interface is no longer attached";
        failure.hint = std::string("plug it in again, then ") + kProgramAgain;
    }
    return failure;
}

/// What the program phase counts, until it begins: with the library's first report, which comes
/// after the first page and so ends the erase.
std::optional<Measure> pendingMeasure;
Progress* shown = nullptr;  ///< of the running command: the library's callback has no context

void onProgramProgress(char percent) {
    throwIfInterrupted();
    if (pendingMeasure) shown->begin("program", "", *std::exchange(pendingMeasure, std::nullopt));
    shown->share(percent);
}

void programImage(Session& session, const HexFile& file, const PrivateFile& copy, const FlashChip& chip) {
    Report& report = session.report;
    session.progress.begin("erase", usualEraseTime(chip.size));
    session.progress.setStopNote("Ctrl-C noted: a chip erase cannot be stopped, waiting for its end");
    const auto status = session.tryCall("program the flash", [&] {
        shown = &session.progress;
        pendingMeasure = {file.image.byteCount(),
                          [&](int percent) { return file.bytesAtPercent[static_cast<std::size_t>(percent)]; }};
        report.state.flash = FlashState::Uncertain;
        try {
            return programSpiFlash(session.info(), copy.path().c_str(), onProgramProgress);
        } catch (const Interrupted&) {
            report.state.flash = FlashState::Incomplete;  // the callback comes after a page
            throw;
        }
    });
    if (status != TAVO_SUCCESS) throw programFailure(session, status);
    report.state.flash = FlashState::Programmed;
    session.progress.end();
    session.progress.begin("verify");
    session.progress.end("every page was read back and compared right after it was programmed");
}

/// @return true when the chip holds just what programming would leave in it.
bool isUpToDate(const HexFile& file, const Image& chipImage, const FlashChip& chip) {
    return compare(file.image, chipImage, chip.size, true).equal();
}

/// What is in the chip now, as far as the options want to know: read once for both of them.
/// @return false when the image is there already.
bool lookBefore(Session& session, const Options& options, const HexFile& file, const FlashChip& chip, NewFile* backup) {
    if (backup == nullptr && !options.ifDifferent) return true;
    requireAddressable(chip);
    const Image before = backup == nullptr ? readChip(session, chip)
                                           : dumpChip(session, chip, "backup", backup->descriptor(),
                                                      backup->temporaryPath(), options.backup);
    if (options.ifDifferent && isUpToDate(file, before, chip)) return false;
    if (backup == nullptr) return true;
    backup->commit();
    session.report.result["backup"] = options.backup;
    session.report.note("backup: " + sizeText(chip.size) + " in " + options.backup + ", sha256 " +
                        sha256Of(before, chip.size));
    return true;
}

void tellDone(Session& session, const HexFile& file, double seconds) {
    Report& report = session.report;
    const auto pages = file.image.pagesWithData();
    const auto blank = file.image.blankPages();
    report.result["pages_written"] = pages;
    report.result["pages_blank"] = blank;
    report.result["seconds"] = seconds;
    report.note("done: " + countText(pages, "page") + " in " + secondsText(seconds) +
                (blank > 0 ? ", " + countText(blank, "blank page") + " left erased" : ""));
}

void tellUpToDate(Session& session) {
    session.report.result["pages_written"] = 0;
    session.report.result["up_to_date"] = true;
    session.report.note("already up to date: nothing erased, nothing written");
}

void program(Session& session, const Options& options) {
    const PrivateFile copy;
    const HexFile file = checkFile(session, options, copy);
    if (session.options.dryRun) return tellPlan(session, file);
    // Before the device is touched: a backup that cannot be written must not cost the Neuron a restart.
    std::unique_ptr<NewFile> backup;
    if (!options.backup.empty()) backup = std::make_unique<NewFile>(options.backup, false, kOtherName);
    session.report.result["sha256"] = file.sha256;
    session.report.result["backup"] = nullptr;
    const Stopwatch watch;
    const FlashChip chip = inspectFlash(session);
    requireFits(options.file, file, copy, chip);
    if (!lookBefore(session, options, file, chip, backup.get())) return tellUpToDate(session);
    programImage(session, file, copy, chip);
    tellDone(session, file, watch.seconds());
}

}  // namespace

Run declareProgram(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "the Intel HEX file");
    arguments.flag("--if-different", options->ifDifferent,
                   "read the flash first; leave it alone if it holds just this image");
    arguments.text("--backup", "OUT", options->backup,
                   "save the whole flash in OUT before the erase; {serial} is replaced");
    arguments.isOutput(options->backup);
    arguments.flag("--convert", options->convert, "convert the file on the way, as the command convert does");
    return [options](Session& session) { program(session, *options); };
}

}  // namespace cli
