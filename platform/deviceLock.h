// Keeps two programs off one device: an advisory lock by port path, held while an operation runs.
#pragma once

#include <string>

#include "tavo/export.h"

namespace platform {

/// What a lock is taken for.
enum class LockPurpose {
    Run,   ///< an operation: others are refused at once
    Look,  ///< discovery asks the device a few things: over in milliseconds, so others wait for it
};

/// A lock belongs to its object, not to its process: a second one for the same device conflicts in the
/// same process too, and then names this process as the holder.
class TAVO_API DeviceLock {
public:
    /// Tries to take the lock of the device at portPath. Does not wait for another operation; waits at
    /// most 2 s for another look.
    explicit DeviceLock(const std::string& portPath, LockPurpose purpose = LockPurpose::Run);
    ~DeviceLock();
    DeviceLock(DeviceLock&& other) noexcept;  ///< other then holds nothing
    /// Gives up what it held; the other one then holds nothing.
    DeviceLock& operator=(DeviceLock&& other) noexcept;
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;

    /// True while this object has the lock.
    bool isHeld() const { return descriptor_ >= 0; }
    /// Another lock object has it. Neither held nor busy: no lock file could be made in any folder for them.
    bool isBusy() const { return busy_; }
    /// Process ID of the holder when the lock is busy, this process not excepted; 0 when unknown.
    int holder() const { return holder_; }

private:
    void release();

    int descriptor_ = -1;
    int holder_ = 0;
    bool busy_ = false;
};

}  // namespace platform
