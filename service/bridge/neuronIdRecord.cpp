// The Neuron ID in the bridge's user flash.
#include <algorithm>
#include <array>

#include "platform/cyusbserial.h"
#include "service/neuron/requests.h"
#include "tavo/service/configuration.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

// One page of the user flash, written whole: the ID, then zeros.
constexpr std::size_t kRecordSize = 128;
constexpr UINT32 kRecordAddress = 0;
constexpr UINT32 kTimeoutMs = 1000;
using Record = std::array<UCHAR, kRecordSize>;

Record recordOf(const NeuronId& id) {
    Record record{};
    std::copy_n(id.bytes, NeuronId::kSize, record.begin());
    return record;
}

CY_RETURN_STATUS transfer(Operation& op, decltype(CyProgUserFlash)* request, Record& record) {
    const DeviceInfo& info = op.device.info();
    const CyHandle config(info.configDeviceNumber, info.configInterfaceNumber);
    if (config.openStatus != CY_SUCCESS) return config.openStatus;
    if (request == CyProgUserFlash)
        op.state.userFlash = {Knowledge::Uncertain, "the record in the user flash may be damaged"};
    CY_DATA_BUFFER data{record.data(), kRecordSize, 0};
    return request(config.handle, &data, kRecordAddress, kTimeoutMs);
}

/// What the user flash holds after a write, good or bad.
void lookAfter(Operation& op, const Record& before, bool beforeKnown, const Record& wanted) {
    Record now{};
    const TAVO_STATUS status =
        op.tryCall("read the user flash back", [&] { return cypressToTavo(transfer(op, CyReadUserFlash, now)); });
    if (status != TAVO_SUCCESS) return;
    if (now == wanted) op.state.userFlash = {Knowledge::Written, "the Neuron ID is in the user flash"};
    if (now != wanted && beforeKnown && now == before)
        op.state.userFlash = {Knowledge::Unchanged, "user flash unchanged"};
}

void write(Operation& op, const NeuronId& id) {
    constexpr const char* kAgain = "store it again: tavo-util neuron-id store";
    op.state.userFlash = {Knowledge::Unchanged, "user flash unchanged"};
    Record before{};
    const bool beforeKnown = op.tryCall("read the user flash", [&] {
        return cypressToTavo(transfer(op, CyReadUserFlash, before));
    }) == TAVO_SUCCESS;
    Record wanted = recordOf(id);
    const TAVO_STATUS status =
        op.tryCall("store the Neuron ID", [&] { return cypressToTavo(transfer(op, CyProgUserFlash, wanted)); });
    if (status != TAVO_SUCCESS && op.state.userFlash.knowledge != Knowledge::Uncertain) {
        op.fail(statusError(status, Side::Bridge, "store the Neuron ID on " + op.device.name()));
    }
    lookAfter(op, before, beforeKnown, wanted);
    if (status != TAVO_SUCCESS)
        op.fail(statusError(status, Side::Bridge, "store the Neuron ID on " + op.device.name()));
    if (op.state.userFlash.knowledge != Knowledge::Written) {
        op.fail(Error(Problem::DeviceFailed,
                      "the bridge of " + op.device.name() + " took the Neuron ID and does not hold it", kAgain));
    }
}

StoredNeuronId plan(Operation& op, const std::optional<NeuronId>& id) {
    StoredNeuronId stored;
    stored.id = id ? *id : askNeuronId(op);
    const DeviceInfo& info = op.device.info();
    stored.written = info.neuronIdValid == 0 || stored.id != info.neuronId;
    return stored;
}

}  // namespace

StoredNeuronId planNeuronId(Device& device, const std::optional<NeuronId>& id, const Control& control) {
    return operate(device, control, [&](Operation& op) { return plan(op, id); });
}

StoredNeuronId storeNeuronId(Device& device, const std::optional<NeuronId>& id, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        const StoredNeuronId stored = plan(op, id);
        if (!stored.written) return stored;
        write(op, stored.id);
        device.info().neuronId = stored.id;
        device.info().neuronIdValid = 1;
        return stored;
    });
}

}  // namespace tavo
