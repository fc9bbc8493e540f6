// Files of this computer: private copies that nobody can change, results that are whole or absent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cli/outcome.h"

namespace cli {

/// An open file descriptor with one owner.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

/// Exit 8: the file system of this computer. doing completes "cannot ...".
Failure fileFailure(const std::string& doing, int error, const std::string& hint = "");

/// Opens a regular file for reading. Throws Failure for a missing file, a folder, one without permission.
Descriptor openForReading(const std::string& path);
std::uint64_t sizeOf(const Descriptor& file);

/// Writes all of it; throws Failure. what: "the private copy".
void writeAll(const Descriptor& file, const char* data, std::size_t size, const std::string& what);

/// A file without a name in the folder for temporary files: gone with the process, however it ends.
class PrivateFile {
public:
    PrivateFile();  ///< throws Failure
    const Descriptor& descriptor() const { return file_; }
    /// A path by which this process, and nobody else, opens it.
    std::string path() const;

private:
    Descriptor file_;
};

/// A file that appears under its name only when it is whole: written beside it, synced, renamed.
class NewFile {
public:
    /// Throws Failure: the folder is missing or may not be written, or path exists and may not be replaced.
    NewFile(const std::string& path, bool replace,
            const std::string& hintIfThere = "choose another name, or replace it with --force");
    ~NewFile();  ///< takes an unfinished file away
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const std::string& temporaryPath() const { return temporary_; }
    const Descriptor& descriptor() const { return file_; }
    /// Syncs file and folder and gives the file its name. Throws Failure.
    void commit();

private:
    std::string path_;
    std::string temporary_;
    bool replace_;
    Descriptor file_;
};

}  // namespace cli
