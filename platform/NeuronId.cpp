#include <algorithm>
#include <cstring>
#include <iterator>

#include "tavo/deviceAccess.h"

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool parse(const char* text, unsigned char (&id)[NeuronId::kSize]) {
    if (text == nullptr || (text[0] != 'I' && text[0] != 'i') || (text[1] != 'D' && text[1] != 'd')) return false;
    if (std::strlen(text) != 2 + 2 * NeuronId::kSize) return false;
    for (std::size_t i = 0; i < NeuronId::kSize; ++i) {
        const int high = hexDigit(text[2 + 2 * i]);
        const int low = hexDigit(text[3 + 2 * i]);
        if (high < 0 || low < 0) return false;
        id[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return true;
}

}  // namespace

NeuronId::NeuronId() : bytes{} {}

bool NeuronId::fromString(const char* text, bool* wellFormed) {
    unsigned char id[kSize];
    const bool parsed = parse(text, id);
    if (wellFormed != nullptr) *wellFormed = parsed;
    if (parsed) *this = id;
    return parsed;
}

bool NeuronId::isValid() const {
    const auto all = [this](unsigned char value) {
        return std::all_of(std::begin(bytes), std::end(bytes), [value](unsigned char b) { return b == value; });
    };
    return !all(0x00) && !all(0xFF);
}

bool NeuronId::operator==(const NeuronId& other) const {
    return std::memcmp(bytes, other.bytes, kSize) == 0;
}

NeuronId& NeuronId::operator=(const unsigned char* idBytes) {
    std::memcpy(bytes, idBytes, kSize);
    return *this;
}
