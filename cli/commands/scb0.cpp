#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/configurationChanges.h"
#include "cli/running/session.h"

namespace cli {
namespace {

struct Options {
    std::string mode;
    tavo::ConfigurationWriteOptions how;
};

void scb0(Session& session, const Options& options) {
    Report& report = session.report;
    const auto role = options.mode == "spi" ? tavo::Scb0Role::Spi : tavo::Scb0Role::I2c;
    const auto plan = tavo::planScb0(session.device(), role, session.control());
    warnOfPendingSerial(session, plan);
    const std::string before = tavo::fieldsOf(plan.before).scb0;
    const std::string after = tavo::fieldsOf(plan.after).scb0;
    report.result["before"] = before;
    report.result["after"] = after;
    report.line("SCB0: " + before + " -> " + after);
    if (role == tavo::Scb0Role::I2c) report.note("as I2C the flash is out of reach until scb0 spi");
    const std::string question = "switch SCB0 of " + session.deviceName() + " to " + after;
    if (rewriteBlock(session, plan, options.how, question)) report.note("written; unplug and replug to apply");
}

}  // namespace

Run declareScb0(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.word("MODE", options->mode, {"spi", "i2c"}, "spi: the flash can be reached; i2c");
    addBackup(arguments, options->how);
    arguments.asksTogether([options] { return "make " + options->mode + " the role of SCB0"; });
    return [options](Session& session) { scb0(session, *options); };
}

}  // namespace cli
