// The bytes of a file or stream, unpacked if they are packed, read once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "service/image/sha256.h"
#include "tavo/service/imageFile.h"

namespace tavo {

class ImageSource {
public:
    /// descriptor stays the caller's. Throws Error when it cannot be read, here and in the other functions.
    ImageSource(int descriptor, const std::string& name, const ReadOptions& options);
    ~ImageSource();

    bool isGzip() const { return unpacker_ != nullptr; }
    /// The first bytes, at most 4096; they are still to be read.
    std::string_view head() const { return {head_.data(), head_.size()}; }
    /// @return how many bytes came; 0: the end, or a fault
    std::size_t read(char* data, std::size_t size);
    /// All of what is left.
    std::vector<char> readAll();

    /// Empty, or why there is no more to be had; what came so far is not all.
    const std::string& fault() const { return fault_; }
    std::uint64_t storedBytes() const { return stored_; }
    /// Of the file as stored; empty without digest. Once, at the end.
    std::string sha256() { return withDigest_ ? digest_.text() : ""; }

private:
    struct Unpacker;

    std::size_t readStored(char* data, std::size_t size);
    std::size_t unpack(char* data, std::size_t size);
    std::size_t readLimited(char* data, std::size_t size);
    void fillHead();

    int descriptor_;
    const std::string& name_;
    bool withDigest_;
    const CancelToken* cancel_;
    Sha256 digest_;
    std::vector<char> head_;
    std::size_t headTaken_ = 0;
    std::unique_ptr<Unpacker> unpacker_;
    std::uint64_t stored_ = 0;
    std::uint64_t unpacked_ = 0;
    std::string fault_;
};

}  // namespace tavo
