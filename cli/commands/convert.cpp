#include <memory>

#include "cli/commands/commands.h"
#include "cli/running/session.h"
#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"

namespace cli {
namespace {

struct Options {
    std::string in;
    std::string out;
    bool force = false;
};

tavo::ImageFile readAll(const std::string& path) {
    tavo::ReadOptions reading;
    reading.keepPieces = true;  // records stay as long and in the order they were
    reading.digest = false;
    tavo::ImageFile file = tavo::checkImage(path, reading);
    if (file.isGood()) return file;
    const auto& fault = file.faults.front();
    throw tavo::Error(tavo::Problem::FileRefused, path + " cannot become a flash image: " + tavo::faultText(fault),
                      fault.hint);
}

void convert(Session& session, const Options& options) {
    tavo::NewFile out(options.out, options.force);
    const tavo::ImageFile file = readAll(options.in);
    tavo::WriteOptions writing;
    writing.format = tavo::formatByName(options.out);
    if (writing.format == tavo::Format::Automatic || writing.format == tavo::Format::Elf) {
        writing.format = tavo::Format::Hex;
    }
    if (writing.format == tavo::Format::Hex) writing.pieces = file.pieces;
    const auto written = tavo::writeImage(file.image, out.descriptor(), options.out, writing);
    Report& report = session.report;
    const std::string pages = tavo::countText(file.image.touchedPages(), "page");
    report.result["changed"] = file.changes;
    report.result["pages"] = file.image.touchedPages();
    report.result["sha256"] = written.sha256;
    if (session.options.dryRun) {
        report.line("would write " + options.out + ": " + pages);
    } else {
        out.commit();
        report.note(options.out + ": " + pages + ", sha256 " + written.sha256);
    }
    for (const auto& change : file.changes) report.note("  " + change);
    if (file.changes.empty()) report.note("  nothing had to be changed");
}

}  // namespace

Run declareConvert(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("IN", options->in, "an image: Intel HEX, S-record, ELF, gzip of them, or .bin");
    arguments.required("OUT", options->out, "the file to write: Intel HEX, or by its ending .s19 .srec .bin");
    arguments.flag("-f,--force", options->force, "replace OUT if it exists");
    return [options](Session& session) { convert(session, *options); };
}

}  // namespace cli
