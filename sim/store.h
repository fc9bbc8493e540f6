// The folder that keeps a simulated interface between runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "sim/options.h"

namespace sim {

/// A memory that survives the process: a file mapped into it, so that a killed run keeps what it
/// has programmed. With an empty path it is ordinary memory.
class MappedFile {
public:
    /// Made with that size and content, the rest FF, when the file is absent.
    /// Throws std::runtime_error, naming file and remedy, for a file of another size or one that cannot be used.
    MappedFile(const std::string& path, std::size_t size, std::span<const std::uint8_t> content);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    template <std::size_t size>
    std::span<std::uint8_t, size> fixed() const {
        return std::span<std::uint8_t, size>(data_, size);
    }
    std::span<std::uint8_t> bytes() const { return {data_, size_}; }

private:
    std::uint8_t* data_ = nullptr;
    std::size_t size_;
};

class Store {
public:
    using Values = std::map<std::string, std::string>;

    /// Opens the folder of the options, making what is missing; without a folder all is in memory.
    /// Throws std::runtime_error, naming file and remedy.
    explicit Store(const Options& options);
    ~Store() { unlock(); }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Keeps other processes out.
    /// @return 0, or the process ID of the holder (-1 when unknown).
    int lock();
    void unlock();

    /// board.txt. load throws like the constructor; save writes it anew when a value differs, whole or not at all.
    Values load();
    void save(const Values& values);
    /// board.txt differs from what this process loaded or saved last.
    bool isChangedOutside() const;

    /// How often it has been unplugged or plugged in; odd: unplugged.
    unsigned plugChanges() const;
    void setPluggedIn(bool pluggedIn);

    const std::string folder;  ///< absolute; empty: in memory

    MappedFile flash;
    MappedFile block;
    MappedFile userFlash;
    MappedFile internalFlash;

private:
    std::string path(const char* file) const;

    const std::string plug_;
    unsigned plugChangesInMemory_ = 0;
    std::string text_;  // of board.txt as last loaded or saved
    int lockDescriptor_ = -1;
};

}  // namespace sim
