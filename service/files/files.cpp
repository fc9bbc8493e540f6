#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tavo/service/files.h"
#include "tavo/service/operation.h"

namespace tavo {
namespace {

constexpr int kLookEveryMs = 100;

/// A signal may come just before the wait, or to another thread: neither ends a read.
void waitForInput(int descriptor, const CancelToken& cancel) {
    pollfd input{descriptor, POLLIN, 0};
    for (int found = 0; found == 0;) {
        if (cancel.isCancelled()) throw Error(Problem::Interrupted, "interrupted");
        found = poll(&input, 1, kLookEveryMs);
        if (found < 0 && errno == EINTR) found = 0;
    }
}

}  // namespace

Descriptor::~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Error fileError(const std::string& doing, int error, const std::string& hint) {
    return {Problem::FileSystem, "cannot " + doing + ": " + std::strerror(error),
            hint.empty() ? "check the path, its permissions and the free space" : hint};
}

Descriptor openForReading(const std::string& path) {
    // Not blocking: a FIFO must not hang the program before it is seen to be one.
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) throw fileError("read " + path, errno);
    struct stat facts {};
    if (fstat(file.get(), &facts) != 0) throw fileError("read " + path, errno);
    if (S_ISDIR(facts.st_mode)) throw fileError("read " + path, EISDIR, "name the file inside the folder");
    if (!S_ISREG(facts.st_mode)) {
        throw Error(Problem::FileSystem, "cannot read " + path + ": not a regular file",
                    "save the data in a file first");
    }
    return file;
}

std::uint64_t sizeOf(const Descriptor& file) {
    struct stat facts {};
    return fstat(file.get(), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

std::size_t readSome(int descriptor, char* data, std::size_t size, const std::string& name, const CancelToken* cancel) {
    std::size_t filled = 0;
    while (filled < size) {
        if (cancel != nullptr) waitForInput(descriptor, *cancel);
        const ssize_t count = read(descriptor, data + filled, size - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw fileError("read " + name, errno);
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

void writeAll(int descriptor, const char* data, std::size_t size, const std::string& name) {
    while (size > 0) {
        const ssize_t written = write(descriptor, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0)
            throw fileError("write " + name, errno,
                            errno == EPIPE ? "the program that reads it has ended: look there" : "");
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

std::string safeName(const std::string& text) {
    constexpr const char* kSafe = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    std::string name = text;
    for (char& c : name) {
        if (c == '\0' || std::strchr(kSafe, c) == nullptr) c = '_';
    }
    if (name.empty()) return "_";
    if (name == "." || name == "..") return std::string(name.size(), '_');
    return name;
}

}  // namespace tavo
