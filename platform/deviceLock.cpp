#include "platform/deviceLock.h"

#include <Poco/Thread.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
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

/// A signal may interrupt any of these calls; none has done anything then.
template <class Call>
int uninterrupted(Call call) {
    for (;;) {
        if (const int result = call(); result >= 0 || errno != EINTR) return result;
    }
}

int openFile(const std::string& path, int flags) {
    return uninterrupted([&] { return open(path.c_str(), flags | kSafe, kEveryone); });
}

/// Opens the existing file first: the kernel refuses O_CREAT on another user's file in a sticky,
/// world-writable folder (fs.protected_regular). A file that cannot be written can still be locked.
int openOrCreate(const std::string& path) {
    if (const int file = openFile(path, O_RDWR); file >= 0) return file;
    if (const int file = openFile(path, O_RDONLY); file >= 0) return file;
    if (errno != ENOENT) return -1;
    const int file = openFile(path, O_RDWR | O_CREAT | O_EXCL);
    if (file >= 0) {
        static_cast<void>(fchmod(file, kEveryone));  // past the umask
        return file;
    }
    return errno == EEXIST ? openFile(path, O_RDWR) : -1;
}

int openLockFile(const std::string& path) {
    const int file = openOrCreate(path);
    struct stat status {};
    if (file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode)) return file;
    if (file >= 0) close(file);
    return -1;
}

// The text of a lock file: the holder's process ID and what it does. Nothing in it is needed to lock.
constexpr char kLookMark[] = " look";

void writeHolder(int file, LockPurpose purpose) {
    const std::string text = std::to_string(getpid()) + (purpose == LockPurpose::Look ? kLookMark : "") + "\n";
    if (ftruncate(file, 0) != 0 || pwrite(file, text.data(), text.size(), 0) < 0) return;  // only a hint to others
}

struct Holder {
    int process;  // 0: unknown
    bool looks;
};

Holder readHolder(int file) {
    char text[32] = {};
    // Without a text the lock is being taken or given up at this moment: the next look tells.
    if (pread(file, text, sizeof text - 1, 0) <= 0) return {0, true};
    return {static_cast<int>(std::strtol(text, nullptr, 10)), std::strstr(text, kLookMark) != nullptr};
}

// A look takes at most two requests of 1 s each.
constexpr long kLookInterval = 20;  // ms
constexpr int kLookIntervals = 100;

bool tryLock(int file) {
    // The kernel drops the lock with its descriptor: a file left behind locks nobody out.
    return uninterrupted([&] { return flock(file, LOCK_EX | LOCK_NB); }) == 0;
}

}  // namespace

DeviceLock::DeviceLock(const std::string& portPath, LockPurpose purpose) {
    int file = -1;
    for (const std::string& folder : folders()) {
        file = openLockFile(folder + "/" + fileName(portPath));
        if (file >= 0) break;
    }
    if (file < 0) return;
    for (int waited = 0; !tryLock(file); ++waited) {
        const Holder holder = readHolder(file);
        if (holder.looks && waited < kLookIntervals) {
            Poco::Thread::sleep(kLookInterval);
            continue;
        }
        holder_ = holder.process;
        busy_ = true;
        close(file);
        return;
    }
    writeHolder(file, purpose);
    descriptor_ = file;
}

DeviceLock::~DeviceLock() {
    release();
}

DeviceLock::DeviceLock(DeviceLock&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      holder_(std::exchange(other.holder_, 0)),
      busy_(std::exchange(other.busy_, false)) {}

DeviceLock& DeviceLock::operator=(DeviceLock&& other) noexcept {
    if (this == &other) return *this;
    release();
    descriptor_ = std::exchange(other.descriptor_, -1);
    holder_ = std::exchange(other.holder_, 0);
    busy_ = std::exchange(other.busy_, false);
    return *this;
}

void DeviceLock::release() {
    if (descriptor_ < 0) return;
    // The file stays: removing it would let two processes lock two files of one name.
    if (ftruncate(descriptor_, 0) != 0) errno = 0;
    close(descriptor_);
    descriptor_ = -1;
}

}  // namespace platform
