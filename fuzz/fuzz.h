// What the fuzzers have in common. Each takes one input, as a file or a device may give it, and ends the
// program when a promise about it does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Ends the program with the condition and its place, which libFuzzer takes for a crash.
#define HOLDS(condition) ((condition) ? void() : fuzz::broken(#condition, __FILE__, __LINE__))

namespace fuzz {

[[noreturn]] void broken(const char* condition, const char* file, int line);

/// A file that lives in memory.
class MemoryFile {
public:
    explicit MemoryFile(const std::string& content = "");
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    int descriptor() const { return descriptor_; }  ///< at the beginning of the file
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    std::string content() const;

private:
    int descriptor_;
};

/// A folder of this process, in memory where there is such a place; gone when the program ends.
const std::string& scratchFolder();
void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);

/// Takes an input apart; what lies behind its end is zeros.
class Supply {
public:
    Supply(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool isEmpty() const { return size_ == 0; }
    std::uint8_t byte();
    std::uint16_t word();
    std::vector<std::uint8_t> bytes(std::size_t count);
    /// Up to 255 bytes, their number first.
    std::string text();

private:
    const std::uint8_t* data_;
    std::size_t size_;
};

}  // namespace fuzz
