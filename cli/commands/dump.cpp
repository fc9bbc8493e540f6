#include <memory>

#include "cli/commands/commands.h"
#include "cli/flashRead.h"
#include "cli/session.h"

namespace cli {
namespace {

struct Options {
    std::string file;
    bool force = false;
};

void dump(Session& session, const Options& options) {
    Report& report = session.report;
    if (session.options.dryRun) {
        report.note("would read the whole flash of " + session.deviceName() + " into " + options.file);
        return;
    }
    NewFile out(options.file, options.force);
    const FlashChip chip = inspectFlash(session);
    requireAddressable(chip);
    const Image image = dumpChip(session, chip, "dump", out.descriptor(), out.temporaryPath(), options.file);
    out.commit();
    const std::string sha256 = sha256Of(image, chip.size);
    report.result["file"] = options.file;
    report.result["bytes"] = chip.size;
    report.result["sha256"] = sha256;
    report.note(sizeText(chip.size) + " in " + options.file + ", sha256 " + sha256);
}

}  // namespace

Run declareDump(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "the Intel HEX file to write; {serial} stands for the serial number");
    arguments.isOutput(options->file);
    arguments.flag("-f,--force", options->force, "replace FILE if it exists");
    return [options](Session& session) { dump(session, *options); };
}

}  // namespace cli
