#include "fuzz/fuzz.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fuzz {
namespace {

struct Folder {
    Folder() {
        const bool inMemory = access("/dev/shm", W_OK) == 0;
        path = std::string(inMemory ? "/dev/shm" : "/tmp") + "/tavo-fuzz-XXXXXX";
        HOLDS(mkdtemp(path.data()) != nullptr);
    }
    ~Folder() {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }
    std::string path;
};

}  // namespace

void broken(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

MemoryFile::MemoryFile(const std::string& content) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC)) {
    HOLDS(descriptor_ >= 0);
    HOLDS(pwrite(descriptor_, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
}

MemoryFile::~MemoryFile() {
    close(descriptor_);
}

std::string MemoryFile::content() const {
    struct stat facts {};
    HOLDS(fstat(descriptor_, &facts) == 0);
    std::string text(static_cast<std::size_t>(facts.st_size), '\0');
    HOLDS(pread(descriptor_, text.data(), text.size(), 0) == facts.st_size);
    return text;
}

const std::string& scratchFolder() {
    static const Folder folder;
    return folder.path;
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    HOLDS(file.flush().good());
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::uint8_t Supply::byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
}

std::uint16_t Supply::word() {
    const unsigned high = byte();
    return static_cast<std::uint16_t>(high << 8 | byte());
}

std::vector<std::uint8_t> Supply::bytes(std::size_t count) {
    std::vector<std::uint8_t> taken(count);
    const std::size_t there = std::min(count, size_);
    std::copy_n(data_, there, taken.begin());
    data_ += there;
    size_ -= there;
    return taken;
}

std::string Supply::text() {
    const auto taken = bytes(std::min<std::size_t>(byte(), size_));
    return {taken.begin(), taken.end()};
}

}  // namespace fuzz
