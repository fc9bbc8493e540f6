// What this computer remembers of runs that changed a flash and were cut off: by a kill, a crash, a pulled plug.
#pragma once

#include <optional>
#include <string>

#include "tavo/export.h"
#include "tavo/service/device.h"

namespace tavo {

/// A run that began to change a flash and has not been followed by one that finished. All empty when its
/// record is there and cannot be read.
struct InterruptedRun {
    std::string image;         ///< absolute path of the file that was being programmed; empty for an erase
    std::string sha256;        ///< of the image, 64 digits; may be empty
    std::string backup;        ///< absolute path of what was in the flash before; empty without a backup
    std::string started = {};  ///< local time with its offset from UTC: "2024-05-01T14:03:59+0200"
    std::string options = {};  ///< that the image was given with, as on the command line; often empty
    std::string kept = {};  ///< absolute path of the bytes of the chip around what is programmed; empty: none to keep
};

// One small text file per interface in $XDG_STATE_HOME/tavo-util, by default ~/.local/state/tavo-util, for
// root /var/lib/tavo-util; a simulated interface keeps it in its own folder.

/// What is remembered of this interface: by its serial number, so that it is found at another port too; by
/// its port when one of the two numbers is not known. What root remembers is found by everybody. A run that
/// is still going on is remembered too: ask while the device is locked, or of one that nobody has locked.
TAVO_API std::optional<InterruptedRun> interruptedRun(const DeviceDescription& device);

/// Remembers it until forgetRun: on the disk when this returns. Paths are made absolute, an empty start
/// becomes now. Throws Error (FileSystem); the run is then better warned of than refused.
TAVO_API void rememberRun(const DeviceDescription& device, const InterruptedRun& run);

/// After a run that finished. Throws Error (FileSystem) when a record stays.
TAVO_API void forgetRun(const DeviceDescription& device);

/// What the flash holds after it.
TAVO_API FlashState interruptedState(const InterruptedRun& run);
/// For people: what was going on when it was cut off, and what the flash holds now.
TAVO_API std::string interruptedText(const InterruptedRun& run);
/// What to do about it, where the backup lies.
TAVO_API std::string interruptedHint(const InterruptedRun& run);

}  // namespace tavo
