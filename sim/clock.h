// The time of a simulated interface.
#pragma once

#include <chrono>
#include <cstdint>

#include "sim/export.h"
#include "sim/options.h"

namespace sim {

/// Pace::Virtual: time stands still until pass() or skip(). Otherwise it runs with the computer's
/// clock, and skip() adds to it.
class TAVO_SIM_API Clock {
public:
    explicit Clock(Pace pace) : pace_(pace), start_(std::chrono::steady_clock::now()) {}

    /// Microseconds since the clock was made.
    std::uint64_t now() const { return nanoseconds() / 1000; }
    /// False with Pace::Fast: nothing that the hardware does takes time.
    bool isPaced() const { return pace_ != Pace::Fast; }

    /// The hardware is at work for that long: sleeps with Pace::Real, does nothing with Pace::Fast.
    void pass(std::uint64_t nanoseconds);
    /// A sleep that did not really take place, in microseconds.
    void skip(std::uint64_t microseconds) { skipped_ += microseconds * 1000; }

private:
    std::uint64_t nanoseconds() const;

    Pace pace_;
    std::chrono::steady_clock::time_point start_;
    std::uint64_t skipped_ = 0;             // nanoseconds
    std::chrono::nanoseconds overslept_{};  // by earlier calls of pass(), given back in later ones
};

}  // namespace sim
