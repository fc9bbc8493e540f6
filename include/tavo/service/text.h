// Numbers, sizes and IDs as people write them; the same in every message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tavo/deviceAccess.h"
#include "tavo/export.h"

namespace tavo {

TAVO_API std::string hexText(const unsigned char* bytes, std::size_t count,
                             const char* separator = " ");                     ///< "9F FF 05"
TAVO_API std::string hexAddress(std::uint32_t address);                        ///< "0x01A400"
TAVO_API std::string sizeText(std::uint64_t bytes);                            ///< "1 MiB", "64 KiB", "300 bytes"
TAVO_API std::string secondsText(double seconds);                              ///< "31.2 s", "2 min 5 s"
TAVO_API std::string countText(std::uint64_t count, const std::string& noun);  ///< "1 page", "3 pages"
/// A file name as a word of a command that people copy into a shell: in single quotes where it needs them.
TAVO_API std::string shellWord(const std::string& name);
TAVO_API std::string neuronIdText(const NeuronId& id);  ///< 12 upper-case digits

}  // namespace tavo
