#include <unistd.h>

#include <utility>

#include "platform/deviceLock.h"
#include "tavo/service/device.h"
#include "tavo/service/flash.h"

namespace tavo {
namespace {

std::string lockName(const DeviceDescription& device) {
    return device.path.empty() ? "serial-" + device.serial : device.path;
}

Error held(const std::string& device, int holder) {
    if (holder == ::getpid()) {
        return {Problem::Busy, device + " is in use by this process already", "close it where it was opened before"};
    }
    const std::string by = holder > 0 ? "by process " + std::to_string(holder) : "by another process";
    return {Problem::Busy, device + " is in use " + by, "wait until it has finished, or end it with Ctrl-C there"};
}

Error notLocked(const std::string& device) {
    return {Problem::FileSystem, "cannot lock " + device + ": no lock file can be made in /run/lock or $TMPDIR (/tmp)",
            "let this user write one of these folders, or name another one in TMPDIR"};
}

}  // namespace

struct Device::Held {
    explicit Held(DeviceDescription itsDescription)
        : description(std::move(itsDescription)), lock(lockName(description)) {}

    DeviceDescription description;
    platform::DeviceLock lock;
    std::optional<FlashChip> chip = {};
};

Device::Device(DeviceDescription description) : held_(std::make_unique<Held>(std::move(description))) {
    const platform::DeviceLock& lock = held_->lock;
    if (lock.isHeld()) {
        held_->description.holder.reset();  // who had it when it was found has gone
        return;
    }
    throw lock.isBusy() ? held(name(), lock.holder()) : notLocked(name());
}

Device Device::open(const std::string& spec, std::optional<unsigned> waitSeconds, const Control& control) {
    DeviceDescription description = chooseDevice({spec}, waitSeconds, control);
    if (description.access != TAVO_SUCCESS) {
        throw statusError(description.access, Side::Bridge, "open " + description.name());
    }
    return Device(std::move(description));
}

Device::~Device() = default;
Device::Device(Device&&) noexcept = default;
Device& Device::operator=(Device&&) noexcept = default;

const DeviceDescription& Device::description() const {
    return held_->description;
}

DeviceInfo& Device::info() {
    return held_->description.info;
}

const DeviceInfo& Device::info() const {
    return held_->description.info;
}

const FlashChip* Device::flashChip() const {
    return held_->chip ? &*held_->chip : nullptr;
}

void Device::noteFlashChip(const FlashChip& chip) {
    held_->chip = chip;
}

}  // namespace tavo
