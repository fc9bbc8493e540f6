#include <cmath>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/imageFile.h"
#include "cli/commands/keptBackup.h"
#include "cli/commands/programmed.h"
#include "cli/commands/range.h"
#include "cli/running/session.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

struct Options {
    ImageArguments image;
    RangeArguments range;
    bool convert = false;
    std::string html;
    tavo::ProgramOptions how;
};

std::string steps(const Session& session, const Options& options, const tavo::ProgramForecast& forecast) {
    std::string text = "would ";
    if (!options.how.full) text += "read the flash, leave it alone if it holds just this image, else ";
    if (!options.how.backup.empty()) text += "save the flash in " + options.how.backup + ", ";
    text += options.how.full   ? "erase the whole flash of "
            : options.how.keep ? "erase what must be erased of "
                               : "erase the whole flash or what must be erased of ";
    const std::string part = options.how.range ? " in " + rangeText(*options.how.range) : "";
    return text + session.deviceName() + ", then program and verify " + (options.how.full ? "" : "up to ") +
           countText(forecast.pagesWritten, "page") + part + " (" + std::to_string(forecast.pagesBlank) + " blank)";
}

void tellPlan(Session& session, const Options& options, const tavo::ImageFile& file) {
    const tavo::ProgramForecast forecast = tavo::forecastProgram(file.image, options.how);
    Report& report = session.report;
    report.result["planned"] = forecast.steps;
    report.result["pages_written"] = 0;
    report.result["pages_planned"] = forecast.pagesWritten;
    report.result["pages_blank"] = forecast.pagesBlank;
    report.result["estimated_seconds"] = forecast.seconds;
    report.result["estimated_seconds_least"] = forecast.leastSeconds;
    report.result["estimated_seconds_sector"] = forecast.sectorSeconds;
    report.result["estimated_chip_size"] = forecast.chipSize;
    report.line(steps(session, options, forecast));
    report.line(std::string(options.how.keep ? "every sector of the file" : "the whole erase and every page") +
                ": about " + secondsText(std::ceil(forecast.seconds)) + " on a chip of " + sizeText(forecast.chipSize) +
                ", the smallest that holds it");
    if (!options.how.full) {
        report.line("by sectors: about " + secondsText(std::ceil(forecast.leastSeconds)) +
                    " to look at such a chip, longer at a larger one, and " + secondsText(forecast.sectorSeconds) +
                    " for each 4 KiB to be changed");
    }
    report.line("nothing was done (--dry-run)");
}

void program(Session& session, Options& options) {
    session.openPage(options.html, "program " + inputName(options.image.file));
    options.how.range = takeRange(session, options.range);
    options.how.keep = options.how.keep || options.how.range;
    const auto file = readImage(session, options.image);
    options.how.imageOptions = optionsText(options.image);
    if (options.how.range)
        options.how.imageOptions +=
            (options.how.imageOptions.empty() ? "--range " : " --range ") + rangeText(*options.how.range);
    const tavo::AddressRange all{0, tavo::kAddressable - 1};
    const tavo::Image wanted = file->image.part(options.how.range.value_or(all));
    if (session.hasPage()) session.job.map = tavo::mapImage(wanted);
    if (!isStandardStream(options.image.file)) options.how.imageName = options.image.file;
    options.how.file = file.get();
    if (session.options.dryRun) return tellPlan(session, options, *file);
    session.report.result["backup"] = nullptr;
    const auto done = tavo::programFlash(session.device(), file->image, options.how, session.control());
    session.report.state = done.state;
    tellProgrammed(session, done);
    if (options.how.full && done.backup.empty() && !options.how.noBackup)
        session.report.note("what was there before is not kept, as it was not read; --backup OUT reads it");
    if (!session.hasPage()) return;
    session.job.map = tavo::mapImage(wanted, done.chip.size);
    session.job.device = tavo::deviceFacts(session.device().description(), &done.chip);
    session.job.work = tavo::programFacts(done);
}

}  // namespace

void tellProgrammed(Session& session, const tavo::ProgramResult& done) {
    Report& report = session.report;
    report.result["plan"] = programWayName(done.way);
    report.result["pages_written"] = done.pagesWritten;
    report.result["pages_kept"] = done.pagesKept;
    report.result["sectors_erased"] = done.sectorsErased;
    if (done.upToDate) {
        report.result["up_to_date"] = true;
        return session.conclude("already up to date: nothing erased, nothing written");
    }
    report.result["pages_blank"] = done.pagesBlank;
    report.result["retries"] = done.retries;
    report.result["seconds"] = done.seconds;
    if (!done.backup.empty()) {
        report.result["backup"] = done.backup;
        report.result["backup_sha256"] = done.backupSha256;
        report.note("backup: " + sizeText(done.chip.size) + " in " + done.backup + ", sha256 " + done.backupSha256);
    }
    const bool isBySectors = done.way != tavo::ProgramWay::Full;
    const std::string erased = !isBySectors             ? ""
                               : done.sectorsErased > 0 ? ", " + countText(done.sectorsErased, "sector") + " erased"
                                                        : ", nothing had to be erased";
    const std::string all = done.pagesKept > 0 ? std::to_string(done.pagesWritten) + " of " : "";
    session.conclude("done: " + all + countText(done.pagesWritten + done.pagesKept, "page") + " written" + erased +
                     " in " + secondsText(done.seconds) +
                     (done.pagesBlank > 0 ? ", " + countText(done.pagesBlank, "blank page") + " left erased" : ""));
}

Run declareProgram(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    declareImage(arguments, "FILE", kImageHelp, options->image);
    arguments.flag("--full", options->how.full, "erase the whole flash and program every page, without looking first");
    arguments.flag("--keep", options->how.keep, "leave everything outside FILE as it is, not erased");
    declareRange(arguments, "program only that part of FILE, and leave everything else as it is", options->range);
    arguments.flag("--if-different", options->how.ifDifferent,
                   "leave the flash alone if it holds just this image; done anyway without --full");
    arguments.text("--backup", "OUT", options->how.backup,
                   "save the whole flash in OUT before the erase; {serial} is replaced");
    arguments.isOutput(options->how.backup);
    arguments.flag("--no-backup", options->how.noBackup, kNoBackupHelp);
    declareClock(arguments, options->how.clockHz);
    arguments.flag("--convert", options->convert, "what is done anyway; kept for scripts");
    arguments.page(options->html);
    return [options](Session& session) { program(session, *options); };
}

}  // namespace cli
