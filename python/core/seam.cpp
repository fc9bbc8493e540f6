// The functions between the service layer and an interface. The dynamic linker looks for them in this module before
// it looks into the libraries that came with it, so the calls of those libraries arrive here, and go on to the
// platform's own functions (a load and a jump) or to those of the simulated interface. Where libtavo-sim is preloaded
// (tavo-sim PROGRAM), it is found before this module and nothing arrives here.
#include "python/core/seam.h"

#include <dlfcn.h>
#include <libusb.h>

#include <atomic>
#include <stdexcept>

#include "platform/cyusbserial.h"
#include "platform/ldv.h"
#include "platform/portPath.h"
#include "tavo/service/device.h"
#include "tavo/service/simulated.h"

namespace {

struct Way {
    const char* name;
    std::atomic<void*> function{nullptr};
    std::atomic<void*> simulated{nullptr};
};

enum Seam : unsigned {
    GetListofDevices,
    GetDeviceInfo,
    GetPortPath,
    GetKernelDriver,
    Open,
    Close,
    SpiReadWrite,
    GetSpiConfig,
    SetSpiConfig,
    ProgUserFlash,
    ReadUserFlash,
    GetGpioValue,
    SetGpioValue,
    ControlTransfer,
    LdvOpen,
    LdvWrite,
    LdvRead,
    LdvClose,
};

Way ways[] = {{"CyGetListofDevices"},
              {"CyGetDeviceInfo"},
              {"CyGetPortPath"},
              {"CyGetKernelDriver"},
              {"CyOpen"},
              {"CyClose"},
              {"CySpiReadWrite"},
              {"CyGetSpiConfig"},
              {"CySetSpiConfig"},
              {"CyProgUserFlash"},
              {"CyReadUserFlash"},
              {"CyGetGpioValue"},
              {"CySetGpioValue"},
              {"libusb_control_transfer"},
              {"ldv_open"},
              {"ldv_write"},
              {"ldv_read"},
              {"ldv_close"}};
static_assert(std::size(ways) == LdvClose + 1);

std::atomic<unsigned> lists = 0;

template <typename Function>
Function* to(Seam seam) {
    Way& way = ways[seam];
    if (void* const simulated = way.simulated) return reinterpret_cast<Function*>(simulated);
    if (way.function == nullptr) way.function = dlsym(RTLD_NEXT, way.name);
    return reinterpret_cast<Function*>(way.function.load());
}

}  // namespace

namespace binding {

void useSimulated(const std::string& library) {
    void* const opened = library.empty() ? nullptr : dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library.empty() && opened == nullptr) throw std::runtime_error(dlerror());
    for (Way& way : ways) way.simulated = opened != nullptr ? dlsym(opened, way.name) : nullptr;
    if (opened == nullptr) return;
    const unsigned before = lists;
    tavo::devices();
    if (lists != before) return;
    throw std::runtime_error(
        "the interfaces of this process cannot be simulated by tavo_util: it runs on those of tavo-sim, or something "
        "else loaded libtavo-service before");
}

}  // namespace binding

#define TAVO_SEAM extern "C" __attribute__((visibility("default")))

TAVO_SEAM CY_RETURN_STATUS CyGetListofDevices(UINT8* count) {
    ++lists;
    return to<decltype(CyGetListofDevices)>(GetListofDevices)(count);
}
TAVO_SEAM CY_RETURN_STATUS CyGetDeviceInfo(UINT8 device, CY_DEVICE_INFO* info) {
    return to<decltype(CyGetDeviceInfo)>(GetDeviceInfo)(device, info);
}
TAVO_SEAM CY_RETURN_STATUS CyGetPortPath(UINT8 device, char* path, UINT32 size) {
    return to<decltype(CyGetPortPath)>(GetPortPath)(device, path, size);
}
TAVO_SEAM CY_RETURN_STATUS CyGetKernelDriver(UINT8 device, UINT8 interface, char* name, UINT32 size) {
    return to<decltype(CyGetKernelDriver)>(GetKernelDriver)(device, interface, name, size);
}
TAVO_SEAM CY_RETURN_STATUS CyOpen(UINT8 device, UINT8 interface, CY_HANDLE* handle) {
    return to<decltype(CyOpen)>(Open)(device, interface, handle);
}
TAVO_SEAM CY_RETURN_STATUS CyClose(CY_HANDLE handle) {
    return to<decltype(CyClose)>(Close)(handle);
}
TAVO_SEAM CY_RETURN_STATUS CyGetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    return to<decltype(CyGetSpiConfig)>(GetSpiConfig)(handle, config);
}
TAVO_SEAM CY_RETURN_STATUS CySetSpiConfig(CY_HANDLE handle, CY_SPI_CONFIG* config) {
    return to<decltype(CySetSpiConfig)>(SetSpiConfig)(handle, config);
}
TAVO_SEAM CY_RETURN_STATUS CySpiReadWrite(CY_HANDLE handle, CY_DATA_BUFFER* in, CY_DATA_BUFFER* out, UINT32 timeout) {
    return to<decltype(CySpiReadWrite)>(SpiReadWrite)(handle, in, out, timeout);
}
TAVO_SEAM CY_RETURN_STATUS CyGetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8* value) {
    return to<decltype(CyGetGpioValue)>(GetGpioValue)(handle, pin, value);
}
TAVO_SEAM CY_RETURN_STATUS CySetGpioValue(CY_HANDLE handle, UINT8 pin, UINT8 value) {
    return to<decltype(CySetGpioValue)>(SetGpioValue)(handle, pin, value);
}
TAVO_SEAM CY_RETURN_STATUS CyProgUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* data, UINT32 address, UINT32 timeout) {
    return to<decltype(CyProgUserFlash)>(ProgUserFlash)(handle, data, address, timeout);
}
TAVO_SEAM CY_RETURN_STATUS CyReadUserFlash(CY_HANDLE handle, CY_DATA_BUFFER* data, UINT32 address, UINT32 timeout) {
    return to<decltype(CyReadUserFlash)>(ReadUserFlash)(handle, data, address, timeout);
}
TAVO_SEAM int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t type, uint8_t request,
                                                  uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                                                  unsigned timeout) {
    return to<decltype(libusb_control_transfer)>(ControlTransfer)(handle, type, request, value, index, data, length,
                                                                  timeout);
}
TAVO_SEAM unsigned short ldv_open(const char* name, short* handle) {
    return to<decltype(ldv_open)>(LdvOpen)(name, handle);
}
TAVO_SEAM unsigned short ldv_write(short handle, const void* message, unsigned short length) {
    return to<decltype(ldv_write)>(LdvWrite)(handle, message, length);
}
TAVO_SEAM unsigned short ldv_read(short handle, void* message, unsigned short length) {
    return to<decltype(ldv_read)>(LdvRead)(handle, message, length);
}
TAVO_SEAM unsigned short ldv_close(short handle) {
    return to<decltype(ldv_close)>(LdvClose)(handle);
}
