#include "tavo/service/overview.h"

#include "platform/cyusbserial.h"
#include "service/flash/access.h"
#include "tavo/cyboot.h"

namespace tavo {
namespace {

bool canOpenScb0(const DeviceInfo& info) {
    return CyHandle(info.scb0DeviceNumber, info.scb0InterfaceNumber).openStatus == CY_SUCCESS;
}

/// A part that does not answer is a finding. A device that is gone is none, nor is one that may be left held: where
/// SCB0 cannot be opened, nothing was taken.
bool isFinding(const Error& error, const Device& device) {
    if (error.problem == Problem::Interrupted || error.state.isSomethingHeld()) return false;
    if (!isStillAttached(device.description().path)) return false;
    const bool unseen = error.state.resetLine == LineState::Unknown || error.state.scb0 == Scb0State::Unknown;
    return !unseen || !canOpenScb0(device.info());
}

/// Fills what work gives, or why it gave nothing.
template <typename T, typename Work>
bool ask(const Device& device, Told<T>& told, const Work& work) {
    try {
        told.value = work();
        return true;
    } catch (const Error& error) {
        if (!isFinding(error, device)) throw;
        told.why = error.status ? tavoStatusString(*error.status) : error.what();
        return false;
    }
}

/// Without either interface nothing is left to be told.
void requireAccess(Operation& op) {
    const DeviceInfo& info = op.device.info();
    op.throwIfCancelled();
    const CyHandle config(info.configDeviceNumber, info.configInterfaceNumber);
    if (config.openStatus == CY_SUCCESS) return;
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    if (scb0.openStatus == CY_SUCCESS) return;
    op.fail(statusError(cypressToTavo(scb0.openStatus), Side::Bridge, "open " + op.device.name()));
}

std::uint32_t readSiliconId(Operation& op) {
    UINT32 id = 0;
    op.call(Side::Bridge, "read the silicon ID", [&] {
        const CyHandle config(op.device.info().configDeviceNumber, op.device.info().configInterfaceNumber);
        if (config.openStatus != CY_SUCCESS) return cypressToTavo(config.openStatus);
        return cypressToTavo(CyGetSiliconID(config.handle, &id));
    });
    return id;
}

/// A Neuron that does not answer once is not asked again.
void askNeuron(Device& device, const Control& control, Overview& all) {
    const bool answers = ask(device, all.neuronId, [&] { return readNeuronId(device, control); }) &&
                         ask(device, all.programId, [&] { return readProgramId(device, control); }) &&
                         ask(device, all.status, [&] { return readStatus(device, control); });
    if (answers) return;
    if (!all.neuronId.value) all.programId.why = all.neuronId.why;
    if (!all.programId.value) all.status.why = all.programId.why;
}

}  // namespace

Overview overview(Device& device, const Control& control) {
    Operation op(device, control);
    Overview all;
    all.interrupted = interruptedRun(device.description());
    if (all.interrupted) op.state.flash = interruptedState(*all.interrupted);
    requireAccess(op);
    ask(device, all.siliconId, [&] { return readSiliconId(op); });
    askNeuron(device, control, all);
    ask(device, all.flash, [&] { return readFlashChip(op); });
    all.state = op.state;
    return all;
}

}  // namespace tavo
