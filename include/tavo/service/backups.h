// What this computer keeps of an interface before a run changes it, and the way back.
//
// Images (raw binary), configuration blocks (.bin) and domain tables (.json) are plain files in backups/SERIAL of
// the state folder (history.h), which only their owner may read. The same content is kept once, the last ten of
// each kind stay, and the copy of a run that failed stays until a later one has mended it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/service/configuration.h"
#include "tavo/service/flash.h"

namespace tavo {

/// What a backup is of.
enum class BackupKind : std::uint8_t { Flash, Configuration, Domains };
TAVO_API const char* backupKindName(BackupKind kind);  ///< for programs: "flash", "config", "domain"
TAVO_API const char* backupKindText(BackupKind kind);  ///< for people: "image", "configuration block", "domain table"

/// One backup that this computer keeps.
struct Backup {
    BackupKind kind = BackupKind::Flash;  ///< what it is
    std::string id;           ///< "20240501-140359-3fa4b2c1d0e5": local time when it was first kept, and sha256
    std::string path;         ///< absolute
    std::string time;         ///< when the interface held it last, UTC: "2024-05-01T12:03:59Z"
    std::string sha256;       ///< of the file; of an image also its identity
    std::uint64_t bytes = 0;  ///< of the file
    bool isDamaged = false;   ///< the file is not what was kept
    std::string takenBefore;  ///< what the run did then: "program /images/new.hex"; may be empty
};

/// What is kept of this interface, the latest first; under earlier serial numbers too, as far as the log tells
/// them. Reads every file. Nothing for what cannot be read.
TAVO_API std::vector<Backup> backups(const DeviceDescription& device);

/// One of them. which: the beginning of an ID or of the sha256, or a file's name; empty: the one that was made
/// before the run that has left the flash incomplete, else the latest. Throws Error (FileSystem) when there is none,
/// BadArgument for a text that names several.
TAVO_API Backup findBackup(const DeviceDescription& device, BackupKind kind, const std::string& which = "");

/// Why a backup may be of another interface with the same serial number, for people; empty when nothing speaks for it.
/// It is what the Neuron IDs that the bridges keep, and the ports, tell: ask before it is put back.
TAVO_API std::string doubtAbout(const Backup& backup, const DeviceDescription& device);

/// How a backup is put back.
struct RestoreOptions {
    bool noBackup = false;  ///< does not keep what is there now
};

/// What was done; only what belongs to the backup's kind is filled.
struct RestoreResult {
    bool changed = false;                ///< false: all of it was there already, nothing was written
    std::optional<ProgramResult> flash;  ///< as programFlash tells it
    std::vector<ByteChange> bytes;       ///< of the configuration block
    std::vector<unsigned> domains;       ///< entries of the domain table that were changed
    std::vector<unsigned> keptKeys;      ///< entries whose key is not in the backup: the Neuron's own has stayed
    std::string backup;                  ///< file that keeps what was there before; empty: none
    DeviceState state;                   ///< of the device, afterwards
};

/// Puts it back: an image as programFlash does, a block with its serial number (applies after a replug), a domain
/// table. The key of an entry that the backup has masked stays as it is in the Neuron, and is refused where that
/// would be the key of another domain.
/// Throws Error: FileRefused for a file that is not what was kept; else as the operation that does it.
TAVO_API RestoreResult restore(Device& device, const Backup& backup, const RestoreOptions& options = {},
                               const Control& control = {});

}  // namespace tavo
