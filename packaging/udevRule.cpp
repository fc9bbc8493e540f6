// Prints the udev rule for the interfaces this product serves.
#include <cstdio>

#include "platform/deviceIds.h"

namespace {

/// Other products use the same IDs: the manufacturing interface (class FF, subclass 05) makes the difference.
void printRule(unsigned vendorId, unsigned productId, const char* what) {
    std::printf(
        "# %s\n"
        "SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"%04x\", ATTR{idProduct}==\"%04x\", "
        "ENV{ID_USB_INTERFACES}==\"*:ff05??:*\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n",
        what, vendorId, productId);
}

}  // namespace

int main() {
    std::puts("# Access for the user at the console and for the group plugdev. Generated from the product's ID table.");
#define TAVO_ID_ROW(vendorId, productId, what) printRule(vendorId, productId, what);
    TAVO_DEVICE_IDS(TAVO_ID_ROW)
#undef TAVO_ID_ROW
}
