#include "service/flash/journal.h"

#include "tavo/service/history.h"

namespace tavo {
namespace {

constexpr const char* kNotRemembered = "cut off, this run would not be remembered on this computer";

}  // namespace

void rememberChange(Operation& op, const std::string& image, const std::string& sha256, const std::string& backup) {
    const DeviceDescription& device = op.device.description();
    InterruptedRun run{image, sha256, backup, {}};
    if (const auto before = interruptedRun(device); before && !before->backup.empty()) run.backup = before->backup;
    try {
        rememberRun(device, run);
    } catch (const Error& error) {
        op.warn(std::string(error.what()) + ": " + kNotRemembered, error.hint);
    }
}

void forgetChange(Operation& op) {
    try {
        forgetRun(op.device.description());
    } catch (const Error& error) {
        op.warn(std::string(error.what()) + ": this run will still be taken for one that was cut off", error.hint);
    }
}

}  // namespace tavo
