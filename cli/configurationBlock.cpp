#include "cli/configurationBlock.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "cli/files.h"
#include "tavo/bridge.h"

namespace cli {
namespace {

using configBlock::Field;

struct NamedField {
    Field field;
    const char* name;
};
constexpr NamedField kFields[] = {{configBlock::kSignature, "signature"},
                                  {configBlock::kFormat, "format"},
                                  {configBlock::kChecksum, "checksum"},
                                  {configBlock::kScb0Mode, "SCB0 mode"},
                                  {configBlock::kScb0Protocol, "SCB0 protocol"},
                                  {configBlock::kScb0Settings, "SCB0 settings"},
                                  {configBlock::kVendorId, "vendor ID"},
                                  {configBlock::kProductId, "product ID"},
                                  {configBlock::kMaxPower, "power"},
                                  {configBlock::kSerialPresent, "serial number present"},
                                  {configBlock::kManufacturer, "manufacturer"},
                                  {configBlock::kProduct, "product"},
                                  {configBlock::kSerial, "serial number"}};

constexpr const char* kScb0Names[] = {"none", "UART", "SPI", "I2C"};

const char* nameAt(std::size_t offset) {
    for (const auto& [field, name] : kFields) {
        if (offset >= field.offset && offset < field.end()) return name;
    }
    return "";
}

std::string hexWord(std::uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", word);
    return text;
}

/// A name that no file has yet: the serial number and the local time, and a count if need be.
std::string backupName(const DeviceInfo& device) {
    std::string serial = device.serialNumber.text;
    std::replace_if(
        serial.begin(), serial.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char time[32];
    std::strftime(time, sizeof time, "%Y%m%d-%H%M%S", &local);
    const std::string name = "config-" + serial + "-" + time;
    std::string path = name + ".bin";
    for (int i = 2; std::filesystem::exists(path); ++i) path = name + "-" + std::to_string(i) + ".bin";
    return path;
}

TAVO_STATUS readInto(Session& session, Block& block) {
    return readConfigData(session.info(), *reinterpret_cast<unsigned char(*)[configBlock::kSize]>(block.data()));
}

constexpr const char* kKeepPlugged = "do not unplug the interface; write the old block first: tavo-util config write ";

/// A failed request may have come before or after the change: the bridge is asked what it holds.
[[noreturn]] void fail(Session& session, const Rewrite& rewrite, const std::string& backup, Failure failure) {
    Block now{};
    const bool known = session.tryCall("read the block back", [&] { return readInto(session, now); }) == TAVO_SUCCESS;
    if (known && now == rewrite.before) {
        session.report.stateText = "configuration block unchanged";
    } else if (known && now == rewrite.after) {
        session.report.stateText = "configuration block written all the same";
    } else {
        session.report.stateText = "configuration block not known: it may be damaged";
        failure.hint = kKeepPlugged + backup;
    }
    throw failure;
}

void checkWritten(Session& session, const Rewrite& rewrite, const std::string& backup) {
    const Block now = readBlock(session);
    if (now == rewrite.after) return;
    session.report.stateText = "configuration block not as written";
    throw Failure{Exit::FailedUnchanged,
                  "the bridge of " + session.deviceName() + " took the block and holds another one",
                  kKeepPlugged + backup,
                  {}};
}

}  // namespace

Block readBlock(Session& session) {
    Block block{};
    session.call(Side::Bridge, "read the configuration block", [&] { return readInto(session, block); });
    return block;
}

Block loadBlock(const std::string& path) {
    const Descriptor file = openForReading(path);
    if (!checkFileExtension(path, "bin")) {
        throw Failure{Exit::FileRefused, path + " refused: not a .bin file", "rename the file to end in .bin", {}};
    }
    Block block{};
    if (sizeOf(file) != block.size()) {
        throw Failure{Exit::FileRefused,
                      path + " refused: it has " + sizeText(sizeOf(file)),
                      "a configuration file has exactly 512 bytes",
                      {}};
    }
    if (read(file.get(), block.data(), block.size()) != static_cast<ssize_t>(block.size())) {
        throw fileFailure("read " + path, errno);
    }
    return block;
}

void storeBlock(const std::string& path, const Block& block, bool replace) {
    NewFile file(path, replace);
    writeAll(file.descriptor(), reinterpret_cast<const char*>(block.data()), block.size(), path);
    file.commit();
}

std::string whyBad(const Block& block) {
    if (std::memcmp(block.data(), configBlock::kSignatureText, configBlock::kSignature.size) != 0) {
        return "the signature CYUS is missing";
    }
    const std::uint32_t stored = configBlock::storedChecksum(block.data());
    const std::uint32_t right = configBlock::checksum(block.data());
    if (stored != right) return "its checksum is " + hexWord(stored) + ", not " + hexWord(right);
    return "";
}

const char* scb0Name(const Block& block) {
    const unsigned mode = block[configBlock::kScb0Mode.offset];
    return mode < std::size(kScb0Names) ? kScb0Names[mode] : "unknown";
}

std::string stringIn(const Block& block, const Field& descriptor) {
    const std::size_t length = std::min<std::size_t>(block[descriptor.offset], descriptor.size);
    std::string text;
    for (std::size_t i = configBlock::kDescriptorHead; i + 1 < length; i += 2) {
        const unsigned unit = shortIn(block, {descriptor.offset + i, 2});
        text += unit >= 0x20 && unit < 0x7F ? static_cast<char>(unit) : '?';
    }
    return text;
}

unsigned shortIn(const Block& block, const Field& field) {
    return block[field.offset] | block[field.offset + 1] << 8;
}

std::string offsetText(std::size_t offset) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%03X", static_cast<unsigned>(offset));
    return text;
}

Json changesJson(const Block& before, const Block& after) {
    Json changes = Json::array();
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (before[i] != after[i]) changes.push_back({{"offset", i}, {"old", before[i]}, {"new", after[i]}});
    }
    return changes;
}

std::size_t showChanges(Report& report, const Block& before, const Block& after) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < before.size();) {
        if (before[i] == after[i]) {
            ++i;
            continue;
        }
        // A row holds neighbouring bytes of one field, at most 16.
        std::size_t end = i + 1;
        while (end < before.size() && end - i < 16 && before[end] != after[end] && nameAt(end) == nameAt(i)) ++end;
        std::string name = nameAt(i);
        if (!name.empty()) name = "  (" + name + ")";
        report.line(offsetText(i) + "  " + hexText(&before[i], end - i) + " -> " + hexText(&after[i], end - i) + name);
        count += end - i;
        i = end;
    }
    return count;
}

void warnOfPendingSerial(Session& session, const Block& block) {
    const std::string pending = stringIn(block, configBlock::kSerial);
    const char* inEffect = session.info().serialNumber.text;
    if (pending == inEffect) return;
    session.report.warning("the block holds the serial number " + pending +
                               ", which is not in effect yet; it becomes " + inEffect + " again",
                           "replug first to keep " + pending);
}

bool rewriteBlock(Session& session, const Rewrite& rewrite) {
    Report& report = session.report;
    report.result["changed"] = changesJson(rewrite.before, rewrite.after);
    report.result["backup"] = nullptr;
    if (showChanges(report, rewrite.before, rewrite.after) == 0) {
        report.note("the bridge holds that block already, nothing written");
        return false;
    }
    if (session.options.dryRun) {
        report.note("nothing was done (--dry-run)");
        return false;
    }
    session.confirm(rewrite.question + "?");
    const std::string backup = rewrite.backup.empty() ? backupName(session.info()) : rewrite.backup;
    storeBlock(backup, rewrite.before, false);
    report.result["backup"] = backup;
    report.note("the block that was there is in " + backup);
    const std::string device = session.deviceName();  // a new serial number shows in the record from here on
    const TAVO_STATUS status = session.tryCall(rewrite.doing, rewrite.write);
    if (status != TAVO_SUCCESS) {
        fail(session, rewrite, backup, libraryFailure(status, Side::Bridge, rewrite.doing + " of " + device));
    }
    report.stateText = "configuration block written; it takes effect after a replug";
    checkWritten(session, rewrite, backup);
    return true;
}

}  // namespace cli
