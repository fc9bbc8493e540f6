// Keeps two programs off one device: an advisory lock by port path, held while an operation runs.
#pragma once

#include <string>

#include "tavo/export.h"

namespace platform {

class TAVO_API DeviceLock {
public:
    /// Tries to take the lock of the device at portPath; does not wait.
    explicit DeviceLock(const std::string& portPath);
    ~DeviceLock();
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;

    bool isHeld() const { return descriptor_ >= 0; }
    /// Process ID of the holder when another process has it; 0 when unknown.
    int holder() const { return holder_; }

private:
    int descriptor_ = -1;
    int holder_ = 0;
};

}  // namespace platform
