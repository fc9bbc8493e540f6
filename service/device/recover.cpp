#include "tavo/service/recover.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <utility>

#include "common/neuronPins.h"
#include "service/device/health.h"
#include "service/device/spiReset.h"
#include "service/device/vendorRequest.h"
#include "service/flash/access.h"
#include "service/neuron/lines.h"
#include "tavo/Configurator.h"
#include "tavo/service/neuron.h"

namespace tavo {
namespace {

constexpr unsigned char kConfigurationMode = 0xE2;

struct AccessPair {
    unsigned short value;
    unsigned short index;
};
// Bridges take one pair or the other; the one that is not theirs changes nothing.
constexpr AccessPair kLeave[] = {{0x5C37, 0x8BD1}, {0xA6BC, 0xB9B0}};

constexpr const char* kStillHeld = "unplug the interface and plug it in again";

class Steps {
public:
    Steps(Operation& op, const RecoverOptions& options, Recovery& recovery)
        : op_(op), options_(options), recovery_(recovery) {}

    /// work: a status; it may say better in text what was done.
    void take(std::string text, const std::function<TAVO_STATUS(std::string&)>& work) {
        const TAVO_STATUS status = op_.tryCall("recover", [&] { return work(text); });
        if (status == TAVO_SUCCESS) return done(text);
        failed(text, statusError(status, Side::Bridge, "recover " + op_.device.name()));
    }
    void done(const std::string& text) { tell({text, Verdict::Ok, ""}); }
    void leftOut(const std::string& text, const std::string& why) { tell({text, Verdict::Skipped, why}); }
    void failed(const std::string& text, const Error& error) {
        tell({text, Verdict::Fail, error.status ? tavoStatusString(*error.status) : error.what()});
        if (!first_) first_ = error;
    }
    void throwFirst() const {
        if (!first_) return;
        Error error = *first_;
        if (op_.state.isSomethingHeld()) error.hint = kStillHeld;  // another recover would not help
        op_.fail(error);
    }

private:
    void tell(RecoverStep step) {
        if (options_.each) options_.each(step);
        recovery_.steps.push_back(std::move(step));
    }

    Operation& op_;
    const RecoverOptions& options_;
    Recovery& recovery_;
    std::optional<Error> first_;
};

TAVO_STATUS giveBack(Operation& op, std::string& text) {
    DeviceInfo& info = op.device.info();
    CY_SPI_CONFIG config{};
    {
        const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
        if (scb0.openStatus != CY_SUCCESS) return cypressToTavo(scb0.openStatus);
        text = "SCB0 is no SPI block, nothing to give back";
        if (CyGetSpiConfig(scb0.handle, &config) != CY_SUCCESS) return TAVO_SUCCESS;
    }
    text = "SCB0 is SPI slave already";
    if (!config.isMaster) return TAVO_SUCCESS;
    text = "SCB0 is SPI master at " + std::to_string(config.frequency) + " Hz, which no flash operation sets: left so";
    if (!isLeftByRun(op, config)) return TAVO_SUCCESS;
    text = "SCB0 made SPI slave again";
    return cypressToTavo(Configurator(info).setupSpi(false));
}

TAVO_STATUS release(const DeviceInfo& info, unsigned char pin) {
    GPIO gpio(info);
    return cypressToTavo(IOPin(gpio, pin, IOPin::HIGH).set(IOPin::HIGH));
}

TAVO_STATUS leaveConfigurationMode(const DeviceInfo& info) {
    const CyHandle config(info.configDeviceNumber, info.configInterfaceNumber);
    if (config.openStatus != CY_SUCCESS) return cypressToTavo(config.openStatus);
    TAVO_STATUS status = TAVO_SUCCESS;
    for (const AccessPair& pair : kLeave) {
        const int result = sendVendorRequest(config, kConfigurationMode, pair.value, pair.index);
        if (result < 0 && result != LIBUSB_ERROR_PIPE) status = vendorRequestStatus(result);
    }
    return status;
}

void releaseLines(Operation& op, Steps& steps) {
    lookAtLines(op);
    const DeviceInfo& info = op.device.info();
    // The service line first: held through the start of the Neuron it would ask for another mode.
    if (op.state.serviceLine == LineState::NotLooked) {
        steps.leftOut("service line", "this bridge has no pin 14");
    } else {
        steps.take("service line released (pin 14 high)",
                   [&](std::string&) { return release(info, kNeuronServicePin); });
    }
    steps.take("Neuron let out of reset (pin 8 high)", [&](std::string&) { return release(info, kNeuronResetPin); });
}

bool isKnownToBeWell(const DeviceState& state) {
    return !state.isSomethingHeld() && state.resetLine == LineState::Released &&
           state.serviceLine != LineState::Unknown && state.scb0 != Scb0State::Unknown;
}

void readBack(Operation& op, Steps& steps) {
    op.throwIfCancelled();
    letGo(op, true);
    const std::string text = "lines and SCB0 read back";
    if (isKnownToBeWell(op.state)) return steps.done(text);
    steps.failed(text,
                 Error(Problem::DeviceFailed,
                       op.state.isSomethingHeld() ? "something is still held" : "they cannot be read", kStillHeld));
}

/// What the flash shows of itself: that it answers, and whether a Neuron can start from it.
struct FlashLook {
    FlashChip chip;
    bool startsBlank = false;
};

FlashLook lookAtFlash(Operation& op) {
    return withFlash(op, kSettle, [](const FlashDriver& driver, const FlashChip& chip) {
        std::array<std::uint8_t, kReadChunk> start{};
        const bool read = driver.read(0, start.data(), kReadChunk) == CY_SUCCESS;
        return FlashLook{chip, read && std::all_of(start.begin(), start.end(), [](auto byte) { return byte == 0xFF; })};
    });
}

/// @return true when its start is blank: a Neuron does not come up from it
bool proveFlash(Operation& op, Steps& steps) {
    if (op.device.description().scb0 != Scb0Role::Spi) {
        steps.leftOut("flash ID", "SCB0 is no SPI block");
        return false;
    }
    try {
        const FlashLook look = lookAtFlash(op);
        steps.done("flash answers: " + look.chip.text());
        return look.startsBlank;
    } catch (const Error& error) {
        if (error.problem == Problem::Interrupted) throw;
        steps.failed("flash ID", error);
        return false;
    }
}

/// whyNoImage: null when the flash may hold one.
void proveNeuron(Operation& op, const Control& control, Steps& steps, const char* whyNoImage) {
    op.sleep(kBootMs);
    const std::string text = "the Neuron answers";
    try {
        readStatus(op.device, control);
        steps.done(text);
    } catch (const Error& error) {
        if (error.problem == Problem::Interrupted) throw;
        // Neither is for this command to put right.
        if (error.status == TAVO_DEVICE_OPEN_FAILED) return steps.leftOut(text, "there is no LDV channel to ask it");
        if (whyNoImage != nullptr) return steps.leftOut(text, whyNoImage);
        Error silent = error;
        silent.hint = "is there an image in the flash? tavo-util blank-check; else tavo-util doctor";
        steps.failed(text, silent);
    }
}

void takeSteps(Operation& op, const Control& control, Steps& steps, const Recovery& recovery) {
    DeviceInfo& info = op.device.info();
    // SCB0 before the lines: as a master it would drive the flash beside the Neuron that starts.
    if (op.device.description().scb0 == Scb0Role::Spi) {
        steps.take("unfinished SPI transfer ended",
                   [&](std::string& text) { return endUnfinishedTransfer(info, text); });
    }
    steps.take("SCB0 opened", [&](std::string& text) { return giveBack(op, text); });
    releaseLines(op, steps);
    steps.take("configuration mode left", [&](std::string&) { return leaveConfigurationMode(info); });
    readBack(op, steps);
    const bool startsBlank = proveFlash(op, steps);
    const char* whyNoImage = recovery.interrupted ? "it does not, as the flash lacks its image"
                             : startsBlank        ? "it does not, as the flash is blank"
                                                  : nullptr;
    proveNeuron(op, control, steps, whyNoImage);
}

}  // namespace

Recovery recover(Device& device, const RecoverOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        Recovery recovery;
        recovery.interrupted = interruptedRun(device.description());
        if (recovery.interrupted) op.state.flash = interruptedState(*recovery.interrupted);
        Steps steps(op, options, recovery);
        try {
            takeSteps(op, control, steps, recovery);
        } catch (const Error& error) {
            if (error.problem != Problem::Interrupted) throw;
            lookAtLines(op);  // what had been held before may be held still
            op.throwIfCancelled();
            throw;
        }
        recovery.state = op.state;
        steps.throwFirst();
        return recovery;
    });
}

}  // namespace tavo
