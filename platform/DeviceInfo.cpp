#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/deviceIds.h"
#include "tavo/deviceAccess.h"

namespace {

using DeviceId = std::pair<std::uint16_t, std::uint16_t>;

std::vector<DeviceId>& expectedIds() {
#define TAVO_ID_ROW(vendorId, productId, what) DeviceId{vendorId, productId},
    static std::vector<DeviceId> ids = {TAVO_DEVICE_IDS(TAVO_ID_ROW)};
#undef TAVO_ID_ROW
    return ids;
}

std::mutex& idsMutex() {
    static std::mutex mutex;
    return mutex;
}

}  // namespace

namespace platform {

void allowDeviceId(std::uint16_t vendorId, std::uint16_t productId) {
    const std::lock_guard lock(idsMutex());
    expectedIds().emplace_back(vendorId, productId);
}

bool isDeviceIdExpected(std::uint16_t vendorId, std::uint16_t productId) {
    const std::lock_guard lock(idsMutex());
    return std::find(expectedIds().begin(), expectedIds().end(), DeviceId{vendorId, productId}) != expectedIds().end();
}

}  // namespace platform

bool DeviceInfo::areVidPidCorrect() const {
    return platform::isDeviceIdExpected(vendorId, productId);
}
