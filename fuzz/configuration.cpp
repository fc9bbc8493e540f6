// A file with a configuration block: taken or refused by the service as by the library, and written by both to the
// same bytes. The input is one byte, the length of a serial number, that number, and the file.
#include <algorithm>
#include <set>

#include "fuzz/fuzz.h"
#include "fuzz/simulated.h"
#include "tavo/bridge.h"
#include "tavo/service/configuration.h"
#include "tavo/service/error.h"

namespace {

using tavo::ConfigurationBlock;

std::optional<ConfigurationBlock> loaded(const std::string& path, const std::string& content) {
    try {
        const ConfigurationBlock block = tavo::loadConfiguration(path);
        HOLDS(std::equal(block.begin(), block.end(), content.begin(), content.end(),
                         [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); }));
        return block;
    } catch (const tavo::Error& error) {
        HOLDS(error.problem == tavo::Problem::FileRefused && *error.what() != '\0' && !error.hint.empty());
        return {};
    }
}

/// A rewriting touches the serial number, what tells of it, and the checksum.
void checkPlan(const tavo::ConfigurationPlan& plan, const ConfigurationBlock& file) {
    static const std::set<std::string> kRewritten{"checksum", "serial number present", "serial number"};
    for (const auto& change : tavo::compareConfiguration(file, plan.after)) {
        HOLDS(change.before == file[change.offset] && change.after == plan.after[change.offset]);
        HOLDS(kRewritten.count(tavo::configurationFieldAt(change.offset)) == 1);
    }
    const tavo::ConfigurationFields fields = tavo::fieldsOf(plan.after);
    HOLDS(fields.serial == plan.serial && fields.checksumRight);
    HOLDS(fields.whyBad.empty() == std::equal(file.begin(), file.begin() + 4, "CYUS"));
}

void checkFields(const ConfigurationBlock& block) {
    const tavo::ConfigurationFields fields = tavo::fieldsOf(block);
    HOLDS(fields.checksumRight || !fields.whyBad.empty());
    for (const std::string& text : {fields.serial, fields.manufacturer, fields.product}) {
        HOLDS(text.size() <= 32);
        HOLDS(std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; }));
    }
}

ConfigurationBlock blockInBridge() {
    ConfigurationBlock block{};
    unsigned char bytes[std::tuple_size_v<ConfigurationBlock>];
    DeviceInfo info = fuzz::deviceInfo();
    HOLDS(readConfigData(info, bytes) == TAVO_SUCCESS);
    std::copy(std::begin(bytes), std::end(bytes), block.begin());
    return block;
}

std::optional<ConfigurationBlock> writtenByService(const ConfigurationBlock& file, const std::string& serial) {
    fuzz::freshRig();
    tavo::Device device(tavo::devices().at(0));
    try {
        const auto plan = tavo::planConfiguration(device, file, {serial, "", true});
        checkPlan(plan, file);
        tavo::writeConfiguration(device, plan, {.noBackup = true});
        HOLDS(tavo::readConfiguration(device) == plan.after);
    } catch (const tavo::Error& error) {
        HOLDS(error.problem == tavo::Problem::BadArgument && !error.hint.empty());
        return {};
    }
    return blockInBridge();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    const std::string serial = std::string(supply.text().c_str());
    std::string content;
    while (!supply.isEmpty()) content += static_cast<char>(supply.byte());
    static const std::string path = fuzz::scratchFolder() + "/block.bin";
    fuzz::writeFile(path, content);

    const auto block = loaded(path, content);
    HOLDS(block.has_value() == (content.size() == 512));
    fuzz::freshRig();
    DeviceInfo info = fuzz::deviceInfo();
    const TAVO_STATUS status = updateCypressConfig(info, path.c_str(), serial.c_str());
    HOLDS((status == TAVO_WRONG_CONFIG_SIZE) == !block.has_value());
    if (!block) return 0;
    HOLDS((status == TAVO_INVALID_PARAMETER) == (serial.size() > 32));
    const ConfigurationBlock byLibrary = blockInBridge();
    checkFields(*block);
    const auto byService = writtenByService(*block, serial);
    if (byService) HOLDS(status == TAVO_SUCCESS && *byService == byLibrary);
    HOLDS(sim::rig().leftovers().empty() && sim::rig().violations().empty());
    return 0;
}
