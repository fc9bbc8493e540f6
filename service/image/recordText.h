// Lines of hexadecimal digits: how their bytes are decoded and what is wrong with a line that is no record.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "service/image/imageCollector.h"
#include "service/image/imageSource.h"

namespace tavo {

/// The longest record: start code, 5 bytes around 255 data bytes, in digits.
inline constexpr std::size_t kLongestRecord = 1 + 2 * (5 + 255);
/// With room for blanks and a carriage return; what is longer is no record.
inline constexpr std::size_t kLongestLine = kLongestRecord + 64;

/// The value of a hexadecimal digit, -1 for every other character.
inline constexpr auto kDigitValue = [] {
    std::array<signed char, 256> table{};
    table.fill(-1);
    for (int i = 0; i < 10; ++i) table['0' + i] = static_cast<signed char>(i);
    for (int i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = static_cast<signed char>(10 + i);
    return table;
}();

inline int digitValue(char c) {
    return kDigitValue[static_cast<unsigned char>(c)];
}

/// The byte of two digits; negative when one of them is none.
inline int byteOf(const char* digits) {
    return digitValue(digits[0]) * 16 | digitValue(digits[1]);
}

/// Decodes count bytes and adds them to sum. @return false when a character is no digit
bool decodeDigits(const char* text, std::size_t count, std::uint8_t* bytes, std::uint8_t& sum);

/// A line as it stands in the file.
struct TextLine {
    std::string_view text;  ///< without its line feed; cut when tooLong
    std::uint64_t number;   ///< from 1
    bool tooLong;
};

/// Takes byte order mark, carriage return, blanks off a line, as faults or as changes by the options.
/// @return empty for a line without a record
std::string_view tidyLine(ImageCollector& collector, const TextLine& line);

/// Tells of a character that no text has. @return true when there is none
bool isPlainText(ImageCollector& collector, const TextLine& line);

/// What is wrong with the characters of a record, and the remedy; empty text when nothing is.
/// @param start   ':' or 'S'
/// @param digits  where the digits begin
ImageFault checkCharacters(std::string_view text, char start, std::size_t digits, std::size_t shortest);

/// Hands the lines of a source to a reader, in bounded memory:
///   const char* takeRecords(const char* at, const char* end)  whole good records, as many as there are;
///                                                             returns where it stopped
///   bool takeLine(const TextLine&)                            any other line; false: not a text, stop
///   std::uint64_t lines                                       counted by both
/// @return false when the reader stopped
template <class Reader>
bool readLines(ImageSource& source, Reader& reader);

}  // namespace tavo

#include <cstring>
#include <vector>

namespace tavo {

template <class Reader>
bool readLines(ImageSource& source, Reader& reader) {
    constexpr std::size_t kChunk = 128 * 1024;  // stays in the processor's second cache from the digest on
    std::vector<char> buffer(kLongestLine + 1 + kChunk);
    const auto take = [&](const char* at, const char* end) {
        const auto size = static_cast<std::size_t>(end - at);
        return reader.takeLine({{at, std::min(size, kLongestLine)}, ++reader.lines, size > kLongestLine});
    };
    std::size_t kept = 0;  // of a line whose end has not come yet
    for (;;) {
        const std::size_t count = source.read(buffer.data() + kept, kChunk);
        if (count == 0) break;
        const char* at = buffer.data();
        const char* const end = at + kept + count;
        for (;;) {
            at = reader.takeRecords(at, end);
            const auto* feed = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
            if (feed == nullptr) break;
            if (!take(at, feed)) return false;
            at = feed + 1;
        }
        // Of a line that is too long only as much as shows it.
        kept = std::min(static_cast<std::size_t>(end - at), kLongestLine + 1);
        std::memmove(buffer.data(), at, kept);
    }
    return kept == 0 || take(buffer.data(), buffer.data() + kept);
}

}  // namespace tavo
