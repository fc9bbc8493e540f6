// Where this computer keeps what it remembers: folders, who may look into them, names.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tavo/service/device.h"

namespace tavo {

inline constexpr const char* kRootState = "/var/lib/tavo-util";
inline constexpr const char* kSimulatedPath = "sim:";

/// Keeps its state in its own folder, or nowhere: one in memory is gone with its process, as its flash is.
bool isSimulated(const DeviceDescription& device);
bool isInMemory(const DeviceDescription& device);

/// What cannot be kept, and what to do about it. doing completes "cannot ...".
Error storeError(const std::string& doing, int error);

/// Of this user, or of the simulated interface. Empty when there is none: an interface in memory, no home.
std::filesystem::path stateFolder(const DeviceDescription& device);
/// That one and root's, which everybody may look into.
std::vector<std::filesystem::path> stateFolders(const DeviceDescription& device);

/// stateFolder, made when it is not there. Throws Error (FileSystem), also when there is none to make.
std::filesystem::path madeStateFolder(const DeviceDescription& device);
/// The folder of this interface's backups, which only its owner may look into: images and keys are nobody
/// else's business. Throws Error (FileSystem), also for one of another owner.
std::filesystem::path madeBackupFolder(const DeviceDescription& device);
/// The same, and nothing is made.
std::filesystem::path backupFolder(const DeviceDescription& device);

/// A name for a new file of this interface in its state folder, which is made; begin and ending are parts of it. Empty
/// for an interface in memory. Throws Error (FileSystem).
std::string newStateFile(const DeviceDescription& device, const std::string& begin, const std::string& ending);

/// Of a text of a device; two texts never have one name.
std::string uniqueName(const std::string& text);

/// "2024-05-01T12:03:59Z"
std::string utcText(std::time_t time);

}  // namespace tavo
