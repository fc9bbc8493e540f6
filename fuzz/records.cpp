// How the files of records are varied: libFuzzer's own changes, after which half of the files get byte counts and
// checksums that are right again. Without that nearly every change would end at the first checksum.
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/fuzz.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

int valueOf(const std::string& line, std::size_t at) {
    const auto digit = [&](std::size_t i) {
        const auto found = kDigits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(line[i]))));
        return found == std::string_view::npos ? -1 : static_cast<int>(found);
    };
    return digit(at) < 0 || digit(at + 1) < 0 ? -1 : digit(at) << 4 | digit(at + 1);
}

void put(std::string& line, std::size_t at, unsigned value) {
    line[at] = kDigits[value >> 4 & 0xF];
    line[at + 1] = kDigits[value & 0xF];
}

/// ":LLAAAATTdd..CC" or "StLLaa..CC"; anything else stays as it is.
void mend(std::string& line) {
    const bool isHex = line.substr(0, 1) == ":";
    if (!isHex && line.substr(0, 1) != "S") return;
    const std::size_t first = isHex ? 1 : 2;
    const std::size_t around = isHex ? 5 : 1;  // bytes that the count does not count
    if (line.size() < first + 2 * (around + 1)) return;
    const std::size_t bytes = (line.size() - first) / 2;
    if (bytes > 255 + around || (line.size() - first) % 2 != 0) return;
    put(line, first, static_cast<unsigned>(bytes - around));
    unsigned sum = 0;
    for (std::size_t i = 0; i + 1 < bytes; ++i) {
        const int value = valueOf(line, first + 2 * i);
        if (value < 0) return;
        sum += static_cast<unsigned>(value);
    }
    put(line, first + 2 * (bytes - 1), isHex ? 0U - sum : 0xFF - sum);
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    size = LLVMFuzzerMutate(data, size, maxSize);
    if (seed % 2 == 0) return size;
    std::string content(reinterpret_cast<const char*>(data), size);
    for (std::size_t at = 0; at < content.size();) {
        const std::size_t end = std::min(content.find('\n', at), content.size());
        std::string line = content.substr(at, end - at);
        mend(line);
        content.replace(at, line.size(), line);
        at = end + 1;
    }
    std::memcpy(data, content.data(), size);
    return size;
}
