// What is in the chip, saved before it is changed: in a file of the caller's, and among the backups of the interface.
#pragma once

#include <memory>
#include <string>

#include "service/operation.h"
#include "tavo/service/files.h"
#include "tavo/service/flash.h"

namespace tavo {

/// The caller's file: null for an empty path. Throws Error.
std::unique_ptr<NewFile> openChipBackup(const std::string& path);

class ChipBackup {
public:
    /// Opens the file, and proves that there is room among the backups for what image is to replace, before the device
    /// is touched. Throws Error: nothing of it can be found out after the erase.
    /// @param path      of the caller's file; empty: none
    /// @param isKept    also among the backups
    ChipBackup(const Device& device, const std::string& path, bool isKept, const Image& image = {});

    /// True when all of the chip has to be read for it.
    bool isWanted() const { return file_ != nullptr; }
    /// Of all of the chip. What a run that was cut off has left is not kept where what was there before it is.
    void save(const Operation& op, const Image& contents, std::uint32_t chipSize);

    /// The file to be told: the caller's, else the one among the backups.
    const std::string& path() const { return path_.empty() ? kept_ : path_; }
    /// The file to be remembered: the one among the backups, else the caller's.
    const std::string& remembered() const { return kept_.empty() ? path_ : kept_; }
    const std::string& sha256() const { return sha256_; }

private:
    void writeFile(const Operation& op, const Image& contents);

    std::unique_ptr<NewFile> file_;
    std::string wanted_;
    bool isKept_;
    std::string path_;
    std::string kept_;
    std::string sha256_;
};

}  // namespace tavo
