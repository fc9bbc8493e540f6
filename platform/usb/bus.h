// The libusb side of the bridge library's functions: the context, the device list behind the device
// numbers, and the claimed interfaces behind the handles.
#pragma once

#include <libusb.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "platform/cyusbserial.h"
#include "platform/usb/spiSide.h"

namespace usb {

template <auto release>
struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};
using Device = std::unique_ptr<libusb_device, Releaser<libusb_unref_device>>;
using DeviceHandle = std::unique_ptr<libusb_device_handle, Releaser<libusb_close>>;
using ConfigDescriptor = std::unique_ptr<libusb_config_descriptor, Releaser<libusb_free_config_descriptor>>;

/// The first alternate setting of an interface (the bridge has no other); null when there is none.
const libusb_interface_descriptor* findInterface(const libusb_config_descriptor& config, unsigned char number);

/// Null when the device is not configured.
ConfigDescriptor activeConfig(libusb_device* device);

/// One claimed interface. USB grants an interface to a single claimant, so all handles of this
/// process on it share this object; the last one gives the interface back.
class Claim {
public:
    /// Opens the device and claims the interface, in place of a kernel driver if one is bound to it.
    /// @param claimedElsewhere  set when another program has the interface.
    static CY_RETURN_STATUS make(libusb_device* device, unsigned char interfaceNumber, std::shared_ptr<SpiSide> spi,
                                 std::shared_ptr<Claim>& claim, bool& claimedElsewhere);
    ~Claim();  ///< Gives the interface back to the kernel driver and closes the device.
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    bool isOf(libusb_device* device, unsigned char number) const;
    bool isSpi() const { return subclass_ == CY_TYPE_SPI && bulkOut_ != 0 && bulkIn_ != 0; }
    /// The serial block in bit 15 of wValue: interface 0 is block 0's, any other serial one block 1's.
    UINT16 block() const { return interfaceNumber_ == 0 ? 0 : 0x8000; }

    libusb_device_handle* usb() const { return usb_.get(); }
    unsigned char bulkOut() const { return bulkOut_; }
    unsigned char bulkIn() const { return bulkIn_; }
    SpiSide& spi() const { return *spi_; }

    std::atomic_flag transferring = ATOMIC_FLAG_INIT;  ///< set while an SPI transfer runs

private:
    Claim(DeviceHandle usb, const libusb_interface_descriptor& interface, std::shared_ptr<SpiSide> spi);

    DeviceHandle usb_;
    std::shared_ptr<SpiSide> spi_;
    unsigned char interfaceNumber_;
    unsigned char subclass_;  // 0 outside the vendor class
    unsigned char bulkOut_ = 0;
    unsigned char bulkIn_ = 0;
};

/// What a CY_HANDLE points to. The fields used from outside lie where the bridge library has them.
#pragma pack(push, 1)
struct HandleRecord {
    unsigned char reserved0[3];
    unsigned char interfaceNumber;
    unsigned char reserved1[27];
    libusb_device_handle* usb;
};
#pragma pack(pop)
static_assert(offsetof(HandleRecord, interfaceNumber) == 3 && offsetof(HandleRecord, usb) == CY_HANDLE_LIBUSB_OFFSET);

struct OpenInterface {
    HandleRecord record;
    std::shared_ptr<Claim> claim;
};
static_assert(std::is_standard_layout_v<OpenInterface>, "a pointer to it is a pointer to its record");

inline Claim& claimOf(CY_HANDLE handle) {
    return *static_cast<OpenInterface*>(handle)->claim;
}

/// A device on loan; the context it belongs to stays as long.
struct BorrowedDevice {
    std::shared_ptr<libusb_context> context;  // first in, last out
    Device device;

    libusb_device* get() const { return device.get(); }
    explicit operator bool() const { return device != nullptr; }
};

/// libusb's view of the buses, made at the first use. Threads may work on different devices at once, also
/// while another one takes a new list: a device keeps its number for as long as it stays plugged in, and a
/// number that has become free goes to no other place while there are others.
/// One lock guards all that is in here: list, handles, claims. It is held to open, claim and release, which
/// the kernel does at once, and never for a transfer, a request or a wait; what a handle points to belongs to
/// the thread that uses the handle.
class Bus {
public:
    static Bus& instance();

    /// Takes a new device list, through a new context when no handle is open. Devices that handles are
    /// open on stay alive beside it. The count includes numbers whose device is gone, but for the last ones.
    CY_RETURN_STATUS refresh(UINT8& count);
    /// The device behind a number, with a reference of its own; empty for a bad number.
    BorrowedDevice device(UINT8 number);
    /// Waits for an interface that another program has claimed, at most 0.5 s, without keeping other
    /// threads from the bus.
    CY_RETURN_STATUS open(UINT8 number, UINT8 interfaceNumber, CY_HANDLE& handle);
    CY_RETURN_STATUS close(CY_HANDLE handle);
    libusb_context* context() const { return context_.get(); }

private:
    CY_RETURN_STATUS tryOpen(UINT8 number, UINT8 interfaceNumber, CY_HANDLE& handle, bool& claimedElsewhere);
    CY_RETURN_STATUS makeContext();
    CY_RETURN_STATUS refreshLocked();
    void assignNumbers(std::vector<Device> attached);
    std::vector<std::string>::iterator freePlace(const std::string& place, const std::vector<Device>& numbered);
    void forgetSpiSidesOfTheGone();
    std::shared_ptr<SpiSide> spiSide(libusb_device* device, UINT8 interfaceNumber);
    libusb_device* find(UINT8 number);
    std::shared_ptr<Claim> sharedClaim(libusb_device* device, UINT8 interfaceNumber) const;

    std::mutex mutex_;
    std::shared_ptr<libusb_context> context_;  // first in, last out
    std::vector<std::string> places_;          // where the device of each number is plugged in, also when it is gone
    std::vector<Device> devices_;              // by number; null: nothing is there now
    using SpiSideKey = std::tuple<UINT8, UINT8, UINT8>;  // bus, address, interface: anew after each plugging in
    std::map<SpiSideKey, std::shared_ptr<SpiSide>> spiSides_;
    std::vector<std::unique_ptr<OpenInterface>> handles_;
    bool listed_ = false;
};

}  // namespace usb
