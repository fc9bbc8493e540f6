// The Neuron's counters over time: a segment of a network that is bad makes them grow.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tavo/neuron.h"
#include "tavo/service/device.h"

namespace tavo {

/// One of the five counters of NeuronState, which have 16 bits.
struct StatusCounter {
    const char* key;      ///< for programs: "transmit_errors"
    const char* label;    ///< for people: "transmit errors"
    const char* meaning;  ///< what has happened each time, and where to look: one line
};
inline constexpr std::size_t kStatusCounters = 5;                ///< how many there are
TAVO_API const StatusCounter& statusCounter(std::size_t index);  ///< 0 to 4, in the order of NeuronState

/// One number for each counter.
using Counts = std::array<std::uint32_t, kStatusCounters>;
/// The counters of a status.
TAVO_API Counts countsOf(const NeuronState& state);

/// One look at the status.
struct StatusLook {
    double seconds = 0;                 ///< since the watch began
    std::optional<NeuronState> status;  ///< none: no answer
    std::string why = {};               ///< there was none
    Counts change{};                    ///< since the last look that was answered; 0 in the first one
    bool cleared = false;               ///< the counters were set back in between: change counts from there
};

/// What was seen while a status was watched. A value: it can be drawn, stored and compared.
struct TAVO_API StatusHistory {
    std::chrono::system_clock::time_point started;  ///< by the clock of this computer
    std::vector<StatusLook> looks;                  ///< in their order
    Counts total{};  ///< change since the first look that was answered, over everything that was set back

    /// Takes one more look. A count below the one before went over FFFF, when the step is small and the Neuron was not
    /// reset in between; otherwise all of them were set back to 0.
    const StatusLook& add(double seconds, const std::optional<NeuronState>& status, const std::string& why = "");
    const StatusLook* lastAnswered() const;  ///< null: none was
    /// Looks without an answer.
    std::size_t unanswered() const;
    /// How often the counters began anew.
    std::size_t timesCleared() const;
};

/// How often and how long watchStatus looks.
struct WatchOptions {
    unsigned intervalMs = 2000;  ///< from the start of a look to the start of the next one
    std::size_t looks = 0;       ///< 0: until cancelled
    /// Told after each look; may be empty. An exception from it ends the watch.
    std::function<void(const StatusHistory&)> each;
};

/// Looks at the status again and again. A cancellation is the ordinary end of it, not a failure, and nothing is held
/// between two looks. A Neuron that does not answer is a look without an answer.
/// @param history  emptied first; holds what was seen also when this throws. Some 150 bytes a look.
/// Throws Error: NoAnswer when no look was answered; what readStatus throws when the LDV channel cannot be opened at
/// the first look or the interface is no longer attached; Interrupted when cancelled before the first look was over.
TAVO_API void watchStatus(Device& device, StatusHistory& history, const WatchOptions& options = {},
                          const Control& control = {});

}  // namespace tavo
