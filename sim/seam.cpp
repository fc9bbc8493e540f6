// The bridge library's functions and libusb's control transfer, answered by the simulated interface.
#include "sim/seam.h"

#include <libusb.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/portPath.h"

using sim::Board;
using sim::Function;
using sim::Handle;
using sim::hexBytes;
using sim::Seam;
using sim::text;

#define TAVO_SEAM extern "C" TAVO_SIM_API

namespace {

using State = Seam::State;

constexpr std::size_t kMostBytes = 8;  // of one transfer in the journal
constexpr std::string (*kNoLine)() = [] { return std::string(); };

// A function on an open handle: 14 for a null or unknown one, like the bridge library.
template <class Text, class Body>
CY_RETURN_STATUS onHandle(Function function, CY_HANDLE handle, Text line, Body body) {
    return static_cast<CY_RETURN_STATUS>(Seam::call(function, line, [&](State& state) -> int {
        Handle* const open = state.find(handle);
        if (open == nullptr) return CY_ERROR_INVALID_HANDLE;
        return body(*state.board, *open);
    }));
}

bool isAttached(const State& state, UINT8 deviceNumber) {
    return deviceNumber == 0 && state.board && state.board->whyAbsent().empty();
}

int open(State& state, UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle) {
    if (handle == nullptr || !isAttached(state, deviceNumber)) return CY_ERROR_INVALID_PARAMETER;
    if (state.board->isDenied()) return CY_ERROR_ACCESS_DENIED;
    if (interfaceNumber >= state.board->bridge.interfaceCount() || !state.claim()) return CY_ERROR_DRIVER_OPEN_FAILED;
    state.handles.push_back(std::make_unique<Handle>(interfaceNumber));
    *handle = state.handles.back()->record.data();
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
    const auto isIt = [handle](const auto& each) { return each->record.data() == handle; };
    if (std::erase_if(state.handles, isIt) > 0) state.board->release();
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

int spiTransfer(Board& board, const Handle& handle, CY_DATA_BUFFER* read, CY_DATA_BUFFER* write, UINT32 timeout) {
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
    sim::rig().spiBytes += length;
    ++sim::rig().spiTransfers;
    return CY_SUCCESS;
}

std::string userFlashLine(const char* direction, const CY_DATA_BUFFER* data, UINT32 address) {
    return text("userflash %s %u %u", direction, address, data != nullptr ? data->length : 0);
}

}  // namespace

TAVO_SEAM CY_RETURN_STATUS CyGetListofDevices(UINT8* numDevices) {
    return static_cast<CY_RETURN_STATUS>(Seam::call(
        Function::CyGetListofDevices, [] { return std::string("list"); },
        [&](State& state) -> int {
            if (numDevices == nullptr) return CY_ERROR_INVALID_PARAMETER;
            *numDevices = isAttached(state, 0) ? 1 : 0;
            return CY_SUCCESS;
        }));
}

TAVO_SEAM CY_RETURN_STATUS CyGetDeviceInfo(UINT8 deviceNumber, CY_DEVICE_INFO* deviceInfo) {
    return static_cast<CY_RETURN_STATUS>(Seam::call(
        Function::CyGetDeviceInfo, [&] { return text("info %u", deviceNumber); },
        [&](State& state) -> int {
            if (deviceInfo == nullptr || !isAttached(state, deviceNumber)) return CY_ERROR_INVALID_PARAMETER;
            return describe(*state.board, *deviceInfo);
        }));
}

TAVO_SEAM CY_RETURN_STATUS CyGetPortPath(UINT8 deviceNumber, char* path, UINT32 size) {
    return static_cast<CY_RETURN_STATUS>(Seam::call(Function::CyGetPortPath, kNoLine, [&](State& state) -> int {
        if (path == nullptr || !isAttached(state, deviceNumber)) return CY_ERROR_INVALID_PARAMETER;
        const std::string own = state.board->portPath();
        if (own.size() >= size) return CY_ERROR_INVALID_PARAMETER;
        std::memcpy(path, own.c_str(), own.size() + 1);
        return CY_SUCCESS;
    }));
}

TAVO_SEAM CY_RETURN_STATUS CyOpen(UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle) {
    return static_cast<CY_RETURN_STATUS>(Seam::call(
        Function::CyOpen, [&] { return text("open %u.%u", deviceNumber, interfaceNumber); },
        [&](State& state) -> int { return open(state, deviceNumber, interfaceNumber, handle); }));
}

TAVO_SEAM CY_RETURN_STATUS CyClose(CY_HANDLE handle) {
    State& state = Seam::state();
    const std::lock_guard lock(state.mutex);
    const Handle* const known = state.find(handle);
    const std::string line = known != nullptr ? text("close 0.%u", known->interfaceNumber) : "close";
    const CY_RETURN_STATUS status = onHandle(
        Function::CyClose, handle, [&] { return line; }, [](Board&, Handle&) -> int { return CY_SUCCESS; });
    forget(state, handle);
    return status;
}

TAVO_SEAM CY_RETURN_STATUS CyGetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    return onHandle(
        Function::CyGetSpiConfig, handle, [] { return std::string("getspi"); },
        [&](Board& board, Handle& open) -> int {
            if (config == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.getSpiConfig(open.interfaceNumber, *config);
        });
}

TAVO_SEAM CY_RETURN_STATUS CySetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    const auto line = [&] {
        if (config == nullptr) return std::string("setspi");
        return text("setspi %s %u", config->isMaster ? "master" : "slave", config->frequency);
    };
    return onHandle(Function::CySetSpiConfig, handle, line, [&](Board& board, Handle& open) -> int {
        if (config == nullptr) return CY_ERROR_INVALID_PARAMETER;
        return board.setSpiConfig(open.interfaceNumber, *config);
    });
}

TAVO_SEAM CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE handle, CY_DATA_BUFFER* readBuffer, CY_DATA_BUFFER* writeBuffer,
                                          UINT32 timeout) {
    return onHandle(
        Function::CySpiReadWrite, handle, [&] { return spiLine(readBuffer, writeBuffer); },
        [&](Board& board, Handle& open) -> int {
            sim::rig().lastTimeout = timeout;
            return spiTransfer(board, open, readBuffer, writeBuffer, timeout);
        });
}

TAVO_SEAM CY_RETURN_STATUS CyGetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8* value) {
    return onHandle(
        Function::CyGetGpioValue, handle, [&] { return text("pin %u?", pin); },
        [&](Board& board, Handle&) -> int {
            if (value == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.getPin(pin, *value);
        });
}

TAVO_SEAM CY_RETURN_STATUS CySetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8 value) {
    return onHandle(
        Function::CySetGpioValue, handle, [&] { return text("pin %u=%d", pin, value != 0); },
        [&](Board& board, Handle&) -> int { return board.setPin(pin, value != 0); });
}

TAVO_SEAM CY_RETURN_STATUS CyProgUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                           UINT32 timeout) {
    return onHandle(
        Function::CyProgUserFlash, handle, [&] { return userFlashLine("write", buffer, flashAddress); },
        [&](Board& board, Handle&) -> int {
            sim::rig().lastTimeout = timeout;
            if (buffer == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.programUserFlash(*buffer, flashAddress);
        });
}

TAVO_SEAM CY_RETURN_STATUS CyReadUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                           UINT32 timeout) {
    return onHandle(
        Function::CyReadUserFlash, handle, [&] { return userFlashLine("read", buffer, flashAddress); },
        [&](Board& board, Handle&) -> int {
            sim::rig().lastTimeout = timeout;
            if (buffer == nullptr) return CY_ERROR_INVALID_PARAMETER;
            return board.bridge.readUserFlash(*buffer, flashAddress);
        });
}

TAVO_SEAM int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, std::uint8_t type, std::uint8_t request,
                                                  std::uint16_t value, std::uint16_t index, unsigned char* data,
                                                  std::uint16_t length, unsigned int timeout) {
    const auto line = [&] { return text("control %02X %02X %04X %04X %u", type, request, value, index, length); };
    return Seam::call(Function::libusb_control_transfer, line, [&](State& state) -> int {
        sim::rig().lastTimeout = timeout;
        const auto isIt = [handle](const auto& each) { return each->usbHandle() == static_cast<void*>(handle); };
        if (std::none_of(state.handles.begin(), state.handles.end(), isIt)) return LIBUSB_ERROR_NO_DEVICE;
        return state.board->control(type, request, value, index, data, length);
    });
}
