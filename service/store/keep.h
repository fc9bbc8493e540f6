// Keeping what a run is about to change.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tavo/service/backups.h"

namespace tavo {

/// Before the device is touched: makes the folder and proves that so many bytes can be kept in it. Throws Error
/// (FileSystem), naming --no-backup. Does nothing for an interface in memory.
void requireRoom(const DeviceDescription& device, BackupKind kind, std::uint64_t bytes);
/// The room for an image of a chip that is not known yet: as large as the image and as what was kept last.
void requireRoomFor(const DeviceDescription& device, const Image& image);

/// Keeps them: on the disk when this returns. What is kept already becomes the latest. Removes the oldest beyond
/// the last ten of the kind.
/// @return the file; empty for an interface in memory. Throws Error (FileSystem).
std::string keepBackup(const DeviceDescription& device, BackupKind kind, std::span<const std::uint8_t> bytes);
/// The same of all that a chip holds. An erased chip is not kept: there is nothing to lose.
std::string keepBackup(const DeviceDescription& device, const Image& chip, std::uint32_t size);

/// True for the name of a file among the backups.
bool isBackupName(const std::string& path);
/// True for one that this user can read.
bool isKept(const std::string& path);
/// It is wanted now: it becomes the latest, and what is kept meanwhile does not drop it.
bool makeLatest(const std::string& path);

}  // namespace tavo
