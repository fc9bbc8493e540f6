// Files of the folder that keeps a simulated interface.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace sim {

/// Throws std::runtime_error, naming file, fault and remedy.
[[noreturn]] void failOn(const std::string& path, const std::string& what, const std::string& remedy);

/// Owns a file descriptor.
class File {
public:
    /// Not open when that fails; errno tells why.
    File(const std::string& path, int flags);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ >= 0; }
    int release();

private:
    int descriptor_;
};

/// Empty for a file that is not there. Throws for one that cannot be read.
std::string readText(const std::string& path);

/// Under another name first: the file is there whole or not at all, also when two processes make it.
/// Without replace a file that is there already stays. Throws when neither is possible.
void writeWhole(const std::string& path, std::span<const std::uint8_t> content, bool replace);

/// Makes the folder if it is not there. Throws when it cannot be one.
/// @return its absolute path without links
std::string madeFolder(const std::string& folder);

}  // namespace sim
