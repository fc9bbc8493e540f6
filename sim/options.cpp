#include "sim/options.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "sim/functions.h"

namespace sim {

namespace {

constexpr std::size_t kLongestSerialNumber = 32;  // as many units the configuration block holds

[[noreturn]] void refuse(std::string_view key, std::string_view value, const char* accepted) {
    throw std::invalid_argument("simulated interface: " + std::string(key) + "=" + std::string(value) + ": " +
                                accepted);
}

bool parseNumber(std::string_view text, std::int64_t lowest, std::int64_t highest, std::int64_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= lowest && value <= highest;
}

void parseSize(Options& options, std::string_view text) {
    std::string_view digits = text;
    unsigned shift = 0;
    if (digits.ends_with('K')) shift = 10;
    if (digits.ends_with('M')) shift = 20;
    if (shift != 0) digits.remove_suffix(1);
    std::int64_t value = 0;
    if (!parseNumber(digits, 1, kLargestFlash, value) || value << shift > kLargestFlash ||
        value << shift < kSmallestFlash || !std::has_single_bit(static_cast<std::uint64_t>(value))) {
        refuse("size", text, "a power of two of bytes from 64K to 128M is needed, such as 1M");
    }
    options.flashSize = static_cast<std::uint32_t>(value << shift);
}

void parsePace(Options& options, std::string_view text) {
    if (text != "real" && text != "fast") refuse("pace", text, "real or fast is needed");
    options.pace = text == "real" ? Pace::Real : Pace::Fast;
}

void parseJedec(Options& options, std::string_view text) {
    std::int64_t value = 0;
    if (!parseNumber(text, 0, 255, value)) {
        refuse("jedec", text, "a capacity code from 0 to 255 is needed; 20 stands for 1 MiB");
    }
    options.capacityCode = static_cast<int>(value);
}

void parseBusy(Options& options, std::string_view text) {
    std::int64_t value = 0;
    if (!parseNumber(text, 0, 2'000'000, value)) refuse("busy", text, "a number of status reads is needed");
    options.busyPolls = static_cast<unsigned>(value);
}

void parseFault(Options& options, std::string_view text) {
    constexpr const char* kForm =
        "FUNCTION@N:STATUS is needed, such as CySpiReadWrite@3:11, or @3+ for all from the third";
    const std::size_t at = text.find('@');
    const std::size_t colon = text.find(':', at == std::string_view::npos ? 0 : at);
    if (at == std::string_view::npos || at == 0 || colon == std::string_view::npos) refuse("fault", text, kForm);
    PlannedFault fault;
    fault.function = text.substr(0, at);
    std::string_view count = text.substr(at + 1, colon - at - 1);
    fault.andLater = count.ends_with('+');
    if (fault.andLater) count.remove_suffix(1);
    std::int64_t nth = 0;
    std::int64_t status = 0;
    if (!parseNumber(count, 1, INT32_MAX, nth) || !parseNumber(text.substr(colon + 1), INT32_MIN, INT32_MAX, status)) {
        refuse("fault", text, kForm);
    }
    if (functionNamed(fault.function) == Function::Count) {
        refuse("fault", text, "that function is none of the simulated ones; docs/simulated-interface.md lists them");
    }
    fault.nth = static_cast<unsigned>(nth);
    fault.status = static_cast<int>(status);
    options.faults.push_back(fault);
}

unsigned parseCount(const char* key, std::string_view text) {
    std::int64_t value = 0;
    if (!parseNumber(text, 1, INT32_MAX, value)) refuse(key, text, "a count from 1 is needed");
    return static_cast<unsigned>(value);
}

void parseLoseProgram(Options& options, std::string_view text) {
    options.lostPrograms.push_back(parseCount("lose-program", text));
}

void parseLoseErase(Options& options, std::string_view text) {
    options.lostErases.push_back(parseCount("lose-erase", text));
}

void parseSfdp(Options& options, std::string_view text) {
    constexpr std::string_view kNames[] = {"told", "none", "lying"};  // as in Sfdp
    const auto* known = std::find(std::begin(kNames), std::end(kNames), text);
    if (known == std::end(kNames)) refuse("sfdp", text, "told, none or lying is needed");
    options.sfdp = static_cast<Sfdp>(known - std::begin(kNames));
}

void parseAccess(Options& options, std::string_view text) {
    constexpr std::string_view kNames[] = {"both", "library", "letters"};  // as in Access
    const auto* known = std::find(std::begin(kNames), std::end(kNames), text);
    if (known == std::end(kNames)) refuse("access", text, "both, library or letters is needed");
    options.access = static_cast<Access>(known - std::begin(kNames));
}

void parseSerial(Options& options, std::string_view text) {
    const bool printable = std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
    if (text.empty() || text.size() > kLongestSerialNumber || !printable) {
        refuse("serial", text, "1 to 32 printable ASCII characters without blanks are needed");
    }
    options.serialNumber = text;
}

void parsePins(Options& options, std::string_view text) {
    if (text != "12" && text != "17") refuse("pins", text, "17, or 12 for a bridge without GPIO_12 to 16, is needed");
    options.pins = text == "12" ? 12 : 17;
}

void parseDeadFlash(Options& options, std::string_view text) {
    std::int64_t value = 0;
    if (!parseNumber(text, 0, INT32_MAX, value)) {
        refuse("dead-flash", text, "the number of transfers is needed that it still answers, 0 for none");
    }
    options.flashDiesAfter = static_cast<std::uint64_t>(value);
}

struct Key {
    std::string_view name;
    void (*parse)(Options&, std::string_view);
};

constexpr Key kKeys[] = {
    {"size", parseSize},
    {"pace", parsePace},
    {"jedec", parseJedec},
    {"busy", parseBusy},
    {"pins", parsePins},
    {"serial", parseSerial},
    {"access", parseAccess},
    {"fault", parseFault},
    {"lose-program", parseLoseProgram},
    {"lose-erase", parseLoseErase},
    {"sfdp", parseSfdp},
    {"dead-flash", parseDeadFlash},
};

struct Flag {
    std::string_view name;
    bool Options::*set;
};

constexpr Flag kFlags[] = {{"denied", &Options::denied}, {"unfinished", &Options::unfinished}};

std::string knownOptions() {
    std::string names;
    for (const Key& key : kKeys) names += (names.empty() ? "" : ", ") + std::string(key.name) + "=";
    for (const Flag& flag : kFlags) names += ", " + std::string(flag.name);
    return names;
}

void parseKey(Options& options, std::string_view text) {
    const std::size_t equals = text.find('=');
    for (const Key& key : kKeys) {
        if (equals != std::string_view::npos && text.substr(0, equals) == key.name) {
            return key.parse(options, text.substr(equals + 1));
        }
    }
    for (const Flag& flag : kFlags) {
        if (text != flag.name) continue;
        options.*flag.set = true;
        return;
    }
    throw std::invalid_argument("simulated interface: unknown option '" + std::string(text) + "'; known are " +
                                knownOptions());
}

}  // namespace

Options parseOptions(const std::string& text) {
    std::string_view rest = text;
    Options options;
    const std::size_t comma = rest.find(',');
    options.folder = rest.substr(0, comma);
    if (options.folder.empty()) {
        throw std::invalid_argument("simulated interface: a folder is needed, such as sim:my-interface,pace=fast");
    }
    while (rest.find(',') != std::string_view::npos) {
        rest.remove_prefix(rest.find(',') + 1);
        parseKey(options, rest.substr(0, rest.find(',')));
    }
    return options;
}

}  // namespace sim
