// What is attached, and which of it is meant.
#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "platform/cyusbserial.h"
#include "platform/deviceIds.h"
#include "platform/discovery.h"
#include "platform/portPath.h"
#include "sim/preload.h"
#include "tavo/service/device.h"
#include "tavo/service/simulated.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr auto kLookAgain = std::chrono::milliseconds(500);
constexpr auto kSlice = std::chrono::milliseconds(50);

struct Prefix {
    const char* text;
    DeviceSpec::Kind kind;
};
constexpr Prefix kPrefixes[] = {{"serial:", DeviceSpec::Kind::Serial},
                                {"usb:", DeviceSpec::Kind::UsbPath},
                                {"neuron:", DeviceSpec::Kind::NeuronId},
                                {"sim:", DeviceSpec::Kind::Simulated}};

constexpr const char* kTrySimulated =
    "is it plugged in? Without hardware try the simulated interface: tavo-util -d sim:demo list";

/// Of the simulated interface that a description names; empty for one that is none.
std::string portPathOf(const std::string& description) {
    try {
        return sim::portPathOf(description);
    } catch (const std::invalid_argument&) {
        return "";
    } catch (const std::runtime_error&) {  // the current folder, where a relative one would lie, is gone
        return "";
    }
}

DeviceDescription describe(const platform::AttachedDevice& found) {
    DeviceDescription device;
    device.serial = found.info.serialNumberValid != 0 ? found.info.serialNumber.text : "";
    device.path = found.info.portPath;
    device.manufacturer = found.manufacturer;
    device.product = found.product;
    device.neuronId = found.info.neuronIdValid != 0 ? neuronIdText(found.info.neuronId) : "";
    device.vendorId = found.info.vendorId;
    device.productId = found.info.productId;
    if (found.scb0Found) device.scb0 = found.scb0IsSpi ? Scb0Role::Spi : Scb0Role::I2c;
    device.access = cypressToTavo(found.status);
    if (found.lockHolder != 0) device.holder = std::max(found.lockHolder, 0);
    device.info = found.info;
    return device;
}

std::vector<DeviceDescription> attached() {
    std::vector<platform::AttachedDevice> found;
    if (const auto status = platform::discoverDevices(found); status != CY_SUCCESS) {
        throw statusError(cypressToTavo(status), Side::Bridge, "look for interfaces");
    }
    std::vector<DeviceDescription> all;
    for (const auto& each : found) all.push_back(describe(each));
    return all;
}

std::string deniedPaths() {
    std::string paths;
    for (const auto& device : attached()) {
        if (device.access == TAVO_ACCESS_DENIED) paths += " " + device.path;
    }
    return paths;
}

Error severalDevices(const std::vector<DeviceDescription>& found) {
    Error error(Problem::SeveralDevices, countText(found.size(), "interface") + " attached, none chosen:",
                "choose one with -d SERIAL or -d usb:PATH, or take --all");
    for (const auto& device : found) error.details.push_back(device.name());
    return error;
}

/// False when it was cancelled.
bool pauseBeforeNextLook(const Control& control) {
    for (auto waited = std::chrono::milliseconds(0); waited < kLookAgain; waited += kSlice) {
        if (control.cancel != nullptr && control.cancel->isCancelled()) return false;
        std::this_thread::sleep_for(kSlice);
    }
    return true;
}

std::vector<DeviceDescription> waitForDevices(const std::vector<std::string>& specs, unsigned seconds,
                                              const Control& control) {
    const auto tell = [&](Event event) {
        event.phase = Phase::Wait;
        if (control.observer) control.observer(event);
    };
    tell({.kind = Event::Kind::PhaseBegins, .text = "for the interface, at most " + std::to_string(seconds) + " s"});
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::vector<DeviceDescription> found;
    while (found.empty() && std::chrono::steady_clock::now() < end) {
        if (!pauseBeforeNextLook(control)) {
            throw Error(Problem::Interrupted, "interrupted; everything is released", "repeat the command at any time");
        }
        found = devices(specs);
    }
    if (!found.empty()) tell({.kind = Event::Kind::PhaseEnds});
    return found;
}

}  // namespace

std::string DeviceDescription::name() const {
    const std::string own = serial.empty() ? "the interface" : serial;
    return path.empty() ? own : own + " at " + path;
}

std::string DeviceDescription::spec() const {
    if (path.empty()) return "serial:" + serial;
    return path.rfind("sim:", 0) == 0 ? path : "usb:" + path;
}

DeviceSpec DeviceSpec::parse(const std::string& text) {
    DeviceSpec spec{Kind::Serial, text};
    for (const auto& prefix : kPrefixes) {
        if (text.rfind(prefix.text, 0) == 0) spec = {prefix.kind, text.substr(std::string(prefix.text).size())};
    }
    if (spec.text.empty()) {
        throw Error(Problem::BadArgument, "-d '" + text + "' names no device",
                    "serial:TEXT, usb:BUS-PORT, neuron:HEX12, sim:DIR or a bare serial number");
    }
    if (spec.kind != Kind::NeuronId) return spec;
    NeuronId id;
    if (!id.fromString(("ID" + spec.text).c_str(), nullptr)) {
        throw Error(Problem::BadArgument, "'" + spec.text + "' is not a Neuron ID",
                    "12 hexadecimal digits: 050102030405");
    }
    spec.text = neuronIdText(id);
    return spec;
}

bool DeviceSpec::matches(const DeviceDescription& device) const {
    switch (kind) {
        case Kind::Serial:
            return device.serial == text;
        case Kind::UsbPath:
            return device.path == text;
        case Kind::NeuronId:
            return device.neuronId == text;
        case Kind::Simulated:
            return !device.path.empty() && device.path == portPathOf(text);
    }
    return false;
}

std::vector<DeviceDescription> devices(const std::vector<std::string>& specs) {
    std::vector<DeviceSpec> wanted;
    for (const auto& spec : specs) wanted.push_back(DeviceSpec::parse(spec));
    auto found = attached();
    // The order of the list is that of plugging in; people look for a port.
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    if (wanted.empty()) return found;
    std::erase_if(found, [&](const auto& device) {
        return std::none_of(wanted.begin(), wanted.end(), [&](const auto& spec) { return spec.matches(device); });
    });
    return found;
}

Error noDevice(const std::vector<std::string>& specs) {
    if (specs.empty()) return {Problem::NoDevice, "no interface attached", kTrySimulated};
    const std::string& wanted = specs.front();
    if (const std::string denied = deniedPaths(); !denied.empty()) {
        return {Problem::NoPermission,
                "no interface that may be opened matches " + wanted + "; access denied:" + denied,
                statusError(TAVO_ACCESS_DENIED, Side::Bridge, "").hint};
    }
    if (DeviceSpec::parse(wanted).kind != DeviceSpec::Kind::Simulated) {
        return {Problem::NoDevice, "no interface matches " + wanted, "tavo-util list shows what is attached"};
    }
    return {Problem::NoDevice, "cannot open " + wanted,
            isOnSimulatedInterfaces()
                ? "the lines before on standard error say what is wrong in its folder; another folder starts a new one"
                : "start the program by tavo-sim DIR -- PROGRAM; in Python, tavo_util.sim makes interfaces"};
}

DeviceDescription chooseDevice(const std::vector<std::string>& specs, std::optional<unsigned> waitSeconds,
                               const Control& control) {
    auto found = devices(specs);
    if (found.empty() && waitSeconds) found = waitForDevices(specs, *waitSeconds, control);
    if (found.empty()) throw noDevice(specs);
    if (found.size() > 1) throw severalDevices(found);
    return found.front();
}

bool isStillAttached(const std::string& path) {
    UINT8 count = 0;
    if (path.empty() || CyGetListofDevices(&count) != CY_SUCCESS) return true;  // nothing is known
    for (UINT8 number = 0; number < count; ++number) {
        char found[sizeof DeviceInfo::portPath] = "";
        if (CyGetPortPath(number, found, sizeof found) == CY_SUCCESS && path == found) return true;
    }
    return false;
}

void allowUsbId(std::uint16_t vendorId, std::uint16_t productId) {
    platform::allowDeviceId(vendorId, productId);
}

}  // namespace tavo
