#include "platform/usb/spiSide.h"

#include "platform/usb/request.h"

namespace usb {

void SpiSide::begin(const Claim& claim) {
    const std::lock_guard lock(mutex_);
    if (begun_) return;
    begun_ = true;  // also when it fails: the request that follows meets the same bridge, and tells
    reset(claim);
}

bool SpiSide::reset(const Claim& claim) {
    return requestOut(claim, kSpiReset, claim.block(), 0, nullptr, 0) >= 0;
}

void SpiSide::restore(const Claim& claim) {
    const std::lock_guard lock(mutex_);
    if (!setting_) return;
    SpiRecord now{};
    const int result = requestIn(claim, kSpiGetConfig, claim.block(), 0, now.data(), now.size());
    if (result != static_cast<int>(now.size()) || now == *setting_) return;
    requestOut(claim, kSpiSetConfig, claim.block(), 0, setting_->data(), now.size());
}

void SpiSide::remember(const std::optional<SpiRecord>& setting) {
    const std::lock_guard lock(mutex_);
    setting_ = setting;
}

UINT32 SpiSide::frequency() {
    const std::lock_guard lock(mutex_);
    return setting_ ? frequencyOf(*setting_) : 0;
}

}  // namespace usb
