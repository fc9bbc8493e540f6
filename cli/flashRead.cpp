#include "cli/flashRead.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "cli/sha256.h"
#include "tavo/flash.h"

namespace cli {
namespace {

constexpr std::uint64_t kChunk = 255;  // bytes of one record; the library reports after each

/// The library reports the share of a chunk's start; the count of the reports tells the bytes.
std::atomic<std::uint64_t> chunksRead{0};  // the display reads it from its own thread
Progress* shown = nullptr;                 ///< of the running command: the library's callback has no context

void onDumpProgress(char percent) {
    ++chunksRead;
    throwIfInterrupted();
    shown->share(percent);
}

/// The library has one code for a device that fails and a disk that is full: try the disk.
void throwIfDiskIsFull(const Descriptor& file, const std::string& name) {
    const std::string probe(4096, '\n');
    if (lseek(file.get(), 0, SEEK_END) >= 0) writeAll(file, probe.data(), probe.size(), name);
}

void requireWhole(const HexFile& dump, const FlashChip& chip, const std::string& name) {
    if (dump.isGood() && dump.image.byteCount() == chip.size) return;
    const std::string why = dump.isGood() ? "bytes are missing" : faultText(dump.faults.front());
    throw Failure{Exit::FileSystem,
                  name + " cannot be read back as it was written: " + why,
                  "is the disk sound? Try another folder",
                  {}};
}

}  // namespace

Image dumpChip(Session& session, const FlashChip& chip, const char* phase, const Descriptor& file,
               const std::string& path, const std::string& name) {
    session.progress.begin(phase, "",
                           {chip.size, [&](int) { return std::min<std::uint64_t>(chunksRead * kChunk, chip.size); }});
    const TAVO_STATUS status = session.tryCall("read the flash", [&] {
        chunksRead = 0;
        shown = &session.progress;
        return readSpiFlash(session.info(), path.c_str(), onDumpProgress);
    });
    if (status != TAVO_SUCCESS) {
        throwIfDiskIsFull(file, name);
        throw libraryFailure(status, Side::Bridge, "read the flash of " + session.deviceName());
    }
    HexFile dump = readHexFile(path, {}, nullptr);
    requireWhole(dump, chip, name);
    session.progress.end(sizeText(chip.size));
    return std::move(dump.image);
}

Image readChip(Session& session, const FlashChip& chip) {
    const PrivateFile file;
    return dumpChip(session, chip, "read", file.descriptor(), file.path(), "the temporary file");
}

std::string sha256Of(const Image& whole, std::uint32_t size) {
    Sha256 digest;
    for (std::uint32_t at = 0; at < size; at += kPageSize) {
        digest.add(whole.page(at / kPageSize)->bytes.data(), std::min(kPageSize, size - at));
    }
    return digest.text();
}

void requireFits(const std::string& name, const HexFile& file, const PrivateFile& text, const FlashChip& chip) {
    if (file.image.ranges().back().last < chip.size) return;
    throw refusal(name, readHexFile(text.path(), {std::min(chip.size, kAddressable)}, nullptr));
}

Comparison compare(const Image& wanted, const Image& chip, std::uint32_t size, bool restBlank) {
    Comparison result;
    auto& found = result.differences;
    for (std::uint32_t address = 0; address < size; ++address) {
        const auto byte = wanted.at(address);
        const std::uint8_t inChip = chip.at(address).value_or(0xFF);
        if (byte ? *byte == inChip : !restBlank || inChip == 0xFF) continue;
        const std::uint32_t page = address / kPageSize;
        const std::uint32_t pageBefore = found.empty() ? 0 : found.back().range.last / kPageSize;
        if (found.empty() || page != pageBefore) ++result.pages;
        if (found.empty() || page > pageBefore + 1) found.push_back({{address, address}, 0, byte, inChip});
        found.back().range.last = address;
        ++found.back().bytes;
        ++result.bytes;
    }
    return result;
}

}  // namespace cli
