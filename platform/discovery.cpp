#include "platform/discovery.h"

#include <algorithm>
#include <utility>

#include "platform/cyusbserial.h"
#include "platform/deviceIds.h"
#include "platform/portPath.h"

namespace platform {
namespace {

constexpr UINT32 kNeuronIdRecordSize = 128;  // one page of the user flash, written whole
constexpr UINT32 kUserFlashTimeout = 1000;   // ms

std::string text(const UCHAR (&field)[CY_STRING_DESCRIPTOR_SIZE]) {
    return {std::begin(field), std::find(std::begin(field), std::end(field), UCHAR{0})};
}

void takeIdentity(const CY_DEVICE_INFO& description, AttachedDevice& device) {
    device.manufacturer = text(description.manufacturerName);
    device.product = text(description.productName);
    device.info.vendorId = description.vidPid.vid;
    device.info.productId = description.vidPid.pid;
    device.info.serialNumber = text(description.serialNum).c_str();
    device.info.serialNumberValid = device.info.serialNumber.text[0] != '\0';
}

void takeInterfaces(const CY_DEVICE_INFO& description, AttachedDevice& device) {
    const auto count = std::min<std::size_t>(description.numInterfaces, CY_MAX_DEVICE_INTERFACE);
    for (std::size_t i = 0; i < count; ++i) {
        if (description.deviceClass[i] != CY_CLASS_VENDOR) continue;
        const CY_DEVICE_TYPE type = description.deviceType[i];
        // Serial block 0 always owns interface 0. A vendor interface further on belongs to block 1,
        // which reaches other pins.
        if (i == 0 && (type == CY_TYPE_SPI || type == CY_TYPE_I2C)) {
            device.scb0Found = true;
            device.scb0IsSpi = type == CY_TYPE_SPI;
        }
        if (type == CY_TYPE_MFG) {
            device.configFound = true;
            device.info.configInterfaceNumber = static_cast<unsigned char>(i);
        }
    }
}

/// A Neuron ID that cannot be read is no fault of the device: the record may never have been written,
/// and another program may hold the interface.
void readNeuronId(DeviceInfo& info) {
    const CyHandle config(info.configDeviceNumber, info.configInterfaceNumber);
    if (config.openStatus != CY_SUCCESS) return;
    UCHAR record[kNeuronIdRecordSize] = {};
    CY_DATA_BUFFER buffer{record, sizeof record, 0};
    if (CyReadUserFlash(config.handle, &buffer, 0, kUserFlashTimeout) != CY_SUCCESS) return;
    if (buffer.transferCount < NeuronId::kSize) return;
    NeuronId id;
    id = record;
    if (!id.isValid()) return;
    info.neuronId = id;
    info.neuronIdValid = 1;
}

bool describe(UINT8 number, AttachedDevice& device) {
    CY_DEVICE_INFO description{};
    // The IDs and interfaces are known without permission; only the strings need the device opened.
    device.status = CyGetDeviceInfo(number, &description);
    if (!isDeviceIdExpected(description.vidPid.vid, description.vidPid.pid)) return false;
    device.info.scb0DeviceNumber = number;
    device.info.linkDeviceNumber = number;  // at most 254: the LDV name is made from serial number or Neuron ID
    device.info.configDeviceNumber = number;
    takeIdentity(description, device);
    takeInterfaces(description, device);
    CyGetPortPath(number, device.info.portPath, sizeof device.info.portPath);
    if (device.status == CY_SUCCESS && device.configFound) readNeuronId(device.info);
    return true;
}

}  // namespace

CY_RETURN_STATUS discoverDevices(std::vector<AttachedDevice>& devices) {
    devices.clear();
    UINT8 count = 0;
    if (const CY_RETURN_STATUS status = CyGetListofDevices(&count); status != CY_SUCCESS) return status;
    for (UINT8 number = 0; number < count; ++number) {
        AttachedDevice device{};
        if (describe(number, device)) devices.push_back(std::move(device));
    }
    return CY_SUCCESS;
}

}  // namespace platform
