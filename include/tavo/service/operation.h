// What every operation of the service layer takes beside its options: somebody to report to, and a way to be stopped.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "tavo/export.h"

namespace tavo {

/// Stops operations: they end at the next page, chunk or message, release everything and throw an
/// Error of Problem::Interrupted. May be set from any thread and from a signal handler. Owned by the
/// caller; must outlive the operations it is given to.
class CancelToken {
public:
    /// Stops what runs with this token; may be called from a signal handler.
    void cancel() noexcept { isSet_.store(true, std::memory_order_relaxed); }
    /// For another operation with the same token.
    void reset() noexcept { isSet_.store(false, std::memory_order_relaxed); }
    /// True from cancel to reset.
    bool isCancelled() const noexcept { return isSet_.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> isSet_{false};
    static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may set it");
};

/// A part of an operation.
enum class Phase : std::uint8_t {
    None,
    Wait,
    Check,
    Backup,
    Dump,
    Read,
    Erase,
    Program,
    Verify,
    Boot,
    ServiceMode,
    Reset
};
TAVO_API const char* phaseName(Phase phase);  ///< "erase", "service mode" ...

/// One thing that an operation tells while it works, on the thread that called it.
struct Event {
    /// What it is.
    enum class Kind : std::uint8_t {
        PhaseBegins,  ///< phase; total bytes, 0 without measure; seconds, of a wait of known length; text: how long it
                      ///< usually takes
        Progress,     ///< done of total bytes
        PhaseEnds,    ///< phase; text: a remark
        StopNote,     ///< text: what a cancellation does in this phase, when it cannot stop at once
        Retry,        ///< address: a page that needed another attempt; done: attempts so far
        Warning,      ///< text, hint
        Step,         ///< text: for a log
    };
    Kind kind = Kind::Step;     ///< what it is
    Phase phase = Phase::None;  ///< that it belongs to
    std::uint64_t done = 0;     ///< bytes
    std::uint64_t total = 0;    ///< bytes
    std::uint32_t address = 0;  ///< of Retry
    double seconds = 0;         ///< of PhaseBegins: that it will take, 0 when unknown
    std::string text = {};      ///< for people
    std::string hint = {};      ///< of Warning: what to do next
};

/// Called often (every page): must return soon. An exception from it ends the operation after its releases.
using Observer = std::function<void(const Event&)>;

/// Both are optional.
struct Control {
    Observer observer;                    ///< called at each event; may be null
    const CancelToken* cancel = nullptr;  ///< borrowed
};

}  // namespace tavo
