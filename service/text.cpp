#include "tavo/service/text.h"

#include <cstdio>
#include <ctime>

namespace tavo {

std::string hexText(const unsigned char* bytes, std::size_t count, const char* separator) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", bytes[i]);
        text += (i == 0 ? "" : separator) + std::string(digits);
    }
    return text;
}

std::string hexAddress(std::uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%06X", address);
    return text;
}

std::string sizeText(std::uint64_t bytes) {
    constexpr std::uint64_t kKi = 1024;
    if (bytes >= kKi * kKi && bytes % (kKi * kKi) == 0) return std::to_string(bytes / kKi / kKi) + " MiB";
    if (bytes >= kKi && bytes % kKi == 0) return std::to_string(bytes / kKi) + " KiB";
    return countText(bytes, "byte");
}

std::string secondsText(double seconds) {
    char text[48];
    if (seconds < 100) {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    } else {
        const auto whole = static_cast<unsigned>(seconds);
        std::snprintf(text, sizeof text, "%u min %u s", whole / 60, whole % 60);
    }
    return text;
}

std::string timeText(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
    return text;
}

std::string countText(std::uint64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string shellWord(const std::string& name) {
    constexpr const char* kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-/+,:@%=";
    // zsh takes a word that begins with = for the name of a program.
    if (!name.empty() && name.front() != '=' && name.find_first_not_of(kPlain) == std::string::npos) return name;
    std::string word = "'";
    for (const char c : name) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

std::string neuronIdText(const NeuronId& id) {
    return hexText(id.bytes, NeuronId::kSize, "");
}

}  // namespace tavo
