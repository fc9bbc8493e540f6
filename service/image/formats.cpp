#include <algorithm>

#include "service/image/readers.h"
#include "service/image/recordText.h"

namespace tavo {
namespace {

struct Named {
    const char* text;
    Format format;
};

constexpr Named kNames[] = {{"an image", Format::Automatic},
                            {"Intel HEX", Format::Hex},
                            {"Motorola S-record", Format::SRecord},
                            {"raw binary", Format::Binary},
                            {"ELF", Format::Elf}};

constexpr Named kWords[] = {{"auto", Format::Automatic}, {"hex", Format::Hex},       {"srec", Format::SRecord},
                            {"bin", Format::Binary},     {"binary", Format::Binary}, {"elf", Format::Elf}};

constexpr Named kEndings[] = {{"hex", Format::Hex},      {"ihex", Format::Hex},    {"ihx", Format::Hex},
                              {"srec", Format::SRecord}, {"s19", Format::SRecord}, {"s28", Format::SRecord},
                              {"s37", Format::SRecord},  {"mot", Format::SRecord}, {"bin", Format::Binary},
                              {"raw", Format::Binary},   {"elf", Format::Elf},     {"axf", Format::Elf}};

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

bool isText(std::string_view head) {
    return std::all_of(head.begin(), head.end(), [](char c) {
        const auto code = static_cast<unsigned char>(c);
        return (code >= 0x20 && code != 0x7F) || c == '\t' || c == '\r' || c == '\n';
    });
}

/// A record's begin stays one when there is a foreign byte somewhere behind it.
bool beginsRecord(std::string_view text) {
    constexpr std::size_t kEnough = 9;
    return text.size() >= kEnough &&
           std::all_of(text.begin() + 1, text.begin() + kEnough, [](char c) { return digitValue(c) >= 0; });
}

}  // namespace

const char* formatName(Format format) {
    return std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& row) { return row.format == format; })
        ->text;
}

std::optional<Format> formatOf(const std::string& word) {
    for (const auto& row : kWords) {
        if (word == row.text) return row.format;
    }
    return {};
}

Format formatByName(const std::string& path) {
    std::string name = lowered(path.substr(path.rfind('/') + 1));
    if (name.size() > 3 && name.substr(name.size() - 3) == ".gz") name.resize(name.size() - 3);
    const auto dot = name.rfind('.');
    if (dot == std::string::npos) return Format::Automatic;
    for (const auto& row : kEndings) {
        if (name.substr(dot + 1) == row.text) return row.format;
    }
    return Format::Automatic;
}

Format formatToWrite(const std::string& path) {
    const Format format = formatByName(path);
    const auto dot = path.rfind('.');
    const bool isPacked = dot != std::string::npos && lowered(path.substr(dot)) == ".gz";
    if (isPacked || format == Format::Elf) {
        throw Error(Problem::BadArgument, path + ": that format is not written",
                    "choose a name that ends in .hex, .srec or .bin");
    }
    return format == Format::Automatic ? Format::Hex : format;
}

std::optional<Format> formatByContent(std::string_view head) {
    if (head.substr(0, 4) ==
        "\x7F"
        "ELF")
        return Format::Elf;
    const std::string_view whole = head;
    if (head.substr(0, 3) == "\xEF\xBB\xBF") head.remove_prefix(3);
    head.remove_prefix(std::min(head.find_first_not_of(" \t\r\n"), head.size()));
    if (head.empty() || !(beginsRecord(head) || isText(whole))) return {};
    if (head[0] == ':') return Format::Hex;
    if (head[0] == 'S' && head.size() > 1 && head[1] >= '0' && head[1] <= '9') return Format::SRecord;
    return {};
}

}  // namespace tavo
