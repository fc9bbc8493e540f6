#include "platform/deviceLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace platform {
namespace {

constexpr mode_t kEveryone = 0666;  // any user may take the lock after any other

/// O_NOFOLLOW and the regular-file test: the folders are open to everyone, so a link or a pipe may
/// have been put in the way. O_NONBLOCK keeps a pipe from holding up the open.
constexpr int kSafe = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

std::vector<std::string> folders() {
    const char* temporary = std::getenv("TMPDIR");
    return {"/run/lock", temporary != nullptr && *temporary != '\0' ? temporary : "/tmp"};
}

std::string fileName(const std::string& portPath) {
    std::string name = "tavo-util-" + portPath + ".lock";
    for (char& c : name) {
        if (c == '/' || c == '\0') c = '_';
    }
    return name;
}

/// Opens the existing file first: the kernel refuses O_CREAT on another user's file in a sticky,
/// world-writable folder (fs.protected_regular). A file that cannot be written can still be locked.
int openOrCreate(const std::string& path) {
    if (const int file = open(path.c_str(), O_RDWR | kSafe); file >= 0) return file;
    if (const int file = open(path.c_str(), O_RDONLY | kSafe); file >= 0) return file;
    if (errno != ENOENT) return -1;
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | kSafe, kEveryone);
    if (file >= 0) {
        static_cast<void>(fchmod(file, kEveryone));  // past the umask
        return file;
    }
    return errno == EEXIST ? open(path.c_str(), O_RDWR | kSafe) : -1;
}

int openLockFile(const std::string& path) {
    const int file = openOrCreate(path);
    struct stat status {};
    if (file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode)) return file;
    if (file >= 0) close(file);
    return -1;
}

void writeHolder(int file) {
    const std::string text = std::to_string(getpid()) + "\n";
    if (ftruncate(file, 0) != 0 || pwrite(file, text.data(), text.size(), 0) < 0) return;  // only a hint to others
}

int readHolder(int file) {
    char text[16] = {};
    return pread(file, text, sizeof text - 1, 0) > 0 ? static_cast<int>(std::strtol(text, nullptr, 10)) : 0;
}

}  // namespace

DeviceLock::DeviceLock(const std::string& portPath) {
    for (const std::string& folder : folders()) {
        const int file = openLockFile(folder + "/" + fileName(portPath));
        if (file < 0) continue;
        // The kernel drops the lock with its process: a file left behind locks nobody out.
        if (flock(file, LOCK_EX | LOCK_NB) == 0) {
            writeHolder(file);
            descriptor_ = file;
            return;
        }
        holder_ = readHolder(file);
        close(file);
        return;
    }
}

DeviceLock::~DeviceLock() {
    if (descriptor_ < 0) return;
    // The file stays: removing it would let two processes lock two files of one name.
    if (ftruncate(descriptor_, 0) != 0) errno = 0;
    close(descriptor_);
}

}  // namespace platform
