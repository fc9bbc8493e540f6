// What the operations of this layer share while they run: reporting, cancellation, and what is known of the device.
#pragma once

#include <cstdint>
#include <functional>
#include <new>
#include <string>

#include "tavo/service/device.h"
#include "tavo/service/operation.h"

namespace tavo {

/// One running operation on one device, made by operate(). Each step raises `state` before it may change the device; an
/// Error that fail() throws carries that state.
class Operation {
public:
    Operation(Device& onDevice, const Control& itsControl) : device(onDevice), control_(itsControl) {}
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    Device& device;
    DeviceState state;

    // What the caller is told.
    void tell(const Event& event) const;
    void step(const std::string& text) const;
    /// The same from a release: what the caller's observer throws must not keep the rest from being released.
    void note(const std::string& text) const noexcept;
    void warn(const std::string& text, const std::string& hint = "") const;
    /// Ends the phase before, if any. usual: how long it takes, where there is no measure.
    void begin(Phase phase, const std::string& usual = "", std::uint64_t totalBytes = 0, double seconds = 0);
    void advance(std::uint64_t doneBytes) const;
    void end(const std::string& remark = "");
    void stopNote(const std::string& text) const;

    bool isCancelled() const { return control_.cancel != nullptr && control_.cancel->isCancelled(); }
    /// Throws the Error of Problem::Interrupted, with the state.
    void throwIfCancelled() const;
    /// Sleeps that long; ends early and throws when cancelled. Waits of 100 ms and less are never divided.
    void sleep(long milliseconds) const;

    /// Makes one library call. doing completes "cannot ...": "read the Neuron ID"; the device's name is added.
    /// Throws the Error of its status, with the state; and before the call when cancelled.
    void call(Side side, const std::string& doing, const std::function<TAVO_STATUS()>& work);
    /// The same, returning the status to callers that explain it themselves.
    TAVO_STATUS tryCall(const std::string& doing, const std::function<TAVO_STATUS()>& work);

    /// Throws it with the state as it is now.
    [[noreturn]] void fail(Error error) const;
    /// Throws it as the failure of an interface that is no longer attached, when it is not: many things fail then.
    void failIfGone(const Error& error) const;

    /// Runs work. That memory is short becomes an Error as well: whoever catches nothing else knows the state.
    template <class Work>
    auto guarded(const Work& work) const {
        try {
            return work();
        } catch (const std::bad_alloc&) {
            failWithoutMemory();
        }
    }

private:
    [[noreturn]] void failWithoutMemory() const;

    const Control& control_;
    Phase phase_ = Phase::None;
    std::uint64_t total_ = 0;
};

/// Runs work(Operation&), a whole operation. What fails leaves it as an Error; what an observer throws, as it is.
template <class Work>
auto operate(Device& device, const Control& control, const Work& work) {
    Operation op(device, control);
    try {
        return op.guarded([&] { return work(op); });
    } catch (const Error& error) {
        op.failIfGone(error);
        throw;
    }
}

}  // namespace tavo
