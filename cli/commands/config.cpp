#include <cstdio>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/commands/configurationChanges.h"
#include "cli/running/session.h"
#include "tavo/service/files.h"
#include "tavo/service/text.h"

namespace cli {
namespace {

using tavo::ConfigurationBlock;
using tavo::ConfigurationFields;

struct Options {
    std::string file;
    std::string serial;
    tavo::ConfigurationWriteOptions how;
    bool hex = false;
    bool force = false;
};

constexpr const char* kReplug = "unplug and replug to apply";
constexpr std::size_t kHexRow = 16;

// --- read

std::string idsText(const ConfigurationFields& fields) {
    char text[16];
    std::snprintf(text, sizeof text, "%04X:%04X", fields.vendorId, fields.productId);
    return text;
}

void tellFields(Report& report, const ConfigurationFields& fields) {
    report.result["serial"] = fields.serial;
    report.result["manufacturer"] = fields.manufacturer;
    report.result["product"] = fields.product;
    report.result["vid_pid"] = idsText(fields);
    report.result["scb0"] = fields.scb0;
    report.result["max_power_ma"] = fields.maxPowerMilliamperes;
    report.result["format"] = fields.format;
    report.result["checksum_ok"] = fields.checksumRight;
    report.line("serial        " + fields.serial);
    report.line("manufacturer  " + fields.manufacturer);
    report.line("product       " + fields.product);
    report.line("VID:PID       " + idsText(fields));
    report.line(std::string("SCB0          ") + fields.scb0);
    report.line("power         " + std::to_string(fields.maxPowerMilliamperes) + " mA");
    report.line("format        " + fields.format);
    report.line(std::string("checksum      ") + (fields.checksumRight ? "right" : "WRONG"));
    if (fields.whyBad.empty()) return;
    report.warning("the block is bad: " + fields.whyBad,
                   "a bad block can make a bridge vanish from USB; write a good one first");
}

void tellBytes(Report& report, const ConfigurationBlock& block) {
    for (std::size_t i = 0; i < block.size(); i += kHexRow) {
        report.line(offsetText(i) + "  " + tavo::hexText(&block[i], kHexRow));
    }
    report.result["hex"] = tavo::hexText(block.data(), block.size());
}

void read(Session& session, const Options& options) {
    Report& report = session.report;
    if (!options.file.empty() && !tavo::isConfigurationFileName(options.file)) {
        throw Failure{Exit::Usage, options.file + " does not end in .bin", "config write takes .bin files only", {}};
    }
    const ConfigurationBlock block = tavo::readConfiguration(session.device(), session.control());
    tellFields(report, tavo::fieldsOf(block));
    if (options.hex) tellBytes(report, block);
    if (options.file.empty()) return;
    if (session.options.dryRun) return report.note("no file written (--dry-run)");
    tavo::saveConfiguration(options.file, block, options.force);
    report.result["file"] = options.file;
    report.note("512 bytes in " + options.file);
}

// --- write

void write(Session& session, const Options& options) {
    const ConfigurationBlock image = tavo::loadConfiguration(options.file);
    const bool keeps = options.serial.empty();
    tavo::ConfigurationPlanOptions wanted{{}, options.file, options.force};
    if (!keeps) wanted.serial = options.serial;
    const auto plan = tavo::planConfiguration(session.device(), image, wanted, session.control());
    warnOfPendingSerial(session, plan);
    session.report.note(keeps ? "the device keeps its serial number " + plan.serial + "; --serial sets another"
                              : "the serial number becomes " + plan.serial);
    const std::string question = "write the block of " + options.file + " into " + session.deviceName();
    if (rewriteBlock(session, plan, options.how, question)) session.report.note(std::string("written; ") + kReplug);
}

void setSerial(Session& session, const Options& options) {
    const auto plan = tavo::planSerialNumber(session.device(), options.serial, session.control());
    session.report.result["before"] = tavo::fieldsOf(plan.before).serial;
    session.report.result["after"] = options.serial;
    const std::string question = "set the serial number of " + session.deviceName() + " to " + options.serial;
    if (!rewriteBlock(session, plan, options.how, question)) return;
    session.report.note("serial number: " + options.serial + "; " + kReplug +
                        " (the name of the LDV channel follows it)");
}

// --- diff

void diff(Session& session, const Options& options) {
    const ConfigurationBlock image = tavo::loadConfiguration(options.file);
    const auto plan = tavo::planConfiguration(session.device(), image, {{}, "", true}, session.control());
    const std::string bad = tavo::fieldsOf(image).whyBad;
    if (!bad.empty()) session.report.warning(options.file + ": " + bad);
    const std::size_t count = showChanges(session.report, plan);
    session.report.note(
        "compared as config write would write it: with the device's own serial number and the checksum made anew");
    if (count == 0) return session.report.line("equal");
    throw Failure{Exit::Differs,
                  "the block of " + session.deviceName() + " and " + options.file + " differ in " +
                      tavo::countText(count, "byte"),
                  "",
                  {}};
}

}  // namespace

Run declareConfigRead(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.optional("FILE", options->file, "write the 512 bytes to this .bin file");
    arguments.isOutput(options->file);
    arguments.flag("--hex", options->hex, "show the bytes");
    arguments.flag("-f,--force", options->force, "replace an existing file");
    return [options](Session& session) { read(session, *options); };
}

Run declareConfigWrite(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "configuration block: 512 bytes, named .bin");
    arguments.text("--serial", "TEXT", options->serial, "a new serial number (default: the device's own is kept)");
    arguments.flag("--force-block", options->force, "also a block without signature or with a wrong checksum");
    arguments.asksTogether([options] { return "make " + options->file + " the configuration block"; });
    addBackup(arguments, options->how);
    return [options](Session& session) { write(session, *options); };
}

Run declareConfigSetSerial(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("SERIAL", options->serial, "1 to 32 printable ASCII characters");
    arguments.asksTogether([options] { return "make " + options->serial + " the serial number"; });
    addBackup(arguments, options->how);
    return [options](Session& session) { setSerial(session, *options); };
}

Run declareConfigDiff(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "configuration block: 512 bytes, named .bin");
    return [options](Session& session) { diff(session, *options); };
}

}  // namespace cli
