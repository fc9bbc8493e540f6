// The configuration block as people see it.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "bridge/configBlock.h"
#include "tavo/service/configuration.h"

namespace tavo {
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

std::string hexWord(std::uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", word);
    return text;
}

std::uint16_t shortAt(const ConfigurationBlock& block, std::size_t offset) {
    return static_cast<std::uint16_t>(block[offset] | block[offset + 1] << 8);
}

std::string stringIn(const ConfigurationBlock& block, const Field& descriptor) {
    const std::size_t length = std::min<std::size_t>(block[descriptor.offset], descriptor.size);
    std::string text;
    for (std::size_t i = configBlock::kDescriptorHead; i + 1 < length; i += 2) {
        const unsigned unit = shortAt(block, descriptor.offset + i);
        text += unit >= 0x20 && unit < 0x7F ? static_cast<char>(unit) : '?';
    }
    return text;
}

std::string whyBad(const ConfigurationBlock& block) {
    if (std::memcmp(block.data(), configBlock::kSignatureText, configBlock::kSignature.size) != 0) {
        return "the signature CYUS is missing";
    }
    const std::uint32_t stored = configBlock::storedChecksum(block.data());
    const std::uint32_t right = configBlock::checksum(block.data());
    return stored == right ? "" : "its checksum is " + hexWord(stored) + ", not " + hexWord(right);
}

}  // namespace

ConfigurationFields fieldsOf(const ConfigurationBlock& block) {
    ConfigurationFields fields;
    fields.serial = stringIn(block, configBlock::kSerial);
    fields.manufacturer = stringIn(block, configBlock::kManufacturer);
    fields.product = stringIn(block, configBlock::kProduct);
    fields.vendorId = shortAt(block, configBlock::kVendorId.offset);
    fields.productId = shortAt(block, configBlock::kProductId.offset);
    const unsigned mode = block[configBlock::kScb0Mode.offset];
    fields.scb0 = mode < std::size(kScb0Names) ? kScb0Names[mode] : "unknown";
    fields.maxPowerMilliamperes = 2u * block[configBlock::kMaxPower.offset];
    const unsigned char* format = &block[configBlock::kFormat.offset];
    fields.format = std::to_string(format[0]) + "." + std::to_string(format[1]) + "." + std::to_string(format[2]);
    fields.checksumRight = configBlock::storedChecksum(block.data()) == configBlock::checksum(block.data());
    fields.whyBad = whyBad(block);
    return fields;
}

std::vector<ByteChange> compareConfiguration(const ConfigurationBlock& before, const ConfigurationBlock& after) {
    std::vector<ByteChange> changes;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (before[i] != after[i]) changes.push_back({i, before[i], after[i]});
    }
    return changes;
}

const char* configurationFieldAt(std::size_t offset) {
    for (const auto& [field, name] : kFields) {
        if (offset >= field.offset && offset < field.end()) return name;
    }
    return "";
}

}  // namespace tavo
