#include "service/image/recordText.h"

#include <algorithm>
#include <cstdio>

namespace tavo {
namespace {

constexpr std::size_t kBlock = 16;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string shown(char c) {
    char text[16];
    const auto code = static_cast<unsigned char>(c);
    std::snprintf(text, sizeof text, code > 0x20 && code < 0x7F ? "'%c'" : "byte 0x%02X", code);
    return text;
}

/// Of fixed length, so that the compiler makes vector code of it.
bool decodeBlock(const char* text, std::uint8_t* bytes, std::uint8_t& sum) {
    std::uint8_t nibbles[2 * kBlock];
    std::uint8_t odd = 0;
    for (std::size_t i = 0; i < 2 * kBlock; ++i) {
        const auto number = static_cast<std::uint8_t>(text[i] - '0');
        const auto letter = static_cast<std::uint8_t>((text[i] | 0x20) - 'a');
        const auto letterValue = static_cast<std::uint8_t>(letter < 6 ? letter + 10 : 0x10);
        nibbles[i] = number < 10 ? number : letterValue;
        odd |= nibbles[i];
    }
    std::uint8_t blockSum = 0;
#pragma GCC unroll 1  // unrolled whole, as -O3 would have it, the loop is vector code no longer
    for (std::size_t i = 0; i < kBlock; ++i) {
        bytes[i] = static_cast<std::uint8_t>(nibbles[2 * i] << 4 | nibbles[2 * i + 1]);
        blockSum = static_cast<std::uint8_t>(blockSum + bytes[i]);
    }
    sum = static_cast<std::uint8_t>(sum + blockSum);
    return odd < 0x10;
}

bool isComment(std::string_view text) {
    return text.substr(0, 1) == "#" || text.substr(0, 1) == ";" || text.substr(0, 2) == "//";
}

}  // namespace

bool decodeDigits(const char* text, std::size_t count, std::uint8_t* bytes, std::uint8_t& sum) {
    for (; count >= kBlock; count -= kBlock, text += 2 * kBlock, bytes += kBlock)
        if (!decodeBlock(text, bytes, sum)) return false;
    int odd = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int value = byteOf(text + 2 * i);
        odd |= value;
        bytes[i] = static_cast<std::uint8_t>(value);
        sum = static_cast<std::uint8_t>(sum + value);
    }
    return odd >= 0;
}

std::string_view tidyLine(ImageCollector& collector, const TextLine& line) {
    const bool strict = collector.options().strict;
    std::string_view text = line.text;
    const auto tell = [&](Change change, const char* name, const char* fault) {
        if (strict) return collector.cause(name, line.number, fault, hint::kConvert);
        collector.change(change);
    };
    if (line.number == 1 && text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        tell(Change::ByteOrderMark, "mark", "byte order mark (UTF-8) before the first record");
        text.remove_prefix(kByteOrderMark.size());
    }
    if (!text.empty() && text.back() == '\r') {
        tell(Change::CarriageReturn, "return", "carriage return before the line feed (CR LF)");
        text.remove_suffix(1);
    }
    const auto last = text.find_last_not_of(" \t");
    if (last == std::string_view::npos) {
        tell(Change::BlankLine, "blank", "empty line");
        return {};
    }
    if (last + 1 < text.size()) {
        tell(Change::Blanks, "blanks", "blanks after the record");
        text = text.substr(0, last + 1);
    }
    return text;
}

bool isPlainText(ImageCollector& collector, const TextLine& line) {
    std::string_view text = line.text;
    if (line.number == 1 && text.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        text.remove_prefix(kByteOrderMark.size());
    const auto odd = std::find_if(text.begin(), text.end(), [](char c) {
        const auto code = static_cast<unsigned char>(c);
        return (code < 0x20 && c != '\r' && c != '\t') || code == 0x7F;
    });
    const auto high = std::find_if(text.begin(), text.end(), [](char c) { return static_cast<signed char>(c) < 0; });
    // A comment may be in any language.
    const auto found = high < odd && !isComment(text) ? high : odd;
    if (found == text.end()) return true;
    collector.fault(line.number,
                    "byte 0x" + hexByteText(static_cast<unsigned char>(*found)) + ": not a text file, so not " +
                        formatName(collector.file().format),
                    std::string("a raw binary? Say so: ") + (collector.options().strict ? "without --strict, " : "") +
                        "--format bin --address ADDRESS; otherwise name the image that the build made");
    return false;
}

ImageFault checkCharacters(std::string_view text, char start, std::size_t digits, std::size_t shortest) {
    constexpr const char* kTakeOut = "take the comments out: only records may stand in the file";
    if (isComment(text)) return {0, "a comment (" + shown(text.front()) + ")", kTakeOut};
    if (text.front() != start) {
        return {0, "begins with " + shown(text.front()) + ", a record begins with '" + start + "'", hint::kMakeAgain};
    }
    for (std::size_t i = digits; i < text.size(); ++i) {
        if (digitValue(text[i]) >= 0) continue;
        const auto next = text.find_first_not_of(" \t", i);
        if (next != std::string_view::npos && isComment(text.substr(next)))
            return {0, "a comment in column " + std::to_string(next + 1), kTakeOut};
        return {0, shown(text[i]) + " in column " + std::to_string(i + 1) + " is no hexadecimal digit",
                hint::kMakeAgain};
    }
    if (text.size() < shortest) return {0, "too short for a record", hint::kMakeAgain};
    return {};
}

}  // namespace tavo
