#include <algorithm>
#include <array>

#include "platform/cyusbserial.h"
#include "tavo/bridge.h"
#include "tavo/neuron.h"

namespace {

// One page of the user flash: the ID, then zeros.
constexpr std::size_t kRecordSize = 128;
constexpr UINT32 kRecordAddress = 0;
constexpr UINT32 kTimeout = 1000;  // ms

}  // namespace

TAVO_STATUS programNeuronIdIntoCypress(const DeviceInfo& deviceInfo, const NeuronId& neuronId) {
    if (neuronId == deviceInfo.neuronId) return TAVO_SUCCESS;
    const CyHandle config(deviceInfo.configDeviceNumber, deviceInfo.configInterfaceNumber);
    if (config.openStatus != CY_SUCCESS) return cypressToTavo(config.openStatus);

    std::array<UCHAR, kRecordSize> record{};
    std::copy_n(neuronId.bytes, NeuronId::kSize, record.begin());
    CY_DATA_BUFFER data{record.data(), record.size(), 0};
    return cypressToTavo(CyProgUserFlash(config.handle, &data, kRecordAddress, kTimeout));
}

TAVO_STATUS writeNeuronId(const DeviceInfo& deviceInfo, std::string neuronId) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    NeuronId id;
    neuronId.insert(0, "ID");
    if (!id.fromString(neuronId.c_str(), nullptr)) return TAVO_UNKNOWN_ERROR;
    if (!id.isValid()) return TAVO_UNKNOWN_ERROR;
    return programNeuronIdIntoCypress(deviceInfo, id);
}

TAVO_STATUS writeNeuronId(const DeviceInfo& deviceInfo) {
    if (!deviceInfo.areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    NeuronId id;
    if (const auto status = readNeuronId(deviceInfo, id); status != TAVO_SUCCESS) return status;
    return programNeuronIdIntoCypress(deviceInfo, id);
}
