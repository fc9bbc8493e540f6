// The domain table as JSON text: what `domain read` gives, what `domain write` takes, and what is kept of one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tavo/service/neuron.h"

namespace tavo {

/// What an entry says.
struct DomainFields {
    bool inUse = false;    ///< the Neuron is a member of the domain
    std::string domainId;  ///< 0, 1, 3 or 6 bytes in hexadecimal
    unsigned subnet = 0;   ///< 1 to 255; 0: none
    unsigned node = 0;     ///< 1 to 127
    bool isClone = false;  ///< other nodes may have the same address
    unsigned flags = 0;    ///< of the length byte, bits 3 to 6
    std::string key;       ///< 6 bytes in hexadecimal
};
/// Decodes a block, also a bad one.
TAVO_API DomainFields fieldsOf(const LonAddress& entry);

/// An entry of a file.
struct DomainEntry {
    unsigned index = 0;          ///< 0 or 1
    LonAddress address;          ///< the entry
    bool hasKey = false;         ///< false: the key that is there stays
    bool isKeyReplaced = false;  ///< of a masked one: what was written then had another key
};

/// Reads what `domain read` gives with --json, or its "domains", or one of those.
/// @param only  takes one entry: the file's for that index, or its single one
/// Throws Error (FileRefused or FileSystem), naming the entry and the range.
TAVO_API std::vector<DomainEntry> readDomainFile(const std::string& path, std::optional<int> only = std::nullopt);

/// The table with these entries in it; an entry without a key takes the one that was there.
TAVO_API DomainTable tableWith(const DomainTable& before, const std::vector<DomainEntry>& entries);

/// A file for readDomainFile. Keys are left out unless keepKeys, factory keys (all FF, all 00) excepted.
/// @param next  what is to be written over the table: tells which keys it replaces
TAVO_API std::string domainTableText(const DomainTable& table, const DomainTable& next, bool keepKeys);

}  // namespace tavo
