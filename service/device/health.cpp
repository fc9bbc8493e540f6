#include "service/device/health.h"

#include "bridge/configBlock.h"
#include "common/neuronPins.h"
#include "service/bridge/access.h"
#include "tavo/Configurator.h"

namespace tavo {
namespace {

constexpr UCHAR kFlashWordBits = 8;

constexpr const char* kRecover = "let the Neuron run again: tavo-util recover";

LineState lookAt(const CyHandle& scb0, unsigned char pin, LineState whenRefused) {
    if (scb0.openStatus != CY_SUCCESS) return LineState::Unknown;
    UINT8 level = 0;
    const CY_RETURN_STATUS status = CyGetGpioValue(scb0.handle, pin, &level);
    if (status == CY_ERROR_REQUEST_FAILED) return whenRefused;
    if (status != CY_SUCCESS) return LineState::Unknown;
    return level == 0 ? LineState::Held : LineState::Released;
}

Scb0State lookAtRole(Operation& op, const CyHandle& scb0) {
    if (op.device.description().scb0 != Scb0Role::Spi) return Scb0State::NotLooked;
    CY_SPI_CONFIG config{};
    if (scb0.openStatus != CY_SUCCESS || CyGetSpiConfig(scb0.handle, &config) != CY_SUCCESS) return Scb0State::Unknown;
    return isLeftByRun(op, config) ? Scb0State::SpiMaster : Scb0State::GivenBack;
}

const char* name(LineState state) {
    constexpr const char* kNames[] = {"not looked at", "released", "held", "unknown"};
    return kNames[static_cast<std::size_t>(state)];
}

const char* name(Scb0State state) {
    constexpr const char* kNames[] = {"not looked at", "given back", "SPI master", "unknown"};
    return kNames[static_cast<std::size_t>(state)];
}

bool isDoubtful(LineState state) {
    return state == LineState::Held || state == LineState::Unknown;
}

bool isDoubtful(Scb0State state) {
    return state == Scb0State::SpiMaster || state == Scb0State::Unknown;
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

void release(Device& device, unsigned char pin) {
    GPIO gpio(device.info());
    static_cast<void>(IOPin(gpio, pin, IOPin::HIGH).set(IOPin::HIGH));  // looked at afterwards
}

}  // namespace

bool isFlashMaster(const CY_SPI_CONFIG& config) {
    return config.isMaster && config.frequency >= kUsualClockHz && config.frequency <= kFastestClockHz &&
           config.dataWidth == kFlashWordBits && config.protocol == CY_SPI_MOTOROLA && config.isContinuousMode &&
           !config.isCpha && !config.isCpol;
}

bool isAsTheBlockHasIt(const CY_SPI_CONFIG& config, const ConfigurationBlock& block) {
    // The SPI record of the block: clock, width, protocol; then one byte each, master, continuous, CPHA, CPOL.
    const unsigned char* record = block.data() + configBlock::kScb0Settings.offset;
    const auto clock =
        static_cast<UINT32>(record[0] | record[1] << 8 | record[2] << 16) | static_cast<UINT32>(record[3]) << 24;
    return block[configBlock::kScb0Mode.offset] == configBlock::kModeSpi && clock == config.frequency &&
           record[4] == config.dataWidth && record[5] == config.protocol && (record[8] != 0) == config.isMaster &&
           (record[9] != 0) == config.isContinuousMode && (record[11] != 0) == config.isCpha &&
           (record[12] != 0) == config.isCpol;
}

bool isLeftByRun(Operation& op, const CY_SPI_CONFIG& config) {
    if (!isFlashMaster(config) || config.frequency == kUsualClockHz) return isFlashMaster(config);
    try {
        ConfigurationBlock block{};
        bool refused = false;
        return readBlock(op, block, refused) == TAVO_SUCCESS && !isAsTheBlockHasIt(config, block);
    } catch (...) {  // of an observer: what is held is still to be released
        return false;
    }
}

void lookAtLines(Operation& op) {
    const DeviceInfo& info = op.device.info();
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    op.state.scb0 = lookAtRole(op, scb0);
    // The bridges with 12 pins answer for pin 8 and refuse pin 14. One that was driven or seen before is there,
    // whatever a refusal means.
    op.state.resetLine = lookAt(scb0, kNeuronResetPin, LineState::Unknown);
    const bool mayBeMissing = op.state.resetLine != LineState::Unknown && op.state.serviceLine == LineState::NotLooked;
    op.state.serviceLine = lookAt(scb0, kNeuronServicePin, mayBeMissing ? LineState::NotLooked : LineState::Unknown);
    op.note(std::string("reset line ") + name(op.state.resetLine) + ", service line " + name(op.state.serviceLine) +
            ", SCB0 " + name(op.state.scb0));
}

void letGo(Operation& op, bool giveScb0Back) {
    lookAtLines(op);
    const DeviceState& state = op.state;
    const bool scb0 = giveScb0Back && isDoubtful(state.scb0);
    const bool service = isDoubtful(state.serviceLine);
    const bool reset = isDoubtful(state.resetLine);
    if (!scb0 && !service && !reset) return;
    op.note("releasing what is held once more");
    // SCB0 first: as a master it would drive the flash beside the Neuron that starts. The service line before
    // the reset: held while the Neuron starts it asks for another mode.
    if (scb0) static_cast<void>(Configurator(op.device.info()).setupSpi(false));
    if (service) release(op.device, kNeuronServicePin);
    if (reset) release(op.device, kNeuronResetPin);
    lookAtLines(op);
}

bool isSeenReleased(const DeviceState& state) {
    return !state.isSomethingHeld() && state.resetLine != LineState::Unknown && state.scb0 != Scb0State::Unknown;
}

Error stillHeld(const Operation& op) {
    const std::string name = op.device.name();
    if (op.state.isSomethingHeld()) {
        return {Problem::DeviceFailed, name + " still holds what was taken: " + heldParts(op.state), kRecover};
    }
    return {Problem::DeviceFailed, "cannot see whether " + name + " has let go of the Neuron", kRecover};
}

Error andStillHeld(const Error& error, const Operation& op) {
    const bool interrupted = error.problem == Problem::Interrupted;
    Error now(interrupted ? Problem::Interrupted : Problem::DeviceFailed,
              interrupted ? "interrupted; not everything could be released" : error.what(),
              error.hint.empty() || error.hint == kRecover ? kRecover : std::string(kRecover) + "; then " + error.hint);
    now.status = error.status;
    now.details = error.details;
    const std::string held = stillHeld(op).what();
    if (!interrupted && held != now.what()) now.details.push_back(held);
    return now;
}

}  // namespace tavo
