#include <memory>

#include "cli/commands/commands.h"
#include "cli/configurationBlock.h"
#include "tavo/bridge.h"

namespace cli {
namespace {

struct Options {
    std::string mode;
    std::string backup;
};

void scb0(Session& session, const Options& options) {
    const bool spi = options.mode == "spi";
    Rewrite rewrite{readBlock(session), {}, options.backup, "", "switch SCB0", {}};
    warnOfPendingSerial(session, rewrite.before);
    rewrite.after = rewrite.before;
    configBlock::setScb0(rewrite.after, spi);
    configBlock::finish(rewrite.after, session.info().serialNumber.text);
    session.report.result["before"] = scb0Name(rewrite.before);
    session.report.result["after"] = scb0Name(rewrite.after);
    session.report.line(std::string("SCB0: ") + scb0Name(rewrite.before) + " -> " + scb0Name(rewrite.after));
    if (!spi) session.report.note("as I2C the flash is out of reach until scb0 spi");
    rewrite.question = "switch SCB0 of " + session.deviceName() + " to " + scb0Name(rewrite.after);
    rewrite.write = [&] { return configureScb0(session.info(), spi ? SCB0_SPI : SCB0_I2C); };
    if (rewriteBlock(session, rewrite)) session.report.note("written; unplug and replug to apply");
}

}  // namespace

Run declareScb0(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.word("MODE", options->mode, {"spi", "i2c"}, "spi: the flash can be reached; i2c");
    arguments.text("--backup", "FILE", options->backup,
                   "where the block that was there is saved (default: a new name)");
    arguments.isOutput(options->backup);
    return [options](Session& session) { scb0(session, *options); };
}

}  // namespace cli
