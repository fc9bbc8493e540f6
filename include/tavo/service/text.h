// Numbers, sizes and IDs as people write them; the same in every message.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tavo/deviceAccess.h"
#include "tavo/export.h"

namespace tavo {

TAVO_API std::string hexText(const unsigned char* bytes, std::size_t count,
                             const char* separator = " ");  ///< "9F FF 05"
TAVO_API std::string hexAddress(std::uint32_t address);     ///< "0x01A400"
TAVO_API std::string sizeText(std::uint64_t bytes);         ///< "1 MiB", "64 KiB", "300 bytes"
TAVO_API std::string secondsText(double seconds);           ///< "31.2 s", "2 min 5 s"
/// Local time with its offset from UTC: "2024-05-01T14:03:59+0200".
TAVO_API std::string timeText(std::chrono::system_clock::time_point time);
TAVO_API std::string countText(std::uint64_t count, const std::string& noun);  ///< "1 page", "3 pages"
/// A file name as a word of a command that people copy into a shell: in single quotes where it needs them.
TAVO_API std::string shellWord(const std::string& name);
/// A text of a device, a file or a file name, as it may go to a terminal, into a log or a page: everything is
/// escaped that would not show as it is, control characters and bytes that are no UTF-8 as "\x1B", C1 controls
/// and what turns the direction of writing as "\u202E". One line stays one line.
TAVO_API std::string printable(std::string_view text);
TAVO_API std::string neuronIdText(const NeuronId& id);  ///< 12 upper-case digits

}  // namespace tavo
