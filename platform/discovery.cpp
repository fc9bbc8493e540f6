#include "platform/discovery.h"

#include <libusb.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/cyusbserial.h"
#include "platform/deviceIds.h"
#include "platform/deviceLock.h"
#include "platform/portPath.h"

namespace platform {
namespace {

constexpr UINT32 kNeuronIdRecordSize = 128;  // one page of the user flash, written whole
constexpr UINT32 kUserFlashTimeout = 1000;   // ms

constexpr UINT8 kVendorIn = 0xC0;  // vendor request to the device itself, device to host
constexpr UINT8 kGetSignature = 0xBD;
constexpr UCHAR kSignature[] = {'C', 'Y', 'U', 'S'};  // the boot loader says CYBL: nothing to work with
constexpr unsigned kSignatureTimeout = 1000;          // ms

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

/// False for a device that is something else, or gone. Other products use the same IDs, and their
/// devices must not be sent the bridge's requests: only the right answer makes a device ours. A request that
/// failed otherwise has shown nothing; the technician who looks for a bridge that has stopped answering
/// finds it listed, with the status.
bool isBridge(CY_HANDLE handle, CY_RETURN_STATUS& status) {
    UCHAR answer[sizeof kSignature] = {};
    const int result = libusb_control_transfer(libusbHandleOf(handle), kVendorIn, kGetSignature, 0, 0, answer,
                                               sizeof answer, kSignatureTimeout);
    if (result == LIBUSB_ERROR_PIPE || result == LIBUSB_ERROR_NO_DEVICE) return false;
    if (result >= 0) return result == sizeof answer && std::equal(answer, std::end(answer), kSignature);
    status = result == LIBUSB_ERROR_TIMEOUT ? CY_ERROR_IO_TIMEOUT : CY_ERROR_REQUEST_FAILED;
    return true;
}

/// A Neuron ID that cannot be read is no fault of the device: the record may never have been written.
void readNeuronId(CY_HANDLE handle, DeviceInfo& info) {
    UCHAR record[kNeuronIdRecordSize] = {};
    CY_DATA_BUFFER buffer{record, sizeof record, 0};
    if (CyReadUserFlash(handle, &buffer, 0, kUserFlashTimeout) != CY_SUCCESS) return;
    if (buffer.transferCount < NeuronId::kSize) return;
    NeuronId id;
    id = record;
    if (!id.isValid()) return;
    info.neuronId = id;
    info.neuronIdValid = 1;
}

/// Asks the device itself, under its lock. False when it is not ours.
bool look(AttachedDevice& device) {
    const DeviceLock lock(lockName(device), LockPurpose::Look);
    if (lock.isBusy() && lock.holder() != getpid()) {
        device.lockHolder = lock.holder() > 0 ? lock.holder() : -1;
        return true;
    }
    const CyHandle config(device.info.configDeviceNumber, device.info.configInterfaceNumber);
    if (config.openStatus == CY_ERROR_DEVICE_NOT_FOUND) return false;
    if (config.openStatus == CY_ERROR_DRIVER_OPEN_FAILED) {
        device.lockHolder = -1;
        return true;
    }
    device.status = config.openStatus;
    if (device.status != CY_SUCCESS) return true;
    if (!isBridge(config.handle, device.status)) return false;
    if (device.status == CY_SUCCESS) readNeuronId(config.handle, device.info);
    return true;
}

bool describe(UINT8 number, AttachedDevice& device) {
    CY_DEVICE_INFO description{};
    // The IDs and interfaces are known without permission; only the strings need the device opened.
    device.status = CyGetDeviceInfo(number, &description);
    if (!isDeviceIdExpected(description.vidPid.vid, description.vidPid.pid)) return false;
    takeInterfaces(description, device);
    if (!device.configFound) return false;
    device.info.scb0DeviceNumber = number;
    device.info.linkDeviceNumber = number;  // at most 254: the LDV name is made from serial number or Neuron ID
    device.info.configDeviceNumber = number;
    takeIdentity(description, device);
    CyGetPortPath(number, device.info.portPath, sizeof device.info.portPath);
    return device.status != CY_SUCCESS || look(device);
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

std::string lockName(const AttachedDevice& device) {
    if (device.info.portPath[0] != '\0') return device.info.portPath;
    return std::string("serial-") + device.info.serialNumber.text;
}

}  // namespace platform
