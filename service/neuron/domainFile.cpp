// The domain table as JSON text.
#include "tavo/service/domainFile.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tavo/service/files.h"
#include "tavo/service/text.h"

namespace tavo {
namespace {

using Json = nlohmann::ordered_json;

// The flag bytes of an entry (ISO/IEC 14908-1).
constexpr unsigned kNotInUse = 0x80;    // domainIdLength, bit 7
constexpr unsigned kOtherFlags = 0x78;  // domainIdLength, bits 3 to 6
constexpr unsigned kOtherShift = 3;
constexpr unsigned kLength = 0x07;     // domainIdLength, bits 0 to 2
constexpr unsigned kNotAClone = 0x80;  // node, bit 7
constexpr unsigned kNode = 0x7F;       // node, bits 0 to 6

constexpr std::size_t kIdSize = sizeof LonAddress::domainId;
constexpr std::size_t kKeySize = sizeof LonAddress::authenticationKey;
constexpr std::uint64_t kMostBytes = 65536;  // of a file: a table takes a few hundred

/// Factory keys: no secret, and nothing to be kept from a restore.
bool isFactoryKey(const unsigned char* key) {
    const auto all = [&](unsigned char value) {
        return std::all_of(key, key + kKeySize, [=](unsigned char byte) { return byte == value; });
    };
    return all(0xFF) || all(0x00);
}

Error refused(const std::string& what, const std::string& hint) {
    return {Problem::FileRefused, what, hint};
}

/// One entry of the file; every complaint names it.
class EntryReader {
public:
    EntryReader(const Json& json, const std::string& name) : json_(json), name_(name) {
        if (!json.is_object()) throw refused(name + " is not an object", kSeeRead);
        static constexpr const char* kKnown[] = {"index", "in_use", "domain_id", "subnet",      "node",
                                                 "clone", "flags",  "key",       "key_replaced"};
        for (const auto& item : json.items()) {
            const std::string& key = item.key();
            if (std::none_of(std::begin(kKnown), std::end(kKnown), [&](const char* known) { return key == known; })) {
                throw refused(name + ": \"" + key + "\" is not known", kSeeRead);
            }
        }
    }

    unsigned number(const char* key, unsigned low, unsigned high, std::optional<unsigned> absent = {}) const {
        const auto found = json_.find(key);
        if (found == json_.end() && absent) return *absent;
        const std::string range = std::to_string(low) + " to " + std::to_string(high);
        if (found == json_.end() || !found->is_number_integer()) {
            throw refused(name_ + ": \"" + key + "\" is not a number", range);
        }
        // A value beyond the signed range is read as an unsigned one: as signed it would be shown as -1.
        const bool isLarge = found->is_number_unsigned() && found->get<std::uint64_t>() > high;
        const auto value = isLarge ? std::int64_t{high} + 1 : found->get<std::int64_t>();
        if (value < low || value > high) {
            throw refused(name_ + ": " + key + " " + found->dump() + " is out of range", range);
        }
        return static_cast<unsigned>(value);
    }

    bool flag(const char* key, bool absent) const {
        const auto found = json_.find(key);
        if (found == json_.end()) return absent;
        if (!found->is_boolean()) throw refused(name_ + ": \"" + key + "\" is not true or false", kSeeRead);
        return found->get<bool>();
    }

    /// The bytes of a hexadecimal text; nothing when it is null or absent.
    std::optional<std::string> bytes(const char* key, const std::vector<std::size_t>& sizes, const char* hint) const {
        const auto found = json_.find(key);
        if (found == json_.end() || found->is_null()) return {};
        const std::string text = found->is_string() ? found->get<std::string>() : "?";
        std::string bytes(text.size() / 2, '\0');
        bool isHex = text.size() % 2 == 0;
        for (std::size_t i = 0; i < bytes.size() && isHex; ++i) {
            unsigned value = 0;
            const char* digits = text.data() + 2 * i;
            isHex = std::from_chars(digits, digits + 2, value, 16).ptr == digits + 2;
            bytes[i] = static_cast<char>(value);
        }
        if (!isHex || std::find(sizes.begin(), sizes.end(), bytes.size()) == sizes.end()) {
            throw refused(name_ + ": \"" + key + "\" is not accepted", hint);
        }
        return bytes;
    }

    static constexpr const char* kSeeRead = "tavo-util --json domain read shows the form";

private:
    const Json& json_;
    std::string name_;
};

DomainEntry entryOf(const Json& json, unsigned index) {
    const std::string name = "domain " + std::to_string(index);
    const EntryReader reader(json, name);
    const bool inUse = reader.flag("in_use", true);
    const auto id = reader.bytes("domain_id", {0, 1, 3, 6}, "0, 1, 3 or 6 bytes in hexadecimal");
    if (!id) throw refused(name + ": \"domain_id\" is missing", EntryReader::kSeeRead);
    const unsigned subnet = reader.number("subnet", 0, 0xFF);
    const unsigned node = reader.number("node", inUse ? 1 : 0, kNode);
    const bool isClone = reader.flag("clone", false);
    const unsigned flags = reader.number("flags", 0, kOtherFlags >> kOtherShift, 0);
    const auto key = reader.bytes("key", {kKeySize}, "6 bytes in hexadecimal; null keeps the key that is there");

    DomainEntry entry{index, {}, key.has_value(), reader.flag("key_replaced", false)};
    LonAddress& address = entry.address;
    std::copy_n(id->begin(), std::min(id->size(), sizeof address.domainId), address.domainId);
    address.subnet = static_cast<unsigned char>(subnet);
    address.node = static_cast<unsigned char>(node | (isClone ? 0 : kNotAClone));
    address.domainIdLength = static_cast<unsigned char>(id->size() | flags << kOtherShift | (inUse ? 0 : kNotInUse));
    if (key) std::copy_n(key->begin(), kKeySize, address.authenticationKey);
    return entry;
}

std::string content(const std::string& path) {
    const Descriptor file = openForReading(path);
    std::string text(kMostBytes + 1, '\0');
    text.resize(readSome(file.get(), text.data(), text.size(), path));
    if (text.size() > kMostBytes) throw refused(path + " is too long for a domain table", EntryReader::kSeeRead);
    return text;
}

/// Reads nothing but finds the place of the first fault: the JSON library names it for some kinds only.
struct FaultFinder {
    std::size_t at = 0;  // bytes read when it was found

    static bool null() { return true; }
    static bool boolean(bool) { return true; }
    static bool number_integer(std::int64_t) { return true; }
    static bool number_unsigned(std::uint64_t) { return true; }
    static bool number_float(double, const std::string&) { return true; }
    static bool string(const std::string&) { return true; }
    static bool binary(const Json::binary_t&) { return true; }
    static bool start_object(std::size_t) { return true; }
    static bool key(const std::string&) { return true; }
    static bool end_object() { return true; }
    static bool start_array(std::size_t) { return true; }
    static bool end_array() { return true; }
    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception&) {
        at = position;
        return false;
    }
};

Json parsed(const std::string& path) {
    const std::string text = content(path);
    FaultFinder fault;
    if (Json::sax_parse(text, &fault)) return Json::parse(text);
    const std::string before = text.substr(0, std::min(fault.at, text.size()));
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    throw refused(path + " is not JSON: line " + std::to_string(line) + ", character " +
                      std::to_string(before.size() - (before.rfind('\n') + 1)) + " cannot be read",
                  EntryReader::kSeeRead);
}

/// The entries of the file, whichever of its three forms it has.
std::vector<Json> entriesOf(Json file, const std::string& path) {
    if (file.is_object() && file.contains("result")) {
        const auto command = file.find("command");
        if (!file["result"].contains("domains") && command != file.end() && command->is_string()) {
            throw refused(path + " holds what a tavo-util " + command->get<std::string>() +
                              " has told that gave no domain table: it failed, or is another command",
                          "read the table again: tavo-util --json domain read --show-keys > " + shellWord(path));
        }
        file = Json(file["result"]);
    }
    if (file.is_object() && file.contains("domains")) file = Json(file["domains"]);
    if (file.is_object()) return {file};
    if (!file.is_array() || file.empty()) throw refused(path + " holds no domain entries", EntryReader::kSeeRead);
    return {file.begin(), file.end()};
}

}  // namespace

DomainFields fieldsOf(const LonAddress& entry) {
    DomainFields fields;
    fields.inUse = (entry.domainIdLength & kNotInUse) == 0;
    const auto length = std::min<std::size_t>(entry.domainIdLength & kLength, kIdSize);
    fields.domainId = hexText(entry.domainId, length, "");
    fields.subnet = entry.subnet;
    fields.node = entry.node & kNode;
    fields.isClone = (entry.node & kNotAClone) == 0;
    fields.flags = (entry.domainIdLength & kOtherFlags) >> kOtherShift;
    fields.key = hexText(entry.authenticationKey, kKeySize, "");
    return fields;
}

std::vector<DomainEntry> readDomainFile(const std::string& path, std::optional<int> only) {
    const std::vector<Json> inFile = entriesOf(parsed(path), path);
    std::vector<DomainEntry> entries;
    for (const Json& json : inFile) {
        const bool isMeant = only && inFile.size() == 1;  // whatever index it was read from
        const unsigned index =
            isMeant ? static_cast<unsigned>(*only) : EntryReader(json, "an entry of " + path).number("index", 0, 1);
        const auto isIt = [index](const DomainEntry& entry) { return entry.index == index; };
        if (std::any_of(entries.begin(), entries.end(), isIt)) {
            throw refused(path + " holds domain " + std::to_string(index) + " twice", "leave one of them");
        }
        if (!only || static_cast<unsigned>(*only) == index) entries.push_back(entryOf(json, index));
    }
    if (entries.empty()) throw refused(path + " does not hold that entry", EntryReader::kSeeRead);
    return entries;
}

DomainTable tableWith(const DomainTable& before, const std::vector<DomainEntry>& entries) {
    DomainTable table = before;
    for (const DomainEntry& entry : entries) {
        LonAddress& into = table[entry.index];
        LonAddress address = entry.address;
        if (!entry.hasKey) std::copy_n(into.authenticationKey, kKeySize, address.authenticationKey);
        into = address;
    }
    return table;
}

std::string domainTableText(const DomainTable& table, const DomainTable& next, bool keepKeys) {
    Json entries = Json::array();
    for (unsigned i = 0; i < table.size(); ++i) {
        const DomainFields fields = fieldsOf(table[i]);
        const unsigned char* const key = table[i].authenticationKey;
        Json json = {
            {"index", i},          {"in_use", fields.inUse}, {"domain_id", fields.domainId}, {"subnet", fields.subnet},
            {"node", fields.node}, {"clone", fields.isClone}};
        if (fields.flags != 0) json["flags"] = fields.flags;
        const bool isShown = keepKeys || isFactoryKey(key);
        json["key"] = isShown ? Json(fields.key) : Json(nullptr);
        const bool isReplaced = std::memcmp(key, next[i].authenticationKey, kKeySize) != 0;
        if (!isShown && isReplaced) json["key_replaced"] = true;
        entries.push_back(std::move(json));
    }
    return Json{{"domains", entries}}.dump(2) + "\n";
}

}  // namespace tavo
