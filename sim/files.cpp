#include "sim/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

bool writeAll(int descriptor, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

void failOn(const std::string& path, const std::string& what, const std::string& remedy) {
    throw std::runtime_error("simulated interface: " + path + ": " + what + "; " + remedy);
}

File::File(const std::string& path, int flags) : descriptor_(::open(path.c_str(), flags | O_CLOEXEC, 0666)) {}

File::~File() {
    if (descriptor_ >= 0) ::close(descriptor_);
}

int File::release() {
    return std::exchange(descriptor_, -1);
}

std::string readText(const std::string& path) {
    const File file(path, O_RDONLY);
    if (!file.isOpen() && errno == ENOENT) return "";
    std::string text;
    char piece[4096];
    ssize_t count = file.isOpen() ? 1 : -1;
    while (count > 0) {
        count = ::read(file.get(), piece, sizeof piece);
        if (count < 0 && errno == EINTR)
            count = 1;
        else if (count > 0)
            text.append(piece, static_cast<std::size_t>(count));
    }
    if (count < 0) failOn(path, std::strerror(errno), "make it readable and writable, or use another folder");
    return text;
}

void writeWhole(const std::string& path, std::span<const std::uint8_t> content, bool replace) {
    const std::string fresh = path + "." + std::to_string(::getpid());
    File file(fresh, O_WRONLY | O_CREAT | O_TRUNC);
    const bool written = file.isOpen() && writeAll(file.get(), content);
    const int error = errno;
    const bool placed = written && (replace ? ::rename(fresh.c_str(), path.c_str()) == 0
                                            : ::link(fresh.c_str(), path.c_str()) == 0 || errno == EEXIST);
    const int reason = written ? errno : error;
    if (!replace || !placed) ::unlink(fresh.c_str());
    if (!placed) failOn(path, std::strerror(reason), "choose a folder that this user may write to");
}

std::string madeFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::filesystem::path path = std::filesystem::canonical(folder, error);
    if (error || !std::filesystem::is_directory(path)) {
        failOn(folder, error ? error.message() : "not a folder", "name a folder, or one that can be made");
    }
    return path.string();
}

}  // namespace sim
