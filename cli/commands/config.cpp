#include <cstdio>
#include <memory>

#include "cli/commands/commands.h"
#include "cli/configurationBlock.h"
#include "tavo/Configurator.h"
#include "tavo/bridge.h"

namespace cli {
namespace {

struct Options {
    std::string file;
    std::string serial;
    std::string backup;
    bool hex = false;
    bool force = false;
};

constexpr const char* kReplug = "unplug and replug to apply";
constexpr const char* kVanishes = "a bad block can make a bridge vanish from USB";
constexpr std::size_t kHexRow = 16;

void requirePrintable(const std::string& serial) {
    SerialNumber number;
    if (number.fromStringWithoutPrefix(serial.c_str())) return;
    throw Failure{Exit::Usage, "'" + serial + "' cannot be a serial number", "1 to 32 printable ASCII characters", {}};
}

// --- read

std::string idsText(const Block& block) {
    char text[16];
    std::snprintf(text, sizeof text, "%04X:%04X", shortIn(block, configBlock::kVendorId),
                  shortIn(block, configBlock::kProductId));
    return text;
}

void tellFields(Session& session, const Block& block) {
    Report& report = session.report;
    const unsigned char* format = &block[configBlock::kFormat.offset];
    const std::string version =
        std::to_string(format[0]) + "." + std::to_string(format[1]) + "." + std::to_string(format[2]);
    const unsigned milliamperes = 2u * block[configBlock::kMaxPower.offset];
    const std::string bad = whyBad(block);
    const bool checksumRight = configBlock::storedChecksum(block.data()) == configBlock::checksum(block.data());
    report.result["serial"] = stringIn(block, configBlock::kSerial);
    report.result["manufacturer"] = stringIn(block, configBlock::kManufacturer);
    report.result["product"] = stringIn(block, configBlock::kProduct);
    report.result["vid_pid"] = idsText(block);
    report.result["scb0"] = scb0Name(block);
    report.result["max_power_ma"] = milliamperes;
    report.result["format"] = version;
    report.result["checksum_ok"] = checksumRight;
    report.line("serial        " + stringIn(block, configBlock::kSerial));
    report.line("manufacturer  " + stringIn(block, configBlock::kManufacturer));
    report.line("product       " + stringIn(block, configBlock::kProduct));
    report.line("VID:PID       " + idsText(block));
    report.line(std::string("SCB0          ") + scb0Name(block));
    report.line("power         " + std::to_string(milliamperes) + " mA");
    report.line("format        " + version);
    report.line(std::string("checksum      ") + (checksumRight ? "right" : "WRONG"));
    if (!bad.empty()) report.warning("the block is bad: " + bad, std::string(kVanishes) + "; write a good one first");
}

void read(Session& session, const Options& options) {
    if (!options.file.empty() && !checkFileExtension(options.file, "bin")) {
        throw Failure{Exit::Usage, options.file + " does not end in .bin", "config write takes .bin files only", {}};
    }
    const Block block = readBlock(session);
    tellFields(session, block);
    if (options.hex) {
        for (std::size_t i = 0; i < block.size(); i += kHexRow) {
            session.report.line(offsetText(i) + "  " + hexText(&block[i], kHexRow));
        }
        session.report.result["hex"] = hexText(block.data(), block.size());
    }
    if (options.file.empty()) return;
    if (session.options.dryRun) {
        session.report.note("no file written (--dry-run)");
        return;
    }
    storeBlock(options.file, block, options.force);
    session.report.result["file"] = options.file;
    session.report.note("512 bytes in " + options.file);
}

// --- write

void requireGood(const Options& options, const Block& block) {
    const std::string bad = whyBad(block);
    if (bad.empty() || options.force) return;
    throw Failure{Exit::FileRefused,
                  options.file + " refused: " + bad + "; " + kVanishes,
                  "take a block saved with tavo-util config read; --force-block writes it all the same",
                  {}};
}

void write(Session& session, const Options& options) {
    if (!options.serial.empty()) requirePrintable(options.serial);
    const Block image = loadBlock(options.file);
    requireGood(options, image);
    const bool keeps = options.serial.empty();
    const char* serial = keeps ? nullptr : options.serial.c_str();
    Rewrite rewrite{readBlock(session), image, options.backup, "", "write the configuration block", {}};
    if (keeps) warnOfPendingSerial(session, rewrite.before);
    configBlock::finish(rewrite.after, keeps ? session.info().serialNumber.text : serial);
    session.report.note(keeps ? std::string("the device keeps its serial number ") + session.info().serialNumber.text +
                                    "; --serial sets another"
                              : "the serial number becomes " + options.serial);
    rewrite.question = "write the block of " + options.file + " into " + session.deviceName();
    // The bytes that were checked, not the file once more.
    rewrite.write = [&] { return cypressToTavo(Configurator(session.info()).writeConfigData(image.data(), serial)); };
    if (rewriteBlock(session, rewrite)) session.report.note(std::string("written; ") + kReplug);
}

void setSerial(Session& session, const Options& options) {
    requirePrintable(options.serial);
    Rewrite rewrite{readBlock(session), {}, options.backup, "", "set the serial number", {}};
    rewrite.after = rewrite.before;
    configBlock::finish(rewrite.after, options.serial.c_str());
    session.report.result["before"] = stringIn(rewrite.before, configBlock::kSerial);
    session.report.result["after"] = options.serial;
    rewrite.question = "set the serial number of " + session.deviceName() + " to " + options.serial;
    rewrite.write = [&] { return updateCypressConfig(session.info(), nullptr, options.serial.c_str()); };
    if (!rewriteBlock(session, rewrite)) return;
    session.report.note("serial number: " + options.serial + "; " + kReplug +
                        " (the name of the LDV channel follows it)");
}

// --- diff

void diff(Session& session, const Options& options) {
    const Block image = loadBlock(options.file);
    const Block before = readBlock(session);
    Block after = image;
    configBlock::finish(after, session.info().serialNumber.text);
    if (const std::string bad = whyBad(image); !bad.empty()) session.report.warning(options.file + ": " + bad);
    session.report.result["changed"] = changesJson(before, after);
    const std::size_t count = showChanges(session.report, before, after);
    session.report.note(
        "compared as config write would write it: with the device's own serial number and the checksum made anew");
    if (count > 0) {
        throw Failure{
            Exit::Differs,
            "the block of " + session.deviceName() + " and " + options.file + " differ in " + countText(count, "byte"),
            "",
            {}};
    }
    session.report.line("equal");
}

void addBackup(Arguments& arguments, Options& options) {
    arguments.text("--backup", "FILE", options.backup, "where the block that was there is saved (default: a new name)");
    arguments.isOutput(options.backup);
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
    addBackup(arguments, *options);
    return [options](Session& session) { write(session, *options); };
}

Run declareConfigSetSerial(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("SERIAL", options->serial, "1 to 32 printable ASCII characters");
    addBackup(arguments, *options);
    return [options](Session& session) { setSerial(session, *options); };
}

Run declareConfigDiff(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.required("FILE", options->file, "configuration block: 512 bytes, named .bin");
    return [options](Session& session) { diff(session, *options); };
}

}  // namespace cli
