#include "tavo/service/range.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "tavo/service/files.h"
#include "tavo/service/imageFile.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

constexpr const char* kForms = "give FIRST-LAST or FIRST+SIZE: 0x10000-0x1FFFF, 64K+4K";
constexpr const char* kLayoutForm = "write it as 010000-01FFFF NAME, the addresses hexadecimal";
constexpr std::uint64_t kMostNumber = std::uint64_t{1} << 32;
constexpr std::size_t kMostLayout = 1 << 20;
constexpr std::size_t kListedFaults = 20;

std::optional<std::uint64_t> number(std::string_view text, int base) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) return {};
    return value <= kMostNumber ? std::optional(value) : std::nullopt;
}

bool isHexadecimal(std::string_view text) {
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

/// 1 for a number without unit.
std::uint64_t unitOf(std::string_view text) {
    const char last = text.empty() || isHexadecimal(text) ? '\0' : text.back();
    if (last == 'K' || last == 'k') return 1024;
    return last == 'M' || last == 'm' ? 1024 * 1024 : 1;
}

/// Why there is no such range; empty when there is.
std::string faultOf(std::uint64_t first, std::uint64_t end) {
    if (end <= first) return "ends before it begins";
    return end > kAddressable ? "reaches beyond 24 address bits (0xFFFFFF)" : "";
}

AddressRange rangeTo(std::uint64_t first, std::uint64_t end) {
    return {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(end - 1)};
}

std::string namesOf(const std::vector<NamedRange>& layout) {
    std::string names;
    for (const auto& each : layout) names += (names.empty() ? "" : ", ") + each.name;
    return names;
}

Error noRange(const std::string& text, const std::vector<NamedRange>& layout) {
    return {Problem::BadArgument, "'" + text + "' is no range" + (layout.empty() ? "" : " and no name of the layout"),
            kForms + (layout.empty() ? std::string("; names come from a --layout file")
                                     : ", or a name of the layout: " + namesOf(layout))};
}

// ---- layout files

std::string_view trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\r";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<std::uint64_t> layoutAddress(std::string_view text) {
    return number(isHexadecimal(text) ? text.substr(2) : text, 16);
}

class LayoutReader {
public:
    void take(std::string_view line);
    /// Throws Error.
    std::vector<NamedRange> finish(const std::string& path);

private:
    void add(std::string_view addresses, const std::string& name);
    void fault(const std::string& text, const std::string& remedy) { faults_.push_back({line_, text, remedy}); }

    std::uint64_t line_ = 0;
    std::vector<NamedRange> ranges_;
    std::vector<ImageFault> faults_;
};

void LayoutReader::take(std::string_view line) {
    ++line_;
    const std::string_view text = trimmed(line.substr(0, line.find('#')));
    if (text.empty()) return;
    const auto blank = text.find_first_of(" \t");
    if (blank == std::string_view::npos) return fault("'" + std::string(text) + "': no name", kLayoutForm);
    const std::string name(trimmed(text.substr(blank)));
    if (name.find_first_of(" \t") != std::string::npos)
        return fault("more than a range and a name", "a name has no blanks; # begins a comment");
    add(text.substr(0, blank), name);
}

void LayoutReader::add(std::string_view addresses, const std::string& name) {
    const std::string shown = "'" + std::string(addresses) + "'";
    const auto between = addresses.find_first_of("-:");
    const auto first = layoutAddress(addresses.substr(0, between));
    const auto last = between == std::string_view::npos ? std::nullopt : layoutAddress(addresses.substr(between + 1));
    if (!first || !last) return fault(shown + " is no range", kLayoutForm);
    if (const auto why = faultOf(*first, *last + 1); !why.empty()) return fault(shown + " " + why, kLayoutForm);
    const bool isThere =
        std::any_of(ranges_.begin(), ranges_.end(), [&](const NamedRange& each) { return each.name == name; });
    if (isThere) return fault("'" + name + "' is named twice", "give each range a name of its own");
    ranges_.push_back({name, rangeTo(*first, *last + 1)});
}

std::vector<NamedRange> LayoutReader::finish(const std::string& path) {
    if (ranges_.empty() && faults_.empty()) faults_ = {{0, "it names no range", kLayoutForm}};
    if (faults_.empty()) return std::move(ranges_);
    Error error = refusal(path, faults_.front());
    for (const auto& each : faults_) {
        if (error.details.size() == kListedFaults) break;
        error.details.push_back(faultText(each) + " - " + each.hint);
    }
    throw error;
}

}  // namespace

std::optional<std::uint64_t> parseNumber(const std::string& text) {
    const std::string_view all = text;
    if (isHexadecimal(all)) return number(all.substr(2), 16);
    const std::uint64_t unit = unitOf(all);
    const auto value = number(unit > 1 ? all.substr(0, all.size() - 1) : all, 10);
    if (!value || *value * unit > kMostNumber) return {};
    return *value * unit;
}

AddressRange parseRange(const std::string& text, const std::vector<NamedRange>& layout) {
    for (const auto& each : layout) {
        if (each.name == text) return each.range;
    }
    const auto between = text.find_first_of("+-");
    if (between == std::string::npos) throw noRange(text, layout);
    const std::string second = text.substr(between + 1);
    const auto first = parseNumber(text.substr(0, between));
    const auto number = parseNumber(second);
    if (!first || !number) throw noRange(text, layout);
    const bool isSize = text[between] == '+';
    if (isSize && *number == 0) throw Error(Problem::BadArgument, "the range " + text + " holds no byte", kForms);
    const std::uint64_t end = isSize ? *first + *number : *number + 1;
    if (const auto why = faultOf(*first, end); !why.empty())
        throw Error(Problem::BadArgument, "the range " + text + " " + why, kForms);
    if (!isSize && unitOf(second) > 1) {
        const std::string most = *first < *number ? ", or " + rangeText(rangeTo(*first, *number)) : "";
        throw Error(Problem::BadArgument, "the range " + text + " would end with the first byte behind " + second,
                    "LAST is the last byte itself: write FIRST+SIZE" + most);
    }
    return rangeTo(*first, end);
}

std::vector<NamedRange> readLayout(const std::string& path) {
    const Descriptor file = openForReading(path);
    std::string text(kMostLayout + 1, '\0');
    text.resize(readSome(file.get(), text.data(), text.size(), path));
    if (text.size() > kMostLayout)
        throw refusal(path, {0, "longer than any layout", "name the file that names the ranges"});
    LayoutReader reader;
    for (std::string_view rest = text; !rest.empty();) {
        const auto feed = rest.find('\n');
        reader.take(rest.substr(0, feed));
        rest.remove_prefix(feed == std::string_view::npos ? rest.size() : feed + 1);
    }
    return reader.finish(path);
}

std::vector<AddressRange> alignedRanges(const AddressRange& range, std::uint32_t step) {
    const std::uint64_t end = std::uint64_t{range.last} + 1;
    const std::uint64_t outerFirst = range.first / step * step;
    const std::uint64_t outerEnd = (end + step - 1) / step * step;
    if (outerFirst == range.first && outerEnd == end) return {range};
    std::uint64_t innerFirst = (std::uint64_t{range.first} + step - 1) / step * step;
    std::uint64_t innerEnd = end / step * step;
    if (innerFirst >= innerEnd) {  // no whole block in it: the one that it begins in
        innerFirst = outerFirst;
        innerEnd = outerFirst + step;
    }
    std::vector<AddressRange> found{rangeTo(outerFirst, outerEnd)};
    if (innerEnd - innerFirst < outerEnd - outerFirst) found.push_back(rangeTo(innerFirst, innerEnd));
    return found;
}

std::string rangeText(const AddressRange& range) {
    return hexAddress(range.first) + "-" + hexAddress(range.last);
}

}  // namespace tavo
