// A libusb for tests: its devices are described by the test, every request must be the next one of a
// transcript, and libusb's own rules (claims, transfers in flight, references) are checked on every call.
#pragma once

#include <libusb.h>

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

struct InterfaceSpec {
    unsigned char interfaceClass;
    unsigned char subclass;
    std::vector<libusb_endpoint_descriptor> endpoints;
};

struct libusb_device {
    uint16_t vendorId = 0x04B4;
    uint16_t productId = 0x0004;
    std::vector<InterfaceSpec> interfaces;
    std::vector<std::string> strings = {"Tavo", "LON Interface", "00001234"};  // "!": the device refuses it
    uint8_t busNumber = 1;
    uint8_t address = 5;
    std::vector<uint8_t> ports = {4, 2};
    int openResult = LIBUSB_SUCCESS;
    std::set<int> boundDrivers;  // interfaces that a kernel driver holds
    std::set<int> foreignClaims;
    std::map<int, libusb_device_handle*> claims;
    int references = 0;
};

struct libusb_device_handle {
    libusb_device* device;
    bool autoDetach = false;
    std::set<int> detached;
};

struct libusb_context {};

/// One line of the transcript.
struct Step {
    std::string call;
    int result = 0;
    Bytes reply;
    std::function<void()> meanwhile;
};

// "40 CA 0003 0004 0" is bmRequestType, bRequest, wValue, wIndex, wLength; data sent follows after " | ".
Step control(const std::string& setup, const Bytes& reply = {});
Step controlFails(const std::string& setup, int result);
// "82 4" is endpoint and length; data sent follows after " | ".
Step submit(const std::string& what, int result = 0);
Step cancel(const std::string& endpoint);
Step clearHalt(const std::string& endpoint);
Step sleepStep(long milliseconds = 1);
// What event handling meets.
Step comesBack(const std::string& endpoint, libusb_transfer_status status, const Bytes& data = {});
Step comesBackWritten(const std::string& endpoint, int count);
Step eventsFail();

struct ScriptedUsb {
    std::vector<libusb_device*> attached;
    std::deque<Step> script;
    std::set<libusb_device_handle*> open;
    std::set<libusb_transfer*> transfers;
    std::map<libusb_transfer*, bool> inFlight;  // true: cancelled
    int configs = 0;
    int initResult = LIBUSB_SUCCESS;
    int contextsMade = 0;
    int contextsOpen = 0;
    bool allocationsFail = false;
    bool busyForever = false;  // the bridge never reports an idle SPI block
    long longestSleep = 0;     // ms
    unsigned limit = 10000;    // longest timeout of a bulk transfer; 0: there must be none

    /// Takes the next line of the transcript if it is this call; otherwise fails the test with both.
    Step next(const std::string& call);
};
ScriptedUsb& scriptedUsb();

std::string hex(const unsigned char* data, std::size_t count);
