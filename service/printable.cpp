#include <cstdio>

#include "tavo/service/text.h"

namespace tavo {
namespace {

/// The shapes of a UTF-8 sequence, and the smallest code point that may be written in each: a longer
/// writing than needed is broken.
struct Shape {
    unsigned char mask;
    unsigned char lead;
    std::size_t length;
    char32_t smallest;
};
constexpr Shape kShapes[] = {
    {0x80, 0x00, 1, 0x00}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

struct Range {
    char32_t first;
    char32_t last;
};
constexpr Range kNoText[] = {{0xD800, 0xDFFF}, {0x110000, 0x1FFFFF}};  // surrogates, beyond Unicode
constexpr Range kHidden[] = {{0x00, 0x1F},                             // control characters
                             {0x7F, 0x9F},                             // DEL and the C1 controls
                             {0x2028, 0x202E},                         // line separators, embeddings, overrides
                             {0x2066, 0x2069}};                        // isolates

template <std::size_t count>
bool isIn(const Range (&ranges)[count], char32_t code) {
    for (const auto& range : ranges) {
        if (code >= range.first && code <= range.last) return true;
    }
    return false;
}

struct Character {
    char32_t code;
    std::size_t length;  // 0: the first byte begins no character
};

Character firstOf(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (const auto& shape : kShapes) {
        if ((byte(0) & shape.mask) != shape.lead) continue;
        if (text.size() < shape.length) break;
        char32_t code = byte(0) & static_cast<unsigned char>(~shape.mask);
        for (std::size_t i = 1; i < shape.length; ++i) {
            if ((byte(i) & 0xC0) != 0x80) return {0, 0};
            code = code << 6 | (byte(i) & 0x3F);
        }
        if (code < shape.smallest || isIn(kNoText, code)) break;
        return {code, shape.length};
    }
    return {0, 0};
}

std::string escaped(char32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, code < 0x80 ? "\\x%02X" : "\\u%04X", static_cast<unsigned>(code));
    return text;
}

std::string escapedByte(char byte) {
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned char>(byte));
    return text;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    while (!text.empty()) {
        const Character first = firstOf(text);
        const std::size_t length = first.length == 0 ? 1 : first.length;
        if (first.length == 0) {
            shown += escapedByte(text[0]);
        } else if (isIn(kHidden, first.code)) {
            shown += escaped(first.code);
        } else {
            shown += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return shown;
}

}  // namespace tavo
