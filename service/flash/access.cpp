#include "service/flash/access.h"

#include <algorithm>

#include "common/neuronPins.h"
#include "service/device/health.h"
#include "tavo/service/history.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr long kBootMs = 1500;
constexpr std::uint8_t kBusy = 0x01;
constexpr std::uint8_t kFloating = 0xFF;

constexpr const char* kRecover = "let the Neuron run again: tavo-util recover";

bool isAbsent(const FlashChip& chip) {
    const auto all = [&](unsigned value) {
        return chip.maker == value && chip.memoryType == value && chip.capacityCode == value;
    };
    return all(0xFF) || all(0x00);
}

bool isUnknown(const DeviceState& state) {
    return state.resetLine == LineState::Unknown || state.scb0 == Scb0State::Unknown;
}

std::string heldParts(const DeviceState& state) {
    std::string parts;
    const auto add = [&](bool held, const char* part) {
        if (held) parts += (parts.empty() ? "" : ", ") + std::string(part);
    };
    add(state.resetLine == LineState::Held, "the reset line of the Neuron (pin 8)");
    add(state.serviceLine == LineState::Held, "its service line (pin 14)");
    add(state.scb0 == Scb0State::SpiMaster, "SCB0 as SPI master");
    return parts;
}

Error stillHeld(const Operation& op) {
    const std::string name = op.device.name();
    if (op.state.isSomethingHeld()) {
        return {Problem::DeviceFailed, name + " still holds what was taken for the flash: " + heldParts(op.state),
                kRecover};
    }
    return {Problem::DeviceFailed, "cannot see whether " + name + " has let go of the Neuron", kRecover};
}

/// A failure as it has to be told once the releases have failed as well.
Error andStillHeld(const Error& error, const Operation& op) {
    const bool interrupted = error.problem == Problem::Interrupted;
    Error now(error.problem, interrupted ? "interrupted; not everything could be released" : error.what(),
              error.hint.empty() || error.hint == kRecover ? kRecover : std::string(kRecover) + "; then " + error.hint);
    now.status = error.status;
    now.details = error.details;
    const std::string held = stillHeld(op).what();
    if (!interrupted && held != now.what()) now.details.push_back(held);
    return now;
}

Error andGone(const Error& error, const DeviceState& state) {
    Error now(Problem::NoDevice, std::string(error.what()) + ": the interface is no longer attached",
              "plug it in again, then " + (state.isFlashLost() ? error.hint : "repeat the command"));
    now.status = error.status;
    now.details = error.details;
    return now;
}

/// A failure of the device may be one of its cable.
bool isGone(const Error& error, const Operation& op) {
    const bool ofDevice = error.problem == Problem::DeviceFailed || error.problem == Problem::NoAnswer ||
                          error.problem == Problem::NoDevice || error.problem == Problem::Busy;
    return ofDevice && !isStillAttached(op.device.description().path);
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
    if (config.isMaster && !isFlashMaster(config)) masterAsFound_ = config;
}

void FlashAccess::take(long settleMs) {
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
    touched_ = true;
    DeviceInfo& info = op_.device.info();
    lookAtScb0();
    check(configurator_.setupSpi(true), "make SCB0 an SPI master");
    gpio_.emplace(info);
    reset_.emplace(*gpio_, kNeuronResetPin, IOPin::HIGH);
    check(reset_->set(IOPin::LOW), "hold the Neuron in reset");
    op_.sleep(settleMs);
    scb0_.emplace(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    check(scb0_->openStatus, "open the flash interface");
    driver_.emplace(op_, *scb0_);
    identify();
}

void FlashAccess::identify() {
    op_.step("call: look at the flash");
    check(driver_->readId(chip_), "read the flash ID");
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
    if (op_.state.isSomethingHeld() || isUnknown(op_.state)) op_.fail(stillHeld(op_));
}

void FlashAccess::fail(const Error& error) {
    release();
    if (!touched_) op_.fail(error);
    if (isGone(error, op_)) {
        // Without power nothing is held; it starts afresh when it is plugged in.
        op_.state.resetLine = op_.state.serviceLine = LineState::NotLooked;
        op_.state.scb0 = Scb0State::NotLooked;
        op_.fail(andGone(error, op_.state));
    }
    if (op_.state.isSomethingHeld()) op_.fail(andStillHeld(error, op_));
    op_.fail(error);
}

void waitForBoot(Operation& op) {
    op.begin(Phase::Boot, "the Neuron starts", 0, kBootMs / 1000.0);
    op.sleep(kBootMs);
    op.end();
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
    if (fault) op.fail(refusal(name, *fault));
    op.fail(Error(Problem::FileRefused,
                  (name.empty() ? std::string("the image") : name) + " refused: data at " +
                      hexAddress(ranges.back().last) + " lie above the chip of " + sizeText(chip.size),
                  "choose an image made for a chip of " + sizeText(chip.size)));
}

}  // namespace tavo
