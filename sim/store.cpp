#include "sim/store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/bridge.h"
#include "sim/files.h"
#include "sim/plug.h"

namespace sim {

namespace {

constexpr std::size_t kDefaultFlashSize = 1u << 20;

std::size_t flashSize(const std::string& path, const Options& options) {
    const std::size_t wanted = options.flashSize != 0 ? options.flashSize : kDefaultFlashSize;
    struct stat found {};
    if (path.empty() || ::stat(path.c_str(), &found) != 0) return wanted;
    const auto size = static_cast<std::size_t>(found.st_size);
    if (!std::has_single_bit(size) || size < kSmallestFlash || size > kLargestFlash) {
        failOn(path, std::to_string(size) + " bytes is no size of a flash chip",
               "delete it to start with an erased chip");
    }
    if (options.flashSize != 0 && size != wanted) {
        failOn(path,
               "the chip in this folder has " + std::to_string(size >> 10) + "K, size=" + std::to_string(wanted >> 10) +
                   "K was asked for",
               "leave size= out, use another folder, or delete the file to start with an erased chip");
    }
    return size;
}

std::vector<std::uint8_t> padded(std::size_t size, std::span<const std::uint8_t> content) {
    std::vector<std::uint8_t> whole(size, 0xFF);
    std::copy(content.begin(), content.end(), whole.begin());
    return whole;
}

constexpr const char* kHeader =
    "# A simulated interface: what its parts hold beside their memories.\n"
    "# Delete this file to plug it in anew with the pins at rest.\n";

}  // namespace

MappedFile::MappedFile(const std::string& path, std::size_t size, std::span<const std::uint8_t> content) : size_(size) {
    constexpr int kAccess = PROT_READ | PROT_WRITE;
    void* memory = MAP_FAILED;
    if (path.empty()) {
        memory = ::mmap(nullptr, size, kAccess, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    } else {
        if (::access(path.c_str(), F_OK) != 0) writeWhole(path, padded(size, content), false);
        const File file(path, O_RDWR);
        struct stat found {};
        if (!file.isOpen() || ::fstat(file.get(), &found) != 0) {
            failOn(path, std::strerror(errno), "make it readable and writable, or use another folder");
        }
        if (static_cast<std::size_t>(found.st_size) != size) {
            failOn(path, std::to_string(found.st_size) + " bytes, must be " + std::to_string(size),
                   "restore it, or delete it to start from the factory state");
        }
        memory = ::mmap(nullptr, size, kAccess, MAP_SHARED, file.get(), 0);
    }
    if (memory == MAP_FAILED) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(memory);
    if (!path.empty()) return;
    std::memset(data_, 0xFF, size);
    std::copy(content.begin(), content.end(), data_);
}

MappedFile::~MappedFile() {
    ::munmap(data_, size_);
}

Store::Store(const Options& options)
    : folder(options.folder.empty() ? "" : madeFolder(options.folder)),
      flash(path("flash.bin"), flashSize(path("flash.bin"), options), {}),
      block(path("config.bin"), Bridge::kBlockSize, Bridge::factoryBlock(options.serialNumber)),
      userFlash(path("user-flash.bin"), Bridge::kUserFlashSize, {}),
      internalFlash(path("bridge-flash.bin"), Bridge::kInternalFlashSize, {}),
      plug_(path("plug")) {}

std::string Store::path(const char* file) const {
    return folder.empty() ? "" : folder + "/" + file;
}

int Store::lock() {
    if (folder.empty() || lockDescriptor_ >= 0) return 0;
    File file(path("lock"), O_RDWR | O_CREAT);
    if (!file.isOpen()) return -1;
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        const int holder = std::atoi(readText(path("lock")).c_str());
        return holder > 0 ? holder : -1;
    }
    const std::string own = std::to_string(::getpid()) + "\n";
    if (::ftruncate(file.get(), 0) != 0 || ::pwrite(file.get(), own.data(), own.size(), 0) < 0) return -1;
    lockDescriptor_ = file.release();
    return 0;
}

void Store::unlock() {
    if (lockDescriptor_ >= 0) ::close(std::exchange(lockDescriptor_, -1));
}

Store::Values Store::load() {
    Values values;
    if (folder.empty()) return values;
    text_ = readText(path("board.txt"));
    std::istringstream lines(text_);
    std::string line;
    for (unsigned number = 1; std::getline(lines, line); ++number) {
        if (line.empty() || line[0] == '#') continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos || equals == 0) {
            failOn(path("board.txt"), "line " + std::to_string(number) + " is not KEY=VALUE",
                   "mend it, or delete the file to plug the interface in anew");
        }
        values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return values;
}

void Store::save(const Values& values) {
    if (folder.empty()) return;
    std::string text = kHeader;
    for (const auto& [key, value] : values) text += key + "=" + value + "\n";
    if (text == text_) return;
    writeWhole(path("board.txt"), std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), true);
    text_ = text;
}

unsigned Store::plugChanges() const {
    return folder.empty() ? plugChangesInMemory_ : sim::plugChanges(plug_);
}

void Store::setPluggedIn(bool pluggedIn) {
    if (!folder.empty()) {
        sim::setPluggedIn(folder, pluggedIn);
    } else if (isPluggedIn(plugChangesInMemory_) != pluggedIn) {
        ++plugChangesInMemory_;
    }
}

bool Store::isChangedOutside() const {
    return !folder.empty() && readText(path("board.txt")) != text_;
}

}  // namespace sim
