#include "service/device/flashId.h"

#include <algorithm>
#include <array>

#include "common/neuronPins.h"
#include "platform/cyusbserial.h"
#include "service/device/health.h"
#include "tavo/Configurator.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr long kSettleMs = 100;  // from the reset of the Neuron to the first transfer
constexpr UINT32 kTimeoutMs = 1000;
constexpr UCHAR kReadJedecId = 0x9F;

using Id = std::array<UCHAR, 3>;  // maker, memory type, capacity code

TAVO_STATUS exchange(const CyHandle& scb0, Id& id) {
    UCHAR out[4] = {kReadJedecId};
    UCHAR in[sizeof out] = {};
    CY_DATA_BUFFER write{out, sizeof out, 0};
    CY_DATA_BUFFER read{in, sizeof in, 0};
    const CY_RETURN_STATUS status = CySpiReadWrite(scb0.handle, &read, &write, kTimeoutMs);
    if (status == CY_SUCCESS) std::copy(in + 1, in + sizeof in, id.begin());
    return cypressToTavo(status);
}

/// step: completes "cannot ..." for the status returned.
TAVO_STATUS takeAndRead(Operation& op, Id& id, const char*& step) {
    DeviceInfo& info = op.device.info();
    step = "make SCB0 an SPI master";
    op.state.scb0 = Scb0State::SpiMaster;
    Configurator configurator(info);
    if (const auto status = configurator.setupSpi(true); status != CY_SUCCESS) return cypressToTavo(status);
    step = "hold the Neuron in reset";
    op.state.resetLine = LineState::Held;
    GPIO gpio(info);
    const IOPin reset(gpio, kNeuronResetPin, IOPin::HIGH);
    if (const auto status = reset.set(IOPin::LOW); status != CY_SUCCESS) return cypressToTavo(status);
    op.sleep(kSettleMs);
    step = "read the flash ID";
    return exchange(*gpio.cyHandle, id);
}

bool isAbsent(const Id& id) {
    return id == Id{} || id == Id{0xFF, 0xFF, 0xFF};
}

}  // namespace

std::string readFlashId(Operation& op) {
    op.throwIfCancelled();
    Id id{};
    const char* step = "";
    TAVO_STATUS status = TAVO_SUCCESS;
    try {
        status = takeAndRead(op, id, step);
    } catch (...) {
        letGo(op, true);
        throw;
    }
    letGo(op, true);
    if (status != TAVO_SUCCESS) op.fail(statusError(status, Side::Bridge, step));
    if (op.state.isSomethingHeld()) {
        op.fail(Error(Problem::DeviceFailed, "the flash was read, but not all that was taken is released",
                      "let it go: tavo-util recover"));
    }
    const std::string text = hexText(id.data(), id.size());
    if (isAbsent(id)) {
        op.fail(Error(Problem::DeviceFailed, "no flash answers (ID " + text + ")", "check the flash and its wiring"));
    }
    return text;
}

}  // namespace tavo
