#include "tavo/LdvManager.h"

#include <Poco/Thread.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/ldv.h"

namespace {

constexpr std::size_t kNameSize = 64;            // with the terminating NUL
constexpr unsigned char kNamedExplicitly = 255;  // linkDeviceNumber
constexpr unsigned short kBridgeMaker = 0x04B4;  // its interfaces have LDV names of their own, with a "C"
constexpr unsigned int kPollMs = 10;

/// Longer names are cut.
template <typename... Values>
bool format(char (&name)[kNameSize], const char* pattern, Values... values) {
    return std::snprintf(name, kNameSize, pattern, values...) >= 0;
}

/// False when the record gives no usable name.
bool chooseName(const DeviceInfo& info, char (&name)[kNameSize]) {
    const bool isBridgeMaker = info.vendorId == kBridgeMaker;
    if (info.linkDeviceNumber == kNamedExplicitly) {
        return info.serialNumberValid != 0 && info.ldvDeviceName != nullptr && format(name, "%s", info.ldvDeviceName);
    }
    if (info.serialNumber.text[0] != '\0' && info.serialNumberValid != 0) {
        return format(name, isBridgeMaker ? "CSN%8s" : "SN%8s", info.serialNumber.text);
    }
    if (!info.neuronId.isValid() || info.neuronIdValid == 0) return false;
    const unsigned char* id = info.neuronId.bytes;
    return format(name,
                  isBridgeMaker ? "CID%.2hhx%.2hhx%.2hhx%.2hhx%.2hhx%.2hhx" : "ID%.2hhx%.2hhx%.2hhx%.2hhx%.2hhx%.2hhx",
                  id[0], id[1], id[2], id[3], id[4], id[5]);
}

bool passes(const unsigned char* response, const LdvManager::C* match, unsigned char matchCount) {
    if (match == nullptr) return true;
    return std::all_of(match, match + matchCount, [response](const LdvManager::C& test) {
        return (response[test.offset] & test.mask) == test.value;
    });
}

}  // namespace

LdvManager::LdvManager(const DeviceInfo& info) : ldvStatus(kNoDeviceName), isOpen(false) {
    char name[kNameSize];
    if (!chooseName(info, name)) return;
    ldvStatus = ldv_open(name, &ldvHandle);
    isOpen = ldvStatus == LDV_OK;
}

LdvManager::~LdvManager() {
    if (isOpen) ldv_close(ldvHandle);
}

bool LdvManager::transaction(const unsigned char* request, unsigned char requestLength, unsigned char* response,
                             unsigned char responseLength, unsigned int timeoutMs, const C* match,
                             unsigned char matchCount) {
    ldvStatus = ldv_write(ldvHandle, request, requestLength);
    if (ldvStatus != LDV_OK) return false;
    if (response == nullptr) return true;

    // Part of the contract: the count is 16 bits wide and signed, and only reads that find nothing use it up.
    auto emptyReadsLeft = static_cast<std::int16_t>(timeoutMs / kPollMs);
    while (emptyReadsLeft > 0) {
        Poco::Thread::sleep(kPollMs);
        std::memset(response, 0, responseLength);
        ldvStatus = ldv_read(ldvHandle, response, responseLength);
        if (ldvStatus == LDV_NO_MSG_AVAIL) {
            --emptyReadsLeft;
        } else if (ldvStatus != LDV_OK) {
            return false;
        } else if (passes(response, match, matchCount)) {
            return true;
        }
    }
    return false;
}
