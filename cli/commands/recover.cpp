#include "cli/commands/commands.h"
#include "cli/session.h"
#include "platform/cyusbserial.h"
#include "tavo/Configurator.h"

namespace cli {
namespace {

// What a killed run may have left low. The service line first: held through the start of the Neuron it
// would ask for another mode.
struct Line {
    unsigned char pin;
    const char* step;
};
constexpr Line kLines[] = {{14, "service line released (pin 14 high)"}, {8, "Neuron let out of reset (pin 8 high)"}};

CY_RETURN_STATUS release(const DeviceInfo& device, unsigned char pin) {
    GPIO gpio(device);
    return IOPin(gpio, pin, IOPin::HIGH).set(IOPin::HIGH);
}

CY_RETURN_STATUS giveBack(DeviceInfo& device, const char*& step) {
    CY_SPI_CONFIG config{};
    {
        const CyHandle scb0(device.scb0DeviceNumber, device.scb0InterfaceNumber);
        if (scb0.openStatus != CY_SUCCESS) return scb0.openStatus;
        step = "SCB0 is no SPI block, nothing to give back";
        if (CyGetSpiConfig(scb0.handle, &config) != CY_SUCCESS) return CY_SUCCESS;
    }
    step = "SCB0 is SPI slave already";
    if (!config.isMaster) return CY_SUCCESS;
    step = "SCB0 made SPI slave again";
    return Configurator(device).setupSpi(false);
}

class Steps {
public:
    explicit Steps(Session& session) : session_(session) { session.report.result["steps"] = Json::array(); }

    void take(const char*& step, const std::function<CY_RETURN_STATUS()>& work) {
        const TAVO_STATUS status = session_.tryCall("recover", [&] { return cypressToTavo(work()); });
        const bool ok = status == TAVO_SUCCESS;
        session_.report.result["steps"].push_back({{"step", step}, {"ok", ok}});
        session_.report.line((ok ? "ok    " : "FAIL  ") + std::string(step) +
                             (ok ? "" : std::string(": ") + tavoStatusString(status)));
        if (!ok && failed_ == TAVO_SUCCESS) failed_ = status;
    }
    TAVO_STATUS failed() const { return failed_; }

private:
    Session& session_;
    TAVO_STATUS failed_ = TAVO_SUCCESS;
};

void recover(Session& session) {
    DeviceInfo& device = session.info();
    if (session.options.dryRun) {
        session.report.note("would drive pins 14 and 8 high and make SCB0 an SPI slave; nothing was done (--dry-run)");
        return;
    }
    Steps steps(session);
    // Each step is tried, whatever became of the others. SCB0 first: as a master it would drive the
    // flash beside the Neuron that starts.
    const char* step = "SCB0 opened";
    steps.take(step, [&] { return giveBack(device, step); });
    for (const Line& line : kLines) {
        step = line.step;
        steps.take(step, [&] { return release(device, line.pin); });
    }
    if (steps.failed() == TAVO_SUCCESS) return;
    throw libraryFailure(steps.failed(), Side::Bridge, "recover " + session.deviceName());
}

}  // namespace

Run declareRecover(Arguments&) {
    return recover;
}

}  // namespace cli
