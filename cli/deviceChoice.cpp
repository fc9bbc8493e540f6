#include "cli/deviceChoice.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "cli/interrupt.h"
#include "cli/log.h"
#include "cli/outcome.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "tavo/status.h"

namespace cli {
namespace {

constexpr auto kLookAgain = std::chrono::milliseconds(500);

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

/// Attached interfaces that this user may not open: one of them may be the one that is wanted.
std::string deniedPaths() {
    std::vector<platform::AttachedDevice> attached;
    if (platform::discoverDevices(attached) != CY_SUCCESS) return {};
    std::string paths;
    for (const auto& device : attached) {
        if (device.status == CY_ERROR_ACCESS_DENIED) paths += std::string(" ") + device.info.portPath;
    }
    return paths;
}

Failure severalDevices(const std::vector<platform::AttachedDevice>& found) {
    const std::string text = countText(found.size(), "interface") + " attached, none chosen:";
    std::vector<std::string> names;
    for (const auto& device : found) names.push_back(describe(device));
    return {Exit::SeveralDevices, text, "choose one with -d SERIAL or -d usb:PATH, or take --all", {}, names};
}

std::vector<platform::AttachedDevice> waitForDevices(const GlobalOptions& options) {
    auto found = findDevices(options.devices);
    if (!found.empty() || !options.waitSeconds) return found;
    progress().begin("wait", "for the interface, at most " + std::to_string(*options.waitSeconds) + " s");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(*options.waitSeconds);
    while (found.empty() && std::chrono::steady_clock::now() < end) {
        throwIfInterrupted();
        std::this_thread::sleep_for(kLookAgain);
        found = findDevices(options.devices);
    }
    found.empty() ? progress().abandon() : progress().end();
    return found;
}

}  // namespace

bool DeviceSpec::matches(const platform::AttachedDevice& device) const {
    switch (kind) {
        case Kind::Serial:
            return serialText(device) == text;
        case Kind::UsbPath:
            return text == device.info.portPath;
        case Kind::NeuronId:
            return device.info.neuronIdValid != 0 && neuronIdText(device.info.neuronId) == text;
        case Kind::Simulated:
            return true;  // this process sees no other device
    }
    return false;
}

DeviceSpec parseDeviceSpec(const std::string& text) {
    DeviceSpec spec{DeviceSpec::Kind::Serial, text};
    for (const auto& prefix : kPrefixes) {
        if (text.rfind(prefix.text, 0) == 0) spec = {prefix.kind, text.substr(std::string(prefix.text).size())};
    }
    if (spec.text.empty()) {
        throw Failure{Exit::Usage,
                      "-d '" + text + "' names no device",
                      "serial:TEXT, usb:BUS-PORT, neuron:HEX12, sim:DIR or a bare serial number",
                      {}};
    }
    if (spec.kind != DeviceSpec::Kind::NeuronId) return spec;
    NeuronId id;
    if (!id.fromString(("ID" + spec.text).c_str(), nullptr)) {
        throw Failure{Exit::Usage, "'" + spec.text + "' is not a Neuron ID", "12 hexadecimal digits: 050102030405", {}};
    }
    spec.text = neuronIdText(id);
    return spec;
}

std::vector<platform::AttachedDevice> findDevices(const std::vector<std::string>& specs) {
    std::vector<DeviceSpec> wanted;
    for (const auto& spec : specs) wanted.push_back(parseDeviceSpec(spec));
    std::vector<platform::AttachedDevice> found;
    if (const auto status = platform::discoverDevices(found); status != CY_SUCCESS) {
        throw libraryFailure(cypressToTavo(status), Side::Bridge, "look for interfaces");
    }
    // The order of the list is that of plugging in; people look for a port.
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return std::strcmp(a.info.portPath, b.info.portPath) < 0; });
    log().write(Detail::Step, countText(found.size(), "interface") + " attached");
    if (wanted.empty()) return found;
    std::erase_if(found, [&](const auto& device) {
        return std::none_of(wanted.begin(), wanted.end(), [&](const auto& spec) { return spec.matches(device); });
    });
    return found;
}

bool isStillAttached(const std::string& portPath) {
    std::vector<platform::AttachedDevice> attached;
    if (platform::discoverDevices(attached) != CY_SUCCESS) return true;  // nothing is known
    return std::any_of(attached.begin(), attached.end(),
                       [&](const auto& device) { return portPath == device.info.portPath; });
}

Failure noDevice(const GlobalOptions& options) {
    if (options.devices.empty()) return {Exit::NoDevice, "no interface attached", kTrySimulated, {}};
    const std::string& wanted = options.devices.front();
    if (const std::string denied = deniedPaths(); !denied.empty()) {
        return {Exit::NoPermission,
                "no interface that may be opened matches " + wanted + "; access denied:" + denied,
                "install the udev rule (packaging/) and replug; sudo is not needed",
                {}};
    }
    const bool simulated = parseDeviceSpec(wanted).kind == DeviceSpec::Kind::Simulated;
    return {Exit::NoDevice,
            (simulated ? "cannot open " : "no interface matches ") + wanted,
            simulated
                ? "the lines before on standard error say what is wrong in its folder; another folder starts a new one"
                : "tavo-util list shows what is attached",
            {}};
}

platform::AttachedDevice chooseDevice(const GlobalOptions& options) {
    auto found = waitForDevices(options);
    if (found.empty()) throw noDevice(options);
    if (found.size() > 1) throw severalDevices(found);
    return found.front();
}

std::string describe(const platform::AttachedDevice& device) {
    const std::string serial = serialText(device);
    const std::string path = device.info.portPath;
    const std::string name = serial.empty() ? "the interface" : serial;
    return path.empty() ? name : name + " at " + path;
}

std::string neuronIdText(const NeuronId& id) {
    std::array<char, 2 * NeuronId::kSize + 1> text{};
    for (std::size_t i = 0; i < NeuronId::kSize; ++i) std::snprintf(&text[2 * i], 3, "%02X", id.bytes[i]);
    return text.data();
}

std::string serialText(const platform::AttachedDevice& device) {
    return device.info.serialNumberValid != 0 ? device.info.serialNumber.text : "";
}

}  // namespace cli
