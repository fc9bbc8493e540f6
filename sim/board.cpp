#include "sim/board.h"

#include <bit>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "sim/plug.h"

namespace sim {

namespace {

constexpr const char* kBlockKey = "bridge.block";  // fingerprint of the block in effect
constexpr const char* kPlugKey = "bridge.plug";    // since when it has power
constexpr const char* kModeKey = "bridge.configuration-mode";
constexpr const char* kSpiKey = "bridge.spi";
constexpr const char* kLowPinsKey = "bridge.low-pins";
constexpr const char* kProtectionKey = "flash.protection";
constexpr const char* kUnfinishedKey = "bridge.spi-unfinished";
constexpr const char* kPinsKey = "bridge.pins";
constexpr const char* kCapacityKey = "flash.jedec";

// FNV-1a
std::string fingerprint(std::span<const std::uint8_t> bytes) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const std::uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

std::string find(const Store::Values& values, const char* key) {
    const auto found = values.find(key);
    return found == values.end() ? "" : found->second;
}

unsigned number(const Store::Values& values, const char* key, unsigned highest, unsigned otherwise) {
    const std::string text = find(values, key);
    if (text.empty()) return otherwise;
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > highest) {
        throw std::invalid_argument(std::string(key) + "=" + text + " is not a number up to " +
                                    std::to_string(highest));
    }
    return value;
}

std::string spiText(const CY_SPI_CONFIG& spi) {
    char text[64];
    std::snprintf(text, sizeof text, "%u %u %u %d%d%d%d%d%d", spi.frequency, spi.dataWidth,
                  static_cast<unsigned>(spi.protocol), spi.isMsbFirst, spi.isMaster, spi.isContinuousMode,
                  spi.isSelectPrecede, spi.isCpha, spi.isCpol);
    return text;
}

CY_SPI_CONFIG spiFromText(const std::string& text) {
    CY_SPI_CONFIG spi{};
    unsigned width = 0;
    unsigned protocol = 0;
    char flags[7] = {};
    if (std::sscanf(text.c_str(), "%u %u %u %6[01]", &spi.frequency, &width, &protocol, flags) != 4 ||
        std::strlen(flags) != 6) {
        throw std::invalid_argument(std::string(kSpiKey) + "=" + text + " is no SPI setting");
    }
    spi.dataWidth = static_cast<UCHAR>(width);
    spi.protocol = static_cast<CY_SPI_PROTOCOL>(protocol);
    bool* const fields[] = {&spi.isMsbFirst,      &spi.isMaster, &spi.isContinuousMode,
                            &spi.isSelectPrecede, &spi.isCpha,   &spi.isCpol};
    for (std::size_t i = 0; i < std::size(fields); ++i) *fields[i] = flags[i] == '1';
    return spi;
}

constexpr std::uint64_t kNanosecondsPerMillisecond = 1'000'000;

int capacityOf(std::size_t flashSize) {
    return std::countr_zero(flashSize);
}

}  // namespace

Board::Board(const Options& options)
    : clock(options.pace),
      store(options),
      bridge(store.block.fixed<Bridge::kBlockSize>(), store.userFlash.fixed<Bridge::kUserFlashSize>(),
             store.internalFlash.fixed<Bridge::kInternalFlashSize>()),
      flash(store.flash.bytes(), capacityOf(store.flash.bytes().size()), options.busyPolls, clock, violations),
      neuron(clock, flash.cells),
      options_(options) {
    bridge.access = options.access;
    flash.sfdp = options.sfdp;
    flash.diesAfter = options.flashDiesAfter.value_or(flash.diesAfter);
    restore(store.load());
    if (options.unfinished) bridge.isSpiUnfinished = true;
}

Board::~Board() = default;

void Board::restore(const Store::Values& values) try {
    flash.capacityCode = static_cast<int>(number(values, kCapacityKey, 255, static_cast<unsigned>(flash.capacityCode)));
    if (options_.capacityCode >= 0) flash.capacityCode = options_.capacityCode;
    bridge.pinCount = number(values, kPinsKey, Bridge::kPins, bridge.pinCount);
    if (options_.pins != 0) bridge.pinCount = options_.pins;
    flash.status = static_cast<std::uint8_t>(number(values, kProtectionKey, 255, 0)) & FlashChip::kProtection;
    savedProtection_ = flash.status;
    neuron.load(values);
    bridge.powerUp();
    plugChanges_ = store.plugChanges();
    const bool keptPower = number(values, kPlugKey, UINT_MAX, 0) == plugChanges_;
    if (keptPower && find(values, kBlockKey) == fingerprint(bridge.block)) {
        restorePins(values);
    } else if (!values.empty() || !keptPower) {
        neuron.setReset(true);  // plugged in anew, for the other block to take effect: everything starts
    }
    whyAbsent_ = isUnplugged() ? "it is unplugged" : Bridge::whyUnusable(bridge.block);
    wirePins();
} catch (const std::invalid_argument& error) {
    throw std::runtime_error("simulated interface: " + store.folder + "/board.txt: " + error.what() +
                             "; mend it, or delete the file to plug the interface in anew");
}

void Board::restorePins(const Store::Values& values) {
    bridge.inConfigurationMode = number(values, kModeKey, 1, 0) != 0;
    bridge.isSpiUnfinished = number(values, kUnfinishedKey, 1, 0) != 0;
    if (const std::string spi = find(values, kSpiKey); !spi.empty()) bridge.spi = spiFromText(spi);
    const unsigned low = number(values, kLowPinsKey, (1u << Bridge::kPins) - 1, 0);
    for (unsigned pin = 0; pin < Bridge::kPins; ++pin) bridge.pinHigh[pin] = (low >> pin & 1) == 0;
}

void Board::save() {
    if (store.folder.empty()) return;
    Store::Values values;
    values[kBlockKey] = fingerprint(bridge.blockInEffect);
    if (plugChanges_ != 0) values[kPlugKey] = std::to_string(plugChanges_);
    values[kModeKey] = bridge.inConfigurationMode ? "1" : "0";
    values[kSpiKey] = spiText(bridge.spi);
    if (bridge.isSpiUnfinished) values[kUnfinishedKey] = "1";
    if (bridge.pinCount != Bridge::kPins) values[kPinsKey] = std::to_string(bridge.pinCount);
    unsigned low = 0;
    for (unsigned pin = 0; pin < Bridge::kPins; ++pin) low |= (bridge.pinHigh[pin] ? 0u : 1u) << pin;
    values[kLowPinsKey] = std::to_string(low);
    savedProtection_ = flash.status & FlashChip::kProtection;
    values[kProtectionKey] = std::to_string(savedProtection_);
    if (flash.capacityCode != capacityOf(flash.cells.size())) values[kCapacityKey] = std::to_string(flash.capacityCode);
    neuron.save(values);
    try {
        store.save(values);
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
}

void Board::powerCycle() {
    bridge.powerUp();
    flash.status &= FlashChip::kProtection;
    whyAbsent_ = isUnplugged() ? "it is unplugged" : Bridge::whyUnusable(bridge.block);
    neuron.setReset(true);
    wirePins();
    save();
}

bool Board::isUnplugged() const {
    return !isPluggedIn(plugChanges_);
}

void Board::followPlug() {
    forgetClaims();
    plugChanges_ = store.plugChanges();
    if (store.folder.empty()) return powerCycle();
    try {
        restore(store.load());
    } catch (const std::runtime_error& error) {
        whyAbsent_ = error.what();
        std::fprintf(stderr, "%s\n", error.what());
    }
}

void Board::wirePins() {
    neuron.setReset(!bridge.pinHigh[kResetPin]);
    neuron.setService(!bridge.pinHigh[kServicePin]);
}

std::string Board::portPath() const {
    return "sim:" + (store.folder.empty() ? nameInMemory : store.folder);
}

int Board::claim() {
    if (claims_ == 0) {
        if (const int holder = store.lock(); holder != 0) return holder;
        if (store.isChangedOutside()) restore(store.load());
        neuron.lookAtFlash();
    }
    ++claims_;
    return 0;
}

void Board::release() {
    if (--claims_ > 0) return;
    dropClaims();
}

void Board::dropClaims() {
    save();
    forgetClaims();
}

void Board::forgetClaims() {
    claims_ = 0;
    store.unlock();
}

CY_RETURN_STATUS Board::transfer(const std::uint8_t* out, std::uint8_t* in, std::size_t length, std::uint32_t timeout) {
    if (bridge.isSpiUnfinished) {
        clock.pass(timeout * kNanosecondsPerMillisecond);
        return CY_ERROR_IO_TIMEOUT;
    }
    clock.pass(length * bridge.spi.dataWidth * 1'000'000'000 / bridge.spi.frequency);
    if (const char* reason = whyFlashIsUnreachable(); reason != nullptr) {
        noteViolation(violations, reason);
        if (in != nullptr) std::memset(in, 0xFF, length);
        return CY_SUCCESS;
    }
    const std::uint64_t changes = flash.changes;
    flash.transfer(out, in, length);
    const bool isFirstChange = flash.changes != changes && neuron.hasFactoryProgram();
    if (isFirstChange) neuron.forgetFactoryProgram();
    if (isFirstChange || (flash.status & FlashChip::kProtection) != savedProtection_) save();
    return CY_SUCCESS;
}

const char* Board::whyFlashIsUnreachable() const {
    const CY_SPI_CONFIG& spi = bridge.spi;
    if (!spi.isMaster) return "flash transfer while SCB0 is SPI slave";
    if (spi.protocol != CY_SPI_MOTOROLA || spi.isCpha || spi.isCpol) return "flash transfer in another SPI mode than 0";
    if (spi.dataWidth != 8 || !spi.isMsbFirst) return "flash transfer without 8-bit words, most significant bit first";
    if (!spi.isContinuousMode) return "flash transfer with select released after each word";
    if (!neuron.isHeld()) return "flash transfer while the Neuron runs";
    return nullptr;
}

CY_RETURN_STATUS Board::setSpiConfig(unsigned interfaceNumber, const CY_SPI_CONFIG& config) {
    const CY_RETURN_STATUS status = bridge.setSpiConfig(interfaceNumber, config);
    if (status == CY_SUCCESS) save();
    return status;
}

CY_RETURN_STATUS Board::setPin(unsigned pin, bool high) {
    if (const CY_RETURN_STATUS status = bridge.setPin(pin, high); status != CY_SUCCESS) return status;
    if (pin == kResetPin && high && neuron.isHeld() && flash.isBusy()) {
        noteViolation(violations, "Neuron released from reset while the flash is busy");
    }
    if (pin == kResetPin) neuron.setReset(!high);
    if (pin == kServicePin) neuron.setService(!high);
    save();
    return CY_SUCCESS;
}

int Board::control(std::uint8_t type, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                   std::uint8_t* data, std::uint16_t length) {
    const auto before = std::pair(bridge.inConfigurationMode, bridge.isSpiUnfinished);
    const int result = bridge.control(type, request, value, index, data, length);
    if (std::pair(bridge.inConfigurationMode, bridge.isSpiUnfinished) != before) save();
    return result;
}

std::vector<std::string> Board::lowPins() const {
    std::vector<std::string> pins;
    for (unsigned pin = 0; pin < Bridge::kPins; ++pin) {
        if (!bridge.pinHigh[pin]) pins.push_back("pin " + std::to_string(pin) + " low");
    }
    return pins;
}

}  // namespace sim
