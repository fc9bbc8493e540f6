#include "service/operation.h"

#include <Poco/Thread.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace tavo {
namespace {

constexpr long kSlice = 100;  // ms between two looks at the token

constexpr const char* kPhases[] = {"",      "wait",    "check",  "backup", "dump",         "read",
                                   "erase", "program", "verify", "boot",   "service mode", "reset"};
static_assert(std::size(kPhases) == static_cast<std::size_t>(Phase::Reset) + 1);

/// What to do after an interruption, by what the flash holds.
const char* nextAfter(const DeviceState& state) {
    if (state.isSomethingHeld()) return "let the Neuron run again: tavo-util recover";
    if (state.isFlashLost()) return "program an image before the interface is used";
    if (state.flash == FlashState::Programmed) return "the image is in place; nothing is left to do";
    return "repeat the command at any time";
}

constexpr const char* kGone = "the interface is no longer attached";

/// A failure of the device may be one of its cable.
bool mayBeGone(const Error& error) {
    const bool isTold = std::string(error.what()).find(kGone) != std::string::npos;
    return !isTold && (error.problem == Problem::DeviceFailed || error.problem == Problem::NoAnswer ||
                       error.problem == Problem::NoDevice || error.problem == Problem::Busy);
}

Error andGone(const Error& error) {
    const auto isHintOf = [&](Side side) {
        return error.status && error.hint == statusError(*error.status, side, "").hint;
    };
    const bool general = error.hint.empty() || isHintOf(Side::Bridge) || isHintOf(Side::Neuron);
    Error now(Problem::NoDevice, std::string(error.what()) + ": " + kGone,
              "plug it in again, then " + (general ? "repeat the command" : error.hint));
    now.status = error.status;
    now.details = error.details;
    now.state = error.state;
    // Without power nothing is held, and an interface starts afresh when it is plugged in.
    now.state.resetLine = now.state.serviceLine = LineState::NotLooked;
    now.state.scb0 = Scb0State::NotLooked;
    return now;
}

}  // namespace

const char* phaseName(Phase phase) {
    return kPhases[static_cast<std::size_t>(phase)];
}

void Operation::tell(const Event& event) const {
    if (control_.observer) control_.observer(event);
}

void Operation::step(const std::string& text) const {
    tell({.kind = Event::Kind::Step, .phase = phase_, .text = text});
}

void Operation::note(const std::string& text) const noexcept {
    try {
        step(text);
    } catch (...) {
    }
}

void Operation::warn(const std::string& text, const std::string& hint) const {
    tell({.kind = Event::Kind::Warning, .phase = phase_, .text = text, .hint = hint});
}

void Operation::begin(Phase phase, const std::string& usual, std::uint64_t totalBytes, double seconds) {
    end();
    phase_ = phase;
    total_ = totalBytes;
    tell({.kind = Event::Kind::PhaseBegins, .phase = phase, .total = totalBytes, .seconds = seconds, .text = usual});
}

void Operation::advance(std::uint64_t doneBytes) const {
    tell({.kind = Event::Kind::Progress, .phase = phase_, .done = std::min(doneBytes, total_), .total = total_});
}

void Operation::end(const std::string& remark) {
    const Phase ended = std::exchange(phase_, Phase::None);
    if (ended != Phase::None) tell({.kind = Event::Kind::PhaseEnds, .phase = ended, .text = remark});
}

void Operation::stopNote(const std::string& text) const {
    tell({.kind = Event::Kind::StopNote, .phase = phase_, .text = text});
}

void Operation::throwIfCancelled() const {
    if (!isCancelled()) return;
    const char* text =
        state.isSomethingHeld() ? "interrupted; not everything is released" : "interrupted; everything is released";
    fail(Error(Problem::Interrupted, text, nextAfter(state)));
}

void Operation::sleep(long milliseconds) const {
    while (milliseconds > 0) {
        const long now = std::min(milliseconds, kSlice);
        Poco::Thread::sleep(now);
        milliseconds -= now;
        throwIfCancelled();
    }
}

void Operation::call(Side side, const std::string& doing, const std::function<TAVO_STATUS()>& work) {
    const TAVO_STATUS status = tryCall(doing, work);
    if (status != TAVO_SUCCESS) fail(statusError(status, side, doing + " on " + device.name()));
}

TAVO_STATUS Operation::tryCall(const std::string& doing, const std::function<TAVO_STATUS()>& work) {
    throwIfCancelled();
    step("call: " + doing);
    const TAVO_STATUS status = work();
    step(std::string("result: ") + statusName(status));
    return status;
}

void Operation::fail(Error error) const {
    error.state = state;
    throw error;
}

void Operation::failIfGone(const Error& error) const {
    if (!mayBeGone(error) || isStillAttached(device.description().path)) return;
    throw andGone(error);
}

void Operation::failWithoutMemory() const {
    const bool isLeft = state.isSomethingHeld() || state.isFlashLost();
    fail(Error(Problem::Internal, "out of memory",
               std::string("close other programs: memory is short; then ") +
                   (isLeft ? nextAfter(state) : "repeat the command")));
}

}  // namespace tavo
