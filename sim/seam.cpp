// The bridge library's functions and libusb's control transfer, answered by the simulated interface.
#include "sim/seam.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/portPath.h"
#include "sim/bus.h"

using sim::Board;
using sim::Bus;
using sim::Function;
using sim::Handle;
using sim::hexBytes;
using sim::Rig;
using sim::Seam;
using sim::text;

#define TAVO_SEAM extern "C" TAVO_SIM_API

namespace {

using State = Seam::State;

constexpr std::size_t kMostBytes = 8;  // of one transfer in the journal
constexpr std::string (*kNoLine)() = [] { return std::string(); };

Rig& ownerOf(const void* handle) {
    Bus::instance().setUpFromEnvironment();
    return Bus::instance().ownerOf(handle);
}

// A function on an open handle: 14 for a null or unknown one, like the bridge library.
// One of a device that is gone gives 10.
template <class Text, class Body>
CY_RETURN_STATUS onHandle(Function function, CY_HANDLE handle, Text line, Body body) {
    Rig& rig = ownerOf(handle);
    return static_cast<CY_RETURN_STATUS>(Seam::call(rig, function, line, [&](State& state) -> int {
        Handle* const open = state.find(handle);
        if (open == nullptr) return CY_ERROR_INVALID_HANDLE;
        if (open->isGone) return CY_ERROR_DEVICE_NOT_FOUND;
        return body(rig, *state.board, *open);
    }));
}

// A function on a device number; body(state) gets an attached interface.
template <class Text, class Body>
CY_RETURN_STATUS onNumber(Function function, UINT8 number, CY_RETURN_STATUS ifGone, Text line, Body body) {
    Bus::instance().setUpFromEnvironment();
    const Bus::Number numbered = Bus::instance().numbered(number);
    return static_cast<CY_RETURN_STATUS>(Seam::call(*numbered.rig, function, line, [&](State& state) -> int {
        if (!numbered.isListed) return CY_ERROR_INVALID_PARAMETER;
        if (!state.isAttached()) return ifGone;
        return body(*numbered.rig, state);
    }));
}

int open(Rig& rig, State& state, UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle) {
    if (handle == nullptr) return CY_ERROR_INVALID_PARAMETER;
    if (state.board->isDenied()) return CY_ERROR_ACCESS_DENIED;
    if (interfaceNumber >= state.board->bridge.interfaceCount() || !state.claim()) return CY_ERROR_DRIVER_OPEN_FAILED;
    state.handles.push_back(std::make_unique<Handle>(deviceNumber, interfaceNumber));
    Handle& opened = *state.handles.back();
    Bus::instance().add(opened.record.data(), rig);
    Bus::instance().add(opened.usbHandle(), rig);
    *handle = opened.record.data();
    return CY_SUCCESS;
}

/// IDs and interfaces are known without permission; only the strings need the device opened.
int describe(const Board& board, CY_DEVICE_INFO& info) {
    info = board.bridge.describe();
    if (!board.isDenied()) return CY_SUCCESS;
    for (auto* string : {&info.manufacturerName, &info.productName, &info.serialNum, &info.deviceFriendlyName}) {
        std::fill(std::begin(*string), std::end(*string), UCHAR{0});
    }
    return CY_ERROR_ACCESS_DENIED;
}

void forget(State& state, CY_HANDLE handle) {
    Handle* const known = state.find(handle);
    if (known == nullptr) return;
    const bool isGone = known->isGone;
    Bus::instance().remove(handle);
    Bus::instance().remove(known->usbHandle());
    std::erase_if(state.handles, [known](const auto& each) { return each.get() == known; });
    if (!isGone) state.board->release();
}

bool isAbsent(const CY_DATA_BUFFER* side) {
    return side == nullptr || side->buffer == nullptr || side->length == 0;
}

std::string spiLine(const CY_DATA_BUFFER* read, const CY_DATA_BUFFER* write) {
    std::string line = "spi";
    if (!isAbsent(write)) line += hexBytes(write->buffer, write->length, kMostBytes);
    if (!isAbsent(read)) line += text(" <%u", read->length);
    return line;
}

int spiTransfer(Rig& rig, Board& board, const Handle& handle, CY_DATA_BUFFER* read, CY_DATA_BUFFER* write,
                UINT32 timeout) {
    if (isAbsent(read)) read = nullptr;
    if (isAbsent(write)) write = nullptr;
    if (read == nullptr && write == nullptr) return CY_ERROR_INVALID_PARAMETER;
    if (!board.bridge.isSpi(handle.interfaceNumber)) return CY_ERROR_REQUEST_FAILED;
    // The chip clocks in as many bytes as it clocks out.
    if (read != nullptr && write != nullptr && read->length != write->length) {
        return read->length > write->length ? CY_ERROR_IO_TIMEOUT : CY_ERROR_BUFFER_OVERFLOW;
    }
    const UINT32 length = std::max(read != nullptr ? read->length : 0U, write != nullptr ? write->length : 0U);
    if (length > 0xFFFF) return CY_ERROR_IO_TIMEOUT;  // the length travels in 16 bits
    const CY_RETURN_STATUS status = board.transfer(write != nullptr ? write->buffer : nullptr,
                                                   read != nullptr ? read->buffer : nullptr, length, timeout);
    if (status != CY_SUCCESS) return status;
    if (read != nullptr) read->transferCount = length;
    if (write != nullptr) write->transferCount = length;
    rig.spiBytes += length;
    ++rig.spiTransfers;
    return CY_SUCCESS;
}

std::string userFlashLine(const char* direction, const CY_DATA_BUFFER* data, UINT32 address) {
    return text("userflash %s %u %u", direction, address, data != nullptr ? data->length : 0);
}

}  // namespace

TAVO_SEAM CY_RETURN_STATUS CyGetListofDevices(UINT8* numDevices) {
    Bus& bus = Bus::instance();
    bus.setUpFromEnvironment();
    const auto line = [] { return std::string("list"); };
    const auto body = [&](State&) -> int { return numDevices != nullptr ? CY_SUCCESS : CY_ERROR_INVALID_PARAMETER; };
    int status = CY_SUCCESS;
    for (Rig* each : bus.rigs()) {  // it is a call on every interface: a fault of any of them makes it fail
        const int own = Seam::call(*each, Function::CyGetListofDevices, line, body);
        if (status == CY_SUCCESS) status = own;
    }
    if (status == CY_SUCCESS) *numDevices = bus.renumber();
    return static_cast<CY_RETURN_STATUS>(status);
}

TAVO_SEAM CY_RETURN_STATUS CyGetDeviceInfo(UINT8 deviceNumber, CY_DEVICE_INFO* deviceInfo) {
    return onNumber(
        Function::CyGetDeviceInfo, deviceNumber, CY_ERROR_DEVICE_INFO_FETCH_FAILED,
        [&] { return text("info %u", deviceNumber); },
        [&](Rig&, State& state) -> int {
            if (deviceInfo == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return describe(*state.board, *deviceInfo);
        });
}

TAVO_SEAM CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size) {
    return onNumber(Function::CyGetPortPath, deviceNumber, CY_ERROR_INVALID_PARAMETER, kNoLine,
                    [&](Rig&, State& state) -> int {
                        const std::string own = state.board->portPath();
                        if (path == nullptr || own.size() >= size) return CY_ERROR_INVALID_PARAMETER;
                        std::memcpy(path, own.c_str(), own.size() + 1);
                        return CY_SUCCESS;
                    });
}

TAVO_SEAM CY_RETURN_STATUS CyGetKernelDriver(UINT8 deviceNumber, UINT8 interfaceNumber, char* name, UINT32 size) {
    return onNumber(
        Function::CyGetKernelDriver, deviceNumber, CY_ERROR_DEVICE_NOT_FOUND,
        [&] { return text("driver %u.%u", deviceNumber, interfaceNumber); },
        [&](Rig&, State&) -> int {
            if (name == nullptr || size == 0) return CY_ERROR_INVALID_PARAMETER;
            name[0] = '\0';  // no driver knows a simulated interface
            return CY_SUCCESS;
        });
}

TAVO_SEAM CY_RETURN_STATUS CyOpen(UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle) {
    return onNumber(
        Function::CyOpen, deviceNumber, CY_ERROR_DEVICE_NOT_FOUND,
        [&] { return text("open %u.%u", deviceNumber, interfaceNumber); },
        [&](Rig& rig, State& state) -> int { return open(rig, state, deviceNumber, interfaceNumber, handle); });
}

TAVO_SEAM CY_RETURN_STATUS CyClose(CY_HANDLE handle) {
    Rig& rig = ownerOf(handle);
    State& own = Seam::state(rig);
    const std::lock_guard lock(own.mutex);
    const Handle* const known = own.find(handle);
    const std::string line =
        known != nullptr ? text("close %u.%u", known->deviceNumber, known->interfaceNumber) : "close";
    const int status = Seam::call(
        rig, Function::CyClose, [&] { return line; },
        [&](State& state) { return state.find(handle) != nullptr ? CY_SUCCESS : CY_ERROR_INVALID_HANDLE; });
    forget(own, handle);
    return static_cast<CY_RETURN_STATUS>(status);
}

TAVO_SEAM CY_RETURN_STATUS CyGetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    return onHandle(
        Function::CyGetSpiConfig, handle, [] { return std::string("getspi"); },
        [&](Rig&, Board& board, Handle& open) -> int {
            if (config == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.getSpiConfig(open.interfaceNumber, *config);
        });
}

TAVO_SEAM CY_RETURN_STATUS CySetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    const auto line = [&] {
        if (config == nullptr) return std::string("setspi");
        return text("setspi %s %u", config->isMaster ? "master" : "slave", config->frequency);
    };
    return onHandle(Function::CySetSpiConfig, handle, line, [&](Rig&, Board& board, Handle& open) -> int {
        if (config == nullptr) return CY_ERROR_INVALID_PARAMETER;
        return board.setSpiConfig(open.interfaceNumber, *config);
    });
}

TAVO_SEAM CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE handle, CY_DATA_BUFFER* readBuffer, CY_DATA_BUFFER* writeBuffer,
                                          UINT32 timeout) {
    return onHandle(
        Function::CySpiReadWrite, handle, [&] { return spiLine(readBuffer, writeBuffer); },
        [&](Rig& rig, Board& board, Handle& open) -> int {
            rig.lastTimeout = timeout;
            return spiTransfer(rig, board, open, readBuffer, writeBuffer, timeout);
        });
}

TAVO_SEAM CY_RETURN_STATUS CyGetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8* value) {
    return onHandle(
        Function::CyGetGpioValue, handle, [&] { return text("pin %u?", pin); },
        [&](Rig&, Board& board, Handle&) -> int {
            if (value == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.getPin(pin, *value);
        });
}

TAVO_SEAM CY_RETURN_STATUS CySetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8 value) {
    return onHandle(
        Function::CySetGpioValue, handle, [&] { return text("pin %u=%d", pin, value != 0); },
        [&](Rig&, Board& board, Handle&) -> int { return board.setPin(pin, value != 0); });
}

TAVO_SEAM CY_RETURN_STATUS CyProgUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                           UINT32 timeout) {
    return onHandle(
        Function::CyProgUserFlash, handle, [&] { return userFlashLine("write", buffer, flashAddress); },
        [&](Rig& rig, Board& board, Handle&) -> int {
            rig.lastTimeout = timeout;
            if (buffer == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.programUserFlash(*buffer, flashAddress);
        });
}

TAVO_SEAM CY_RETURN_STATUS CyReadUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                           UINT32 timeout) {
    return onHandle(
        Function::CyReadUserFlash, handle, [&] { return userFlashLine("read", buffer, flashAddress); },
        [&](Rig& rig, Board& board, Handle&) -> int {
            rig.lastTimeout = timeout;
            if (buffer == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.readUserFlash(*buffer, flashAddress);
        });
}

TAVO_SEAM int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, std::uint8_t type, std::uint8_t request,
                                                  std::uint16_t value, std::uint16_t index, unsigned char* data,
                                                  std::uint16_t length, unsigned int timeout) {
    const auto line = [&] { return text("control %02X %02X %04X %04X %u", type, request, value, index, length); };
    Rig& rig = ownerOf(handle);
    return Seam::call(rig, Function::libusb_control_transfer, line, [&](State& state) -> int {
        rig.lastTimeout = timeout;
        const auto isIt = [handle](const auto& each) {
            return each->usbHandle() == static_cast<void*>(handle) && !each->isGone;
        };
        if (std::none_of(state.handles.begin(), state.handles.end(), isIt)) return LIBUSB_ERROR_NO_DEVICE;
        return state.board->control(type, request, value, index, data, length);
    });
}
