#include "service/bridge/access.h"

#include <libusb.h>

#include "platform/cyusbserial.h"
#include "tavo/cyboot.h"

namespace tavo {
namespace {

constexpr unsigned kTimeoutMs = 5000;
constexpr unsigned char kVendorOut = 0x40;  // bmRequestType (USB 2.0, 9.3): host to device, vendor, device
constexpr unsigned char kAccessMode = 0xE2;

// The pair that other programs send to these bridges: the complements of the letters CY, ON and OF.
constexpr std::uint16_t kLettersValue = 0xA6BC;
constexpr std::uint16_t kLettersOn = 0xB1B0;
constexpr std::uint16_t kLettersOff = 0xB9B0;

CY_RETURN_STATUS sendLetters(CY_HANDLE handle, bool enable) {
    const int result = libusb_control_transfer(libusbHandleOf(handle), kVendorOut, kAccessMode, kLettersValue,
                                               enable ? kLettersOn : kLettersOff, nullptr, 0, kTimeoutMs);
    if (result >= 0) return CY_SUCCESS;
    return result == LIBUSB_ERROR_TIMEOUT ? CY_ERROR_IO_TIMEOUT : CY_ERROR_REQUEST_FAILED;
}

}  // namespace

CY_RETURN_STATUS ConfigurationMode::ask(Pair pair, bool enable) const {
    return pair == Pair::Library ? CyFlashConfigEnable(interface_.handle, enable)
                                 : sendLetters(interface_.handle, enable);
}

CY_RETURN_STATUS ConfigurationMode::enter() {
    CY_RETURN_STATUS status = ask(Pair::Library, true);
    if (status == CY_ERROR_REQUEST_FAILED) {
        op_.step("the bridge refuses the access values 5C3E/82D4 for the configuration mode, tries A6BC/B1B0");
        status = ask(pair_ = Pair::Letters, true);
        refused_ = status == CY_ERROR_REQUEST_FAILED;
    }
    // A request whose answer was lost may have been carried out.
    entered_ = status != CY_ERROR_REQUEST_FAILED;
    return status;
}

CY_RETURN_STATUS ConfigurationMode::leave() {
    const CY_RETURN_STATUS status = ask(pair_, false);
    if (status == CY_SUCCESS) entered_ = false;
    return status;
}

ConfigurationMode::~ConfigurationMode() {
    if (entered_ && leave() != CY_SUCCESS) op_.note("the bridge may still be in configuration mode");
}

TAVO_STATUS readBlock(Operation& op, ConfigurationBlock& block, bool& refused) {
    ConfigurationMode mode(op);
    if (mode.openStatus() != CY_SUCCESS) return cypressToTavo(mode.openStatus());
    const CY_RETURN_STATUS entered = mode.enter();
    refused = mode.isRefused();
    if (entered != CY_SUCCESS) return cypressToTavo(entered);
    if (const auto status = CyReadDeviceConfig(mode.handle(), block.data()); status != CY_SUCCESS) {
        return cypressToTavo(status);
    }
    return cypressToTavo(mode.leave());
}

Error configurationError(const Operation& op, TAVO_STATUS status, const std::string& doing, bool refused) {
    Error error = statusError(status, Side::Bridge, doing);
    if (!isStillAttached(op.device.description().path)) {
        Error gone(Problem::NoDevice, std::string(error.what()) + ": the interface is no longer attached",
                   "plug it in again, then look what it holds: tavo-util config read");
        gone.status = status;
        return gone;
    }
    if (refused) {
        error.hint =
            "this bridge takes neither known pair of access values for its configuration mode; nothing can be "
            "read or written there, and replugging does not help";
    }
    return error;
}

}  // namespace tavo
