// Reading the whole chip, and comparing it with an image.
#pragma once

#include <string>
#include <vector>

#include "cli/flashAccess.h"
#include "cli/hexImage.h"
#include "cli/session.h"

namespace cli {

/// Dumps the chip into an open file and reads the file back: every byte of the chip is in the image.
/// phase: "read", "backup". path: by which the library opens the file; name: what messages call it.
/// Throws Failure; a disk that is full is told from a device that fails.
Image dumpChip(Session& session, const FlashChip& chip, const char* phase, const Descriptor& file,
               const std::string& path, const std::string& name);

/// The same into a private file.
Image readChip(Session& session, const FlashChip& chip);

/// SHA-256 of the bytes of an image without gaps.
std::string sha256Of(const Image& whole, std::uint32_t size);

/// Refuses (exit 7) a checked file whose data lie above this chip.
/// @param text  what was checked: read again to name the line
void requireFits(const std::string& name, const HexFile& file, const PrivateFile& text, const FlashChip& chip);

struct Difference {
    AddressRange range;                  ///< first to last byte that differs in pages side by side
    std::uint32_t bytes = 0;             ///< of them differ
    std::optional<std::uint8_t> wanted;  ///< first byte in the file; none: the file has no data there
    std::uint8_t found = 0;              ///< first byte in the chip
};

struct Comparison {
    std::vector<Difference> differences;
    std::uint64_t bytes = 0;
    std::uint32_t pages = 0;
    bool equal() const { return bytes == 0; }
};

/// @param restBlank  bytes of the chip that the image does not cover must be FF
Comparison compare(const Image& wanted, const Image& chip, std::uint32_t size, bool restBlank);

}  // namespace cli
