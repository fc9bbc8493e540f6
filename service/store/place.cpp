#include "service/store/place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <system_error>

#include "service/image/sha256.h"
#include "tavo/service/files.h"

namespace tavo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kInMemory = "sim:memory";
constexpr mode_t kPrivate = 0700;
constexpr mode_t kVisible = 0755;  // root's: everybody is warned of an image that is not whole
constexpr std::size_t kDigest = 8;

/// Makes a folder whose parent is there. One that is there is left as it is.
void make(const fs::path& folder, mode_t mode) {
    if (mkdir(folder.c_str(), mode) == 0) return;
    if (errno != EEXIST || !fs::is_directory(folder)) throw storeError("make the folder " + folder.string(), errno);
}

/// Others must neither read nor replace what is kept in it.
void requirePrivate(const fs::path& folder) {
    make(folder, kPrivate);
    struct stat facts {};
    if (lstat(folder.c_str(), &facts) != 0) throw storeError("look into " + folder.string(), errno);
    if (!S_ISDIR(facts.st_mode)) throw storeError("use the folder " + folder.string(), ENOTDIR);
    if (facts.st_uid != geteuid()) {
        throw Error(
            Problem::FileSystem,
            "cannot keep backups in " + folder.string() + ": it belongs to user " + std::to_string(facts.st_uid),
            "give it to this user, or go on without a backup: --no-backup");
    }
    if ((facts.st_mode & 077) != 0 && chmod(folder.c_str(), kPrivate) != 0)
        throw storeError("close " + folder.string() + " to others", errno);
}

}  // namespace

bool isSimulated(const DeviceDescription& device) {
    return device.path.rfind(kSimulatedPath, 0) == 0;
}

bool isInMemory(const DeviceDescription& device) {
    return device.path == kInMemory;
}

Error storeError(const std::string& doing, int error) {
    return {Problem::FileSystem, "cannot " + doing + ": " + std::strerror(error),
            "check the folder's permissions and the space on the disk; XDG_STATE_HOME names another one, and "
            "--no-backup goes on without a backup"};
}

fs::path stateFolder(const DeviceDescription& device) {
    if (isInMemory(device)) return {};
    if (isSimulated(device)) return device.path.substr(std::strlen(kSimulatedPath));
    const char* state = std::getenv("XDG_STATE_HOME");
    // A relative folder is to be ignored (XDG Base Directory Specification).
    if (state != nullptr && *state == '/') return fs::path(state) / "tavo-util";
    if (geteuid() == 0) return kRootState;
    const char* home = std::getenv("HOME");
    return home != nullptr && *home == '/' ? fs::path(home) / ".local/state/tavo-util" : fs::path();
}

std::vector<fs::path> stateFolders(const DeviceDescription& device) {
    std::vector<fs::path> all;
    if (const fs::path own = stateFolder(device); !own.empty()) all.push_back(own);
    if (!isSimulated(device) && (all.empty() || all.front() != kRootState)) all.emplace_back(kRootState);
    return all;
}

fs::path madeStateFolder(const DeviceDescription& device) {
    const fs::path folder = stateFolder(device);
    if (folder.empty())
        throw storeError("find the folder for the history (neither XDG_STATE_HOME nor HOME is set)", ENOENT);
    std::error_code error;
    fs::create_directories(folder.parent_path(), error);
    if (error) throw storeError("make the folder " + folder.parent_path().string(), error.value());
    make(folder, geteuid() == 0 || isSimulated(device) ? kVisible : kPrivate);
    return folder;
}

fs::path backupFolder(const DeviceDescription& device) {
    const fs::path state = stateFolder(device);
    if (state.empty() || isSimulated(device)) return state.empty() ? state : state / "backups";
    // An interface without a serial number is known by its port.
    return state / "backups" / (device.serial.empty() ? "at-" + uniqueName(device.path) : uniqueName(device.serial));
}

fs::path madeBackupFolder(const DeviceDescription& device) {
    requirePrivate(madeStateFolder(device) / "backups");
    const fs::path folder = backupFolder(device);
    requirePrivate(folder);
    return folder;
}

std::string uniqueName(const std::string& text) {
    std::string name = safeName(text);
    if (name == text && name.rfind("at-", 0) != 0) return name;
    Sha256 digest;
    digest.add(text.data(), text.size());
    return name + "-" + digest.text().substr(0, kDigest);
}

std::string utcText(std::time_t time) {
    std::tm utc{};
    gmtime_r(&time, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

}  // namespace tavo
