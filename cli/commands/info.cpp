#include <algorithm>
#include <cstdio>

#include "cli/commands/commands.h"
#include "cli/flashAccess.h"
#include "cli/interruptedRun.h"
#include "cli/neuronNames.h"
#include "cli/session.h"
#include "tavo/cyboot.h"
#include "tavo/neuron.h"
#include "tavo/service/device.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

/// One row for people and one entry for programs; an absent item is null and tells why.
class Items {
public:
    explicit Items(Report& report) : report_(report) {}

    void add(const char* name, const std::string& label, const Json& value, const std::string& text) {
        report_.result[name] = value;
        report_.line(label + std::string(std::max<std::size_t>(label.size(), 13) - label.size() + 1, ' ') + text);
    }
    void absent(const char* name, const std::string& label, const std::string& why) {
        add(name, label, nullptr, "- (" + why + ")");
    }

private:
    Report& report_;
};

void addBridge(Session& session, Items& items) {
    const tavo::DeviceDescription& device = session.device().description();
    device.serial.empty() ? items.absent("serial", "serial", "none")
                          : items.add("serial", "serial", device.serial, device.serial);
    items.add("path", "path", device.path, device.path);
    const char* role = device.scb0 == tavo::Scb0Role::Spi ? "spi" : "i2c";
    device.scb0 != tavo::Scb0Role::Other ? items.add("scb0", "SCB0", role, role)
                                         : items.absent("scb0", "SCB0", "no SPI or I2C interface");
}

void addSiliconId(Session& session, Items& items) {
    UINT32 id = 0;
    const TAVO_STATUS status = session.tryCall("read the silicon ID", [&] {
        const CyHandle config(session.info().configDeviceNumber, session.info().configInterfaceNumber);
        if (config.openStatus != CY_SUCCESS) return cypressToTavo(config.openStatus);
        return cypressToTavo(CyGetSiliconID(config.handle, &id));
    });
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", id);
    status == TAVO_SUCCESS ? items.add("silicon_id", "silicon ID", text, text)
                           : items.absent("silicon_id", "silicon ID", tavoStatusString(status));
}

void addNeuron(Session& session, Items& items) {
    NeuronId id;
    auto status = session.tryCall("read the Neuron ID", [&] { return readNeuronId(session.info(), id); });
    const std::string text = neuronIdText(id);
    status == TAVO_SUCCESS ? items.add("neuron_id", "Neuron ID", text, text)
                           : items.absent("neuron_id", "Neuron ID", tavoStatusString(status));
    unsigned char program[8] = {};
    if (status == TAVO_SUCCESS) {
        status = session.tryCall("read the program ID", [&] { return readProgramId(session.info(), program); });
    }
    const std::string programText = hexText(program, sizeof program, "");
    status == TAVO_SUCCESS ? items.add("program_id", "program ID", programText, programText)
                           : items.absent("program_id", "program ID", tavoStatusString(status));
    NeuronState state{};
    if (status == TAVO_SUCCESS) {
        status = session.tryCall("read the node state", [&] { return readState(session.info(), state); });
    }
    const char* name = tavo::nodeStateName(state.nodeState);
    status == TAVO_SUCCESS
        ? items.add("node_state", "node state", namedJson(name, state.nodeState), tavo::named(name, state.nodeState))
        : items.absent("node_state", "node state", tavoStatusString(status));
}

/// Last: the look at the chip restarts the Neuron.
void addFlash(Session& session, Items& items) {
    try {
        const FlashChip chip = inspectFlash(session);
        const std::string maker = makerName(chip.maker);
        session.report.result["flash_maker"] = maker.empty() ? Json(nullptr) : Json(maker);
        session.report.result["flash_id"] =
            hexText(&chip.maker, 1) + hexText(&chip.memoryType, 1) + hexText(&chip.capacityCode, 1);
        items.add("flash_size", "flash", chip.size, chipText(chip));
    } catch (const Failure& failure) {
        session.report.result["flash_maker"] = nullptr;
        session.report.result["flash_id"] = nullptr;
        items.absent("flash_size", "flash", failure.text);
    }
}

void info(Session& session) {
    tellInterrupted(session.report, session.deviceName(), tavo::interruptedRun(session.device().description()));
    Items items(session.report);
    addBridge(session, items);
    addSiliconId(session, items);
    addNeuron(session, items);
    addFlash(session, items);
}

}  // namespace

Run declareInfo(Arguments&) {
    return info;
}

}  // namespace cli
