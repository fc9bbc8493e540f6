#include "cli/running/hint.h"

#include <algorithm>
#include <string_view>

#include "cli/arguments/command.h"
#include "tavo/service/text.h"

namespace cli {
namespace {

constexpr std::string_view kTool = "tavo-util ";

std::string optionsFor(const GlobalOptions& options, const std::string& spec) {
    std::string text = "-d " + tavo::shellWord(spec);
    for (const auto& id : options.usbIds) text += " --usb-id " + id;
    return text;
}

/// True when text begins with the name of a command that works on one device.
bool beginsWithDeviceCommand(std::string_view text) {
    const std::string_view word = text.substr(0, text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"));
    const auto all = commands();
    return std::any_of(all.begin(), all.end(), [word](const Command& command) {
        const std::string_view name = command.name;
        return needsDevice(command.needs) && name.substr(0, name.find(' ')) == word;
    });
}

}  // namespace

std::string deviceOptions(const GlobalOptions& options) {
    return options.devices.size() == 1 ? optionsFor(options, options.devices.front()) : "";
}

std::string deviceOptions(const GlobalOptions& options, const tavo::DeviceDescription& device) {
    return optionsFor(options, device.spec());
}

std::string withDevice(const std::string& hint, const std::string& options) {
    std::string text = hint;
    if (options.empty()) return text;
    for (auto at = text.find(kTool); at != std::string::npos; at = text.find(kTool, at)) {
        at += kTool.size();
        if (beginsWithDeviceCommand(std::string_view(text).substr(at))) text.insert(at, options + " ");
    }
    return text;
}

}  // namespace cli
