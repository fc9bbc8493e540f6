// Finding the device that the user means.
#pragma once

#include <string>
#include <vector>

#include "cli/options.h"
#include "cli/outcome.h"
#include "platform/discovery.h"

namespace cli {

struct DeviceSpec {
    enum class Kind { Serial, UsbPath, NeuronId, Simulated };
    Kind kind = Kind::Serial;
    std::string text;  ///< without its prefix

    bool matches(const platform::AttachedDevice& device) const;
};

/// "serial:TEXT", "usb:PATH", "neuron:HEX12", "sim:DIR[,OPTIONS]", or a bare serial number.
/// Throws Failure (exit 2).
DeviceSpec parseDeviceSpec(const std::string& text);

/// What is attached, and passes the choice when there is one. Throws Failure when USB cannot be used.
std::vector<platform::AttachedDevice> findDevices(const std::vector<std::string>& specs);

/// What to say when there is none.
Failure noDevice(const GlobalOptions& options);

/// The one device the options choose; waits for it with --wait. Throws Failure (3, 4, 5).
platform::AttachedDevice chooseDevice(const GlobalOptions& options);

/// False when nothing is plugged in at that place any more.
bool isStillAttached(const std::string& portPath);

/// "00001234 at 1-4.2"
std::string describe(const platform::AttachedDevice& device);
std::string neuronIdText(const NeuronId& id);                    ///< 12 upper-case digits
std::string serialText(const platform::AttachedDevice& device);  ///< empty when unknown

}  // namespace cli
