// The program's own definitions of the bridge's and the driver's
// functions come first in the order of symbols: each one notes the call and passes it on to the next
// definition, which is the hardware's or the simulated interface's.
#include <dlfcn.h>
#include <libusb.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "platform/cyusbserial.h"
#include "platform/ldv.h"
#include "tavo/service/trace.h"

#define TAVO_TRACED extern "C" __attribute__((visibility("default")))

namespace {

constexpr std::size_t kShownBytes = 16;

/// Of this thread: two devices in two threads are told apart.
thread_local const tavo::TransferTrace::Teller* tellerOfThread = nullptr;

template <typename Function>
Function* next(const char* name) {
    void* const found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) std::abort();  // linked with a library that lacks it
    return reinterpret_cast<Function*>(found);
}

std::string bytesText(const unsigned char* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < std::min(size, kShownBytes); ++i) {
        char digits[8];
        static_cast<void>(std::snprintf(digits, sizeof digits, " %02X", bytes[i]));
        text += digits;
    }
    return text + (size > kShownBytes ? " .. (" + std::to_string(size) + ")" : "");
}

bool isNoted() {
    return tellerOfThread != nullptr;
}

template <typename... Values>
void note(const char* format, Values... values) {
    if (!isNoted()) return;
    char text[160];
    static_cast<void>(std::snprintf(text, sizeof text, format, values...));  // what is too long is cut
    (*tellerOfThread)(text);
}

}  // namespace

namespace tavo {

TransferTrace::TransferTrace(Teller teller) : teller_(std::move(teller)) {
    tellerOfThread = &teller_;
}

TransferTrace::~TransferTrace() {
    tellerOfThread = nullptr;
}

}  // namespace tavo

TAVO_TRACED CY_RETURN_STATUS CyOpen(UINT8 deviceNumber, UINT8 interfaceNumber, CY_HANDLE* handle) {
    static const auto real = next<decltype(CyOpen)>("CyOpen");
    const auto status = real(deviceNumber, interfaceNumber, handle);
    note("  open %u.%u: %u", deviceNumber, interfaceNumber, static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CyClose(CY_HANDLE handle) {
    static const auto real = next<decltype(CyClose)>("CyClose");
    const auto status = real(handle);
    note("  close: %u", static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CyGetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    static const auto real = next<decltype(CyGetSpiConfig)>("CyGetSpiConfig");
    const auto status = real(handle, config);
    note("  get SPI configuration: %u", static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CySetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    static const auto real = next<decltype(CySetSpiConfig)>("CySetSpiConfig");
    const auto status = real(handle, config);
    note("  set SPI configuration %s %u Hz: %u", config != nullptr && config->isMaster ? "master" : "slave",
         config != nullptr ? config->frequency : 0, static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE handle, CY_DATA_BUFFER* readBuffer, CY_DATA_BUFFER* writeBuffer,
                                            UINT32 timeout) {
    static const auto real = next<decltype(CySpiReadWrite)>("CySpiReadWrite");
    const auto status = real(handle, readBuffer, writeBuffer, timeout);
    if (!isNoted()) return status;  // thousands of calls: no text is made for nothing
    std::string text = "  SPI";
    if (writeBuffer != nullptr) text += " out" + bytesText(writeBuffer->buffer, writeBuffer->length);
    if (readBuffer != nullptr) text += " in" + bytesText(readBuffer->buffer, readBuffer->length);
    (*tellerOfThread)(text + ": " + std::to_string(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CyGetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8* value) {
    static const auto real = next<decltype(CyGetGpioValue)>("CyGetGpioValue");
    const auto status = real(handle, pin, value);
    note("  pin %u is %d: %u", pin, value != nullptr ? *value : -1, static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CySetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8 value) {
    static const auto real = next<decltype(CySetGpioValue)>("CySetGpioValue");
    const auto status = real(handle, pin, value);
    note("  pin %u = %u: %u", pin, value, static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CyProgUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                             UINT32 timeout) {
    static const auto real = next<decltype(CyProgUserFlash)>("CyProgUserFlash");
    const auto status = real(handle, buffer, flashAddress, timeout);
    note("  program user flash at %u: %u", flashAddress, static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED CY_RETURN_STATUS CyReadUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* buffer, UINT32 flashAddress,
                                             UINT32 timeout) {
    static const auto real = next<decltype(CyReadUserFlash)>("CyReadUserFlash");
    const auto status = real(handle, buffer, flashAddress, timeout);
    note("  read user flash at %u: %u", flashAddress, static_cast<unsigned>(status));
    return status;
}

TAVO_TRACED int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t requestType, uint8_t request,
                                                    uint16_t value, uint16_t index, unsigned char* data,
                                                    uint16_t length, unsigned int timeout) {
    static const auto real = next<decltype(libusb_control_transfer)>("libusb_control_transfer");
    const int result = real(handle, requestType, request, value, index, data, length, timeout);
    note("  control %02X %02X %04X %04X %u: %d", requestType, request, value, index, length, result);
    return result;
}

TAVO_TRACED unsigned short ldv_open(const char* deviceName, short* handle) {
    static const auto real = next<decltype(ldv_open)>("ldv_open");
    const auto status = real(deviceName, handle);
    note("  LDV open %s: %u", deviceName, status);
    return status;
}

TAVO_TRACED unsigned short ldv_write(short handle, const void* message, unsigned short length) {
    static const auto real = next<decltype(ldv_write)>("ldv_write");
    const auto status = real(handle, message, length);
    note("  LDV out%s: %u", bytesText(static_cast<const unsigned char*>(message), length).c_str(), status);
    return status;
}

TAVO_TRACED unsigned short ldv_read(short handle, void* message, unsigned short length) {
    static const auto real = next<decltype(ldv_read)>("ldv_read");
    const auto status = real(handle, message, length);
    if (status == LDV_NO_MSG_AVAIL) return status;  // every 10 ms of a wait
    note("  LDV in%s: %u", bytesText(static_cast<const unsigned char*>(message), length).c_str(), status);
    return status;
}

TAVO_TRACED unsigned short ldv_close(short handle) {
    static const auto real = next<decltype(ldv_close)>("ldv_close");
    const auto status = real(handle);
    note("  LDV close: %u", status);
    return status;
}
