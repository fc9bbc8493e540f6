#include "sim/clock.h"

#include <algorithm>
#include <thread>

namespace sim {

std::uint64_t Clock::nanoseconds() const {
    if (pace_ == Pace::Virtual) return skipped_;
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    return skipped_ + static_cast<std::uint64_t>(std::chrono::nanoseconds(elapsed).count());
}

void Clock::pass(std::uint64_t nanoseconds) {
    if (pace_ == Pace::Fast) return;
    if (pace_ == Pace::Virtual) {
        skipped_ += nanoseconds;
        return;
    }
    // A sleep ends some 60 us late, more than a whole status read takes: without giving the surplus
    // back, a run would take half as long again as on the wire.
    const auto due = std::chrono::steady_clock::now() + std::chrono::nanoseconds(nanoseconds) - overslept_;
    std::this_thread::sleep_until(due);
    constexpr std::chrono::nanoseconds kMostGivenBack = std::chrono::milliseconds(5);
    overslept_ = std::min<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - due, kMostGivenBack);
}

}  // namespace sim
