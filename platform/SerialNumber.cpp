#include <algorithm>
#include <cstring>

#include "tavo/deviceAccess.h"

SerialNumber::SerialNumber() : text{} {}

bool SerialNumber::fromStringWithoutPrefix(const char* serial) {
    if (serial == nullptr) return false;
    const std::size_t length = strnlen(serial, kMaxLength + 1);
    if (length == 0 || length > kMaxLength) return false;
    if (!std::all_of(serial, serial + length, [](char c) { return c >= 0x20 && c <= 0x7E; })) return false;
    *this = serial;
    return true;
}

SerialNumber& SerialNumber::operator=(const char* serial) {
    // Through a copy: serial may be this very text.
    char copy[kSize] = {};
    if (serial != nullptr) std::memcpy(copy, serial, strnlen(serial, kSize - 1));
    std::memcpy(text, copy, kSize);
    return *this;
}
