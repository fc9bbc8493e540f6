#include "service/flash/access.h"

#include <algorithm>

#include "common/neuronPins.h"
#include "service/device/health.h"
#include "service/device/spiReset.h"
#include "tavo/service/history.h"
#include "tavo/service/range.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr long kBootMs = 1500;
constexpr std::uint8_t kBusy = 0x01;
constexpr std::uint8_t kFloating = 0xFF;

bool isAbsent(const FlashChip& chip) {
    const auto all = [&](unsigned value) {
        return chip.maker == value && chip.memoryType == value && chip.capacityCode == value;
    };
    return all(0xFF) || all(0x00);
}

}  // namespace

void FlashAccess::check(CY_RETURN_STATUS status, const std::string& doing) const {
    if (status == CY_SUCCESS) return;
    op_.fail(statusError(cypressToTavo(status), Side::Bridge, doing + " on " + op_.device.name()));
}

void FlashAccess::lookAtScb0() {
    const DeviceInfo& info = op_.device.info();
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    CY_SPI_CONFIG config{};
    if (scb0.openStatus != CY_SUCCESS || CyGetSpiConfig(scb0.handle, &config) != CY_SUCCESS) return;
    if (config.isMaster && !isLeftByRun(op_, config)) masterAsFound_ = config;
}

/// What is the same at any clock, or nothing can be relied on.
void FlashAccess::readStart(std::vector<std::uint8_t>& bytes) const {
    constexpr const char* kDoing = "read the start of the flash";
    FlashChip again;
    check(driver_->readId(again), "read the flash ID");
    bytes.assign(kPageSize, 0);
    check(driver_->waitUntilReadable(), kDoing);
    check(driver_->readLong(0, bytes.data(), kPageSize), kDoing);
    bytes.insert(bytes.end(), {again.maker, again.memoryType, again.capacityCode});
}

/// The release puts the clock back with the rest of the setting.
void FlashAccess::setClock(int clockHz) {
    std::vector<std::uint8_t> usual;
    std::vector<std::uint8_t> now;
    readStart(usual);
    CY_SPI_CONFIG config{};
    check(CyGetSpiConfig(scb0_->handle, &config), "read the SPI setting");
    config.frequency = static_cast<UINT32>(clockHz);
    check(CySetSpiConfig(scb0_->handle, &config), "set the SPI clock");
    check(CyGetSpiConfig(scb0_->handle, &config), "read the SPI setting");
    op_.step("SPI clock: " + std::to_string(config.frequency) + " Hz");
    readStart(now);
    if (now == usual) return;
    op_.fail(Error(Problem::DeviceFailed,
                   "the flash of " + op_.device.name() + " reads differently at " + std::to_string(clockHz) +
                       " Hz than at " + std::to_string(kUsualClockHz) + " Hz",
                   "choose a slower clock, or leave --clock out"));
}

void FlashAccess::take(long settleMs, std::optional<int> clockHz) {
    op_.throwIfCancelled();
    if (op_.device.description().scb0 == Scb0Role::I2c) {
        op_.fail(Error(Problem::DeviceFailed,
                       "SCB0 of " + op_.device.name() + " is an I2C block: the flash cannot be reached",
                       "make it an SPI block, then replug: tavo-util scb0 spi"));
    }
    check(op_.device.description().access == TAVO_ACCESS_DENIED ? CY_ERROR_ACCESS_DENIED : CY_SUCCESS,
          "open the flash");
    // What a cut-off run has left is no state that this one could call unchanged.
    const bool halfWritten = interruptedRun(op_.device.description()).has_value();
    op_.state.flash = halfWritten ? FlashState::Incomplete : FlashState::Unchanged;
    constexpr const char* kFirst = "make SCB0 an SPI master";
    // An interface that was plugged in again since it was opened has its number in a new list only.
    if (!isStillAttached(op_.device.description().path)) check(CY_ERROR_DEVICE_NOT_FOUND, kFirst);
    touched_ = true;
    DeviceInfo& info = op_.device.info();
    lookAtScb0();
    check(configurator_.setupSpi(true), kFirst);
    gpio_.emplace(info);
    reset_.emplace(*gpio_, kNeuronResetPin, IOPin::HIGH);
    check(reset_->set(IOPin::LOW), "hold the Neuron in reset");
    op_.sleep(settleMs);
    scb0_.emplace(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    check(scb0_->openStatus, "open the flash interface");
    driver_.emplace(op_, *scb0_);
    identify();
    if (clockHz && *clockHz != static_cast<int>(kUsualClockHz)) setClock(*clockHz);
}

void FlashAccess::readId() {
    constexpr const char* kDoing = "read the flash ID";
    const CY_RETURN_STATUS status = driver_->readId(chip_);
    if (status != CY_ERROR_IO_TIMEOUT) return check(status, kDoing);
    // A killed run may have left a transfer in the bridge that holds up all others.
    std::string told = "unfinished SPI transfer ended";
    static_cast<void>(endUnfinishedTransfer(op_.device.info(), told));  // the next read tells
    op_.step(told);
    op_.throwIfCancelled();
    check(driver_->readId(chip_), kDoing);
}

void FlashAccess::identify() {
    op_.step("call: look at the flash");
    readId();
    std::uint8_t status = kFloating;
    // A chip that still erases, for a run that was killed meanwhile, answers nothing but its status.
    if (isAbsent(chip_) && driver_->readStatus(status) == CY_SUCCESS && status != kFloating && (status & kBusy) != 0) {
        op_.step("the flash is busy with what an earlier run began");
        const BusyWait wait{longestErase(kAddressable), "a chip erase", BusyWait::Stop::AtOnce};
        check(driver_->waitUntilIdle(wait, status), "wait for the flash");
        check(driver_->readId(chip_), "read the flash ID");
    }
    if (isAbsent(chip_)) {
        op_.fail(Error(Problem::DeviceFailed,
                       "no flash answers at " + op_.device.name() + " (ID " + chip_.idText() + ")",
                       "check the flash and its wiring; tavo-util doctor tells more"));
    }
    check(driver_->readSize(chip_), "tell the flash size by the ID " + chip_.idText());
    op_.device.noteFlashChip(chip_);
    op_.step("flash: " + chip_.text());
}

void FlashAccess::giveScb0Back() {
    if (!masterAsFound_) {
        static_cast<void>(configurator_.setupSpi(false));  // looked at afterwards
        return;
    }
    configurator_.spiMasterSet = false;  // its destructor would make a slave
    const DeviceInfo& info = op_.device.info();
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    if (scb0.openStatus == CY_SUCCESS) static_cast<void>(CySetSpiConfig(scb0.handle, &*masterAsFound_));
}

void FlashAccess::release() noexcept {
    if (!touched_ || released_) return;
    released_ = true;
    driver_.reset();
    scb0_.reset();
    reset_.reset();
    gpio_.reset();
    giveScb0Back();
    letGo(op_, !masterAsFound_);
}

void FlashAccess::requireReleased() {
    if (!isSeenReleased(op_.state)) op_.fail(stillHeld(op_));
}

void FlashAccess::fail(const Error& error) {
    release();
    if (!touched_) op_.fail(error);
    op_.failIfGone(error);
    if (op_.state.isSomethingHeld()) op_.fail(andStillHeld(error, op_));
    op_.fail(error);
}

void requireClock(std::optional<int> clockHz) {
    if (!clockHz || (*clockHz >= static_cast<int>(kUsualClockHz) && *clockHz <= static_cast<int>(kFastestClockHz)))
        return;
    throw Error(Problem::BadArgument, "a clock of " + std::to_string(*clockHz) + " Hz is not set",
                "choose one from " + std::to_string(kUsualClockHz) + " to " + std::to_string(kFastestClockHz) + " Hz");
}

void waitForBoot(Operation& op) {
    op.begin(Phase::Boot, "the Neuron starts", 0, kBootMs / 1000.0);
    op.sleep(kBootMs);
    op.end();
}

AddressRange partOf(Operation& op, const FlashChip& chip, const std::optional<AddressRange>& range) {
    if (!range) requireAddressable(op, chip);
    if (!range) return {0, chip.size - 1};
    if (range->last >= chip.size)
        op.fail(Error(
            Problem::BadArgument,
            "the range " + rangeText(*range) + " reaches above the chip's last address, " + hexAddress(chip.size - 1),
            "the chip holds " + sizeText(chip.size) + ": end the range in it"));
    return *range;
}

Image partOfImage(const Image& image, const AddressRange& range, const std::string& name, bool needsData) {
    Image part = image.part(range);
    if (!part.isEmpty() || !needsData) return part;
    const auto all = image.ranges();
    throw Error(
        Problem::FileRefused, (name.empty() ? "the image" : name) + " has no data in " + rangeText(range),
        all.empty() ? "name another image" : "its data lie in " + rangeText({all.front().first, all.back().last}));
}

void requireAddressable(Operation& op, const FlashChip& chip) {
    if (chip.size <= kAddressable) return;
    op.fail(Error(
        Problem::DeviceFailed,
        "the flash says it holds " + sizeText(chip.size) + " (ID " + chip.idText() + "); 24 address bits reach 16 MiB",
        "a smaller chip is expected here: is the ID read well? tavo-util doctor"));
}

void requireFits(Operation& op, const Image& image, const FlashChip& chip, const std::string& name,
                 const ImageFile* file) {
    const auto ranges = image.ranges();
    if (ranges.empty() || ranges.back().last < chip.size) return;
    const auto fault = file != nullptr ? file->faultAbove(std::min(chip.size, kAddressable)) : std::nullopt;
    const std::string shown = name.empty() ? "the image" : name;
    if (fault) op.fail(refusal(shown, *fault));
    op.fail(Error(
        Problem::FileRefused,
        shown + " refused: data at " + hexAddress(ranges.back().last) + " lie above the chip of " + sizeText(chip.size),
        "choose an image made for a chip of " + sizeText(chip.size)));
}

}  // namespace tavo
