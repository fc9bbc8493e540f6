// Parts of a flash as people name them: by addresses, by address and size, by the names of a layout file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavo/export.h"
#include "tavo/service/error.h"
#include "tavo/service/image.h"

namespace tavo {

/// "65536", "0x10000", "64K", "1M" (1024 of 1024 bytes). Empty for anything else and for more than 4G.
TAVO_API std::optional<std::uint64_t> parseNumber(const std::string& text);

/// A range of a layout file.
struct NamedRange {
    std::string name;    ///< as the layout has it
    AddressRange range;  ///< that it names
};

/// "FIRST-LAST", "FIRST+SIZE" (numbers as parseNumber takes them) or a name of the layout. Throws Error (BadArgument)
/// for anything else, for a range without a byte, and beyond kAddressable. A LAST in K or M is refused: it would be one
/// byte more than it looks like.
TAVO_API AddressRange parseRange(const std::string& text, const std::vector<NamedRange>& layout = {});

/// Reads lines "FIRST-LAST NAME", also with ':' between the addresses, which are hexadecimal with or without 0x; '#'
/// begins a comment. Throws Error: FileRefused with every fault, its line and its remedy as a detail; FileSystem.
TAVO_API std::vector<NamedRange> readLayout(const std::string& path);

/// The ranges nearest to this one that begin and end at multiples of step: itself when it does; else the smallest
/// around it and, if there is one, a shorter one.
TAVO_API std::vector<AddressRange> alignedRanges(const AddressRange& range, std::uint32_t step);

/// "0x010000-0x01FFFF"
TAVO_API std::string rangeText(const AddressRange& range);

}  // namespace tavo
