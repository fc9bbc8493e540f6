// What this computer remembers of the runs that changed an interface: all of them in one log, and in a record of
// its own the one that began to change a flash and was cut off, by a kill, a crash, a pulled plug.
//
// Everything is kept as plain files in $XDG_STATE_HOME/tavo-util, by default ~/.local/state/tavo-util, for root
// /var/lib/tavo-util; what was done to a simulated interface is kept in its own folder.
#pragma once

#include <optional>
#include <string>
#include <vector>

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

/// What is remembered of this interface: by its serial number, so that it is found at another port too; by
/// its port when one of the two numbers is not known. What root remembers is found by everybody. None for one
/// that another process, or another object, works on: its run is still going on.
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
/// The one command that puts an image back into the flash.
TAVO_API std::string interruptedHint(const InterruptedRun& run);

/// One run that changed an interface, or was to. Texts are empty where nothing is to be told.
struct HistoryEntry {
    std::string time;    ///< of its begin, UTC: "2024-05-01T12:03:59Z"
    std::string action;  ///< "program", "erase", "restore", "config write", "set-serial", "scb0", "domain write"
    std::string part;    ///< what it works on: "flash", "config", "domain"
    std::string result;  ///< "done", "unchanged", "failed", "interrupted"; "started": it has not ended, or was cut off
    std::string serial;  ///< UTF-8; empty when it has none
    std::string path;    ///< port path, or sim: and the folder
    std::string neuronId;     ///< counts when neuronIdValid is not 0
    std::string image;        ///< absolute path of the file that was written
    std::string sha256;       ///< identity of what was written
    std::string serialAfter;  ///< the serial number that a rewrite of the configuration block gave
    std::string backup;       ///< file name of what was there before, among the backups of the interface
    std::string state;        ///< words for what is known of the interface afterwards
    std::string error;        ///< what failed; empty: nothing
    std::string tool;         ///< version of what did it
    std::string run;          ///< the same in the lines of one run
    double seconds = 0;       ///< that it took
};

/// What is remembered, and what of it cannot be read.
struct History {
    std::vector<HistoryEntry> entries;  ///< oldest first
    std::vector<std::string> faults;    ///< lines and files that could not be read, for people
};

/// The log of this user and of root, as far as this user may read it: history.jsonl, one JSON object a line, one
/// when a run begins to change something and one when it has ended, told here as one entry.
/// @param specs  only what was done to these; see DeviceSpec::parse. A serial number follows the interface
///               through its changes. None of them needs to be attached. Throws Error (BadArgument).
TAVO_API History history(const std::vector<std::string>& specs = {});

/// "2024-05-01 14:03:59" for an entry's time, where this computer is; the text itself when it is none.
TAVO_API std::string localTimeText(const std::string& utc);

}  // namespace tavo
