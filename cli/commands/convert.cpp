#include <memory>

#include "cli/commands/commands.h"
#include "cli/hexConvert.h"
#include "cli/hexImage.h"
#include "cli/session.h"

namespace cli {
namespace {

struct Options {
    std::string in;
    std::string out;
    bool force = false;
};

void convert(Session& session, const Options& options) {
    NewFile out(options.out, options.force);
    const auto changes = convertHex(options.in, out.descriptor(), options.out);
    const HexFile made = readHexFile(out.temporaryPath(), {}, nullptr);
    if (!made.isGood()) {
        // Lines of the result would mislead: the text names the address.
        throw Failure{Exit::FileRefused,
                      options.in + " cannot become a flash image: " + made.faults.front().text,
                      made.faults.front().remedy,
                      {}};
    }
    Report& report = session.report;
    report.result["changed"] = changes;
    report.result["pages"] = made.touchedPages();
    report.result["sha256"] = made.sha256;
    if (session.options.dryRun) {
        report.line("would write " + options.out + ": " + countText(made.touchedPages(), "page"));
    } else {
        out.commit();
        report.note(options.out + ": " + countText(made.touchedPages(), "page") + ", sha256 " + made.sha256);
    }
    for (const auto& change : changes) report.note("  " + change);
    if (changes.empty()) report.note("  nothing had to be changed");
}

}  // namespace

Run declareConvert(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("IN", options->in, "any valid Intel HEX file");
    arguments.required("OUT", options->out, "the file to write");
    arguments.flag("-f,--force", options->force, "replace OUT if it exists");
    return [options](Session& session) { convert(session, *options); };
}

}  // namespace cli
