#include <unistd.h>

#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/imageFile.h"
#include "cli/commands/range.h"
#include "cli/running/session.h"
#include "tavo/service/files.h"
#include "tavo/service/flash.h"

namespace cli {
namespace {

struct Options {
    std::string file;
    std::string format = "auto";
    RangeArguments range;
    std::optional<int> clockHz;
    bool force = false;
};

void dump(Session& session, const Options& options) {
    Report& report = session.report;
    const bool toOutput = isStandardStream(options.file);
    if (toOutput) requireFreeOutput(report);
    tavo::WriteOptions how;
    how.format = writtenFormat(options.file, options.format);
    tavo::ReadFlashOptions reading;
    reading.clockHz = options.clockHz;
    reading.range = takeRange(session, options.range);
    if (reading.range) how.address = reading.range->first;
    if (session.options.dryRun) {
        report.note("would read " + partText(reading.range) + " of " + session.deviceName() + " into " + options.file);
        return;
    }
    std::unique_ptr<tavo::NewFile> out;
    if (!toOutput) out = std::make_unique<tavo::NewFile>(options.file, options.force);
    const auto read = tavo::readFlash(session.device(), reading, session.control());
    session.report.state = read.state;
    tavo::writeImage(read.contents, toOutput ? STDOUT_FILENO : out->descriptor(), outputName(options.file), how);
    if (toOutput) return;
    out->commit();
    const std::string sha256 = read.contents.identity();
    report.result["file"] = options.file;
    report.result["bytes"] = read.contents.byteCount();
    report.result["sha256"] = sha256;
    const std::string part = reading.range ? " (" + rangeText(*reading.range) + ")" : "";
    report.note(sizeText(read.contents.byteCount()) + part + " in " + options.file + ", sha256 " + sha256);
    if (reading.range && how.format == tavo::Format::Binary)
        report.note("a raw binary has no addresses: --address " + hexAddress(how.address) + " puts it back there");
}

}  // namespace

Run declareDump(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file,
                       "the file to write: Intel HEX, .srec S-record, .bin raw binary, - standard output; {serial} "
                       "stands for the serial number");
    arguments.isOutput(options->file);
    arguments.choice("--format", "FORMAT", options->format, kWrittenFormats,
                     "what is written: auto (told by the name), hex, srec, bin");
    declareRange(arguments, "copy only a part", options->range);
    arguments.flag("-f,--force", options->force, "replace FILE if it exists");
    declareClock(arguments, options->clockHz);
    return [options](Session& session) { dump(session, *options); };
}

}  // namespace cli
