// Files of this computer: opened safely, written whole or not at all, named safely.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tavo/export.h"
#include "tavo/service/error.h"

namespace tavo {

class CancelToken;

/// An open file descriptor with one owner.
class TAVO_API Descriptor {
public:
    /// Owns the descriptor; -1: none.
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~Descriptor();
    /// Owns the descriptor; -1: none.
    Descriptor(Descriptor&& other) noexcept;
    /// Gives up what it held; the other one then holds nothing.
    Descriptor& operator=(Descriptor&& other) noexcept;
    /// The descriptor, still owned.
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

/// Problem::FileSystem. doing completes "cannot ..."; error is an errno.
TAVO_API Error fileError(const std::string& doing, int error, const std::string& hint = "");

/// Opens a regular file for reading. Throws Error for a missing file, a folder, one without permission.
TAVO_API Descriptor openForReading(const std::string& path);
/// Bytes. Throws Error.
TAVO_API std::uint64_t sizeOf(const Descriptor& file);

/// Reads up to size bytes, fewer only at the end of the file. Throws Error.
/// @param name    what messages call it
/// @param cancel  ends the wait for a pipe or a terminal (Problem::Interrupted); may be null
TAVO_API std::size_t readSome(int descriptor, char* data, std::size_t size, const std::string& name,
                              const CancelToken* cancel = nullptr);
/// Writes all of it; throws Error.
TAVO_API void writeAll(int descriptor, const char* data, std::size_t size, const std::string& name);

/// A file that appears under its name only when it is whole. It has no name until then, where the file
/// system can do that; elsewhere it is NAME.part-XXXXXX, locked while it is written, and what a killed
/// run left of that kind is removed by the next one.
class TAVO_API NewFile {
public:
    /// Throws Error: the folder is missing or may not be written, or path exists and may not be replaced.
    NewFile(const std::string& path, bool replace,
            const std::string& hintIfThere = "choose another name, or replace it with --force");
    ~NewFile();  ///< takes an unfinished file away
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// To write to; still owned.
    int descriptor() const { return file_.get(); }
    /// By which this process opens the unfinished file.
    const std::string& temporaryPath() const { return temporary_; }
    /// Syncs file and folder and gives the file its name. Throws Error; the file is then still unfinished.
    void commit();

private:
    void openNameless(const std::string& folder);
    void openBeside();
    void giveName();

    std::string path_;
    bool replace_;
    std::string hintIfThere_;
    std::string temporary_;
    bool hasName_ = false;  // temporary_ lies in the folder and is to be removed
    Descriptor file_;
};

/// A text of a device as part of a file name: every character outside [A-Za-z0-9._-] becomes '_', and so do
/// the names "." and ".." and an empty one.
TAVO_API std::string safeName(const std::string& text);

}  // namespace tavo
