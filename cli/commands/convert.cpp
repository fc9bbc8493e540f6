#include <unistd.h>

#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/imageFile.h"
#include "cli/running/session.h"
#include "tavo/service/files.h"

namespace cli {
namespace {

struct Options {
    ImageArguments in;
    std::string out;
    std::string to = "auto";
    bool force = false;
};

tavo::ImageFile readAll(const ImageArguments& in) {
    tavo::ReadOptions reading = readOptions(in);
    reading.keepPieces = true;  // records stay as long and in the order they were
    reading.digest = false;
    tavo::ImageFile file = readImageFile(in.file, reading);
    if (file.isGood()) return file;
    const auto& fault = file.faults.front();
    throw tavo::Error(tavo::Problem::FileRefused,
                      inputName(in.file) + " cannot become a flash image: " + tavo::faultText(fault), fault.hint);
}

/// Standard output may be the file's.
void tell(Session& session, bool onError, const std::string& text) {
    if (!onError) return session.report.note(text);
    if (!session.options.quiet) console().line("tavo-util: " + text);
}

void convert(Session& session, const Options& options) {
    Report& report = session.report;
    const bool toOutput = isStandardStream(options.out);
    if (toOutput) requireFreeOutput(report);
    tavo::WriteOptions writing;
    writing.format = writtenFormat(options.out, options.to);
    std::unique_ptr<tavo::NewFile> out;
    if (!toOutput) out = std::make_unique<tavo::NewFile>(options.out, options.force);
    const tavo::ImageFile file = readAll(options.in);
    if (writing.format == tavo::Format::Hex) writing.pieces = file.pieces;
    const std::string pages = tavo::countText(file.image.touchedPages(), "page");
    report.result["changed"] = file.changes;
    report.result["pages"] = file.image.touchedPages();
    report.result["sha256"] = file.image.identity();
    if (session.options.dryRun) {
        report.line("would write " + options.out + ": " + pages);
    } else {
        const auto written =
            tavo::writeImage(file.image, out ? out->descriptor() : STDOUT_FILENO, outputName(options.out), writing);
        report.result["file_sha256"] = written.sha256;
        if (out) out->commit();
        tell(session, toOutput, options.out + ": " + pages + ", sha256 " + file.image.identity());
    }
    tell(session, toOutput, file.changes.empty() ? "nothing had to be changed" : conversionText(file));
}

}  // namespace

Run declareConvert(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    declareImage(arguments, "IN", kImageHelp, options->in);
    arguments.required("OUT", options->out,
                       "the file to write, told by its ending: .hex .srec .bin; - is standard output");
    arguments.choice("--to", "FORMAT", options->to, kWrittenFormats,
                     "what is written: auto (told by the name), hex, srec, bin");
    arguments.flag("-f,--force", options->force, "replace OUT if it exists");
    return [options](Session& session) { convert(session, *options); };
}

}  // namespace cli
