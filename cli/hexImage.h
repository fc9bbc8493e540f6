// Reads a whole Intel HEX file before a device is touched: the image in it, and every fault.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/files.h"
#include "cli/image.h"
#include "cli/outcome.h"

namespace cli {

struct HexFault {
    std::uint64_t line = 0;  ///< 0: of the file as a whole
    std::string text;
    std::string remedy;
};

/// Faults kept with their text; the rest is counted.
inline constexpr std::size_t kListedFaults = 20;

struct HexFile {
    Image image;
    std::vector<HexFault> faults;
    std::uint64_t faultCount = 0;
    bool endOfFile = false;  ///< an end-of-file record is there
    std::uint64_t textBytes = 0;
    std::string sha256;  ///< of the text
    /// Bytes of data handed out as pages when that share of the text has been read.
    std::array<std::uint64_t, 101> bytesAtPercent{};

    bool isGood() const { return faultCount == 0; }
    std::uint32_t touchedPages() const { return image.pagesWithData() + image.blankPages(); }
};

/// What the chip at hand can hold.
struct HexLimits {
    std::uint32_t flashSize = kAddressable;
};

/// Reads and checks path. Accepted is exactly what the library's reader takes and a strict reading
/// of the format allows; the library's reader runs along, so the image is what it would program.
/// @param copy  may be null; receives the text as it was read, so that what was checked is what is
///              programmed even if somebody changes the file meanwhile.
/// Throws Failure (exit 8) when the file cannot be read. Memory: the image and one line.
HexFile readHexFile(const std::string& path, const HexLimits& limits, const PrivateFile* copy);

/// The failure (exit 7) of a file with faults, naming the first of them.
Failure refusal(const std::string& path, const HexFile& file);

/// "line 3: wrong checksum: expected A4, found A5"
std::string faultText(const HexFault& fault);

}  // namespace cli
