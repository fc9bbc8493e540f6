// Watching and stopping operations.
#include "service/c/boundary.h"

namespace tavo::c {
namespace {

static_assert(static_cast<int>(Phase::Reset) == TAVO_PHASE_RESET &&
              static_cast<int>(Event::Kind::Step) == TAVO_EVENT_STEP);

/// What a display that looks from time to time has to know.
void note(tavo_monitor& monitor, const Event& event) {
    const std::lock_guard lock(monitor.mutex);
    tavo_progress& progress = monitor.progress;
    if (event.kind == Event::Kind::PhaseBegins || event.kind == Event::Kind::Progress) {
        progress.phase = static_cast<std::uint32_t>(event.phase);
        progress.done = event.done;
        progress.total = event.total;
    }
    if (event.kind != Event::Kind::Warning) return;
    ++progress.warnings;
    put(progress.warning, event.hint.empty() ? event.text : event.text + "; " + event.hint);
}

void tell(const tavo_control& control, const Event& event) {
    tavo_event told{};
    told.size = sizeof told;
    told.kind = static_cast<std::uint32_t>(event.kind);
    told.phase = static_cast<std::uint32_t>(event.phase);
    told.address = event.address;
    told.done = event.done;
    told.total = event.total;
    told.seconds = event.seconds;
    told.text = event.text.c_str();
    told.hint = event.hint.c_str();
    control.observer(&told, control.context);
}

}  // namespace

Control controlOf(const tavo_control* control) {
    const tavo_control known = taken(control, "control");
    Control result;
    if (known.monitor != nullptr) result.cancel = &known.monitor->token;
    if (known.monitor == nullptr && known.observer == nullptr) return result;
    result.observer = [known](const Event& event) {
        if (known.monitor != nullptr) note(*known.monitor, event);
        if (known.observer != nullptr) tell(known, event);
    };
    return result;
}

}  // namespace tavo::c

using namespace tavo::c;

const char* tavo_phase_name(uint32_t phase) {
    return phase <= TAVO_PHASE_RESET ? tavo::phaseName(static_cast<tavo::Phase>(phase)) : "";
}

tavo_result tavo_new_monitor(tavo_monitor** monitor, tavo_error* error) {
    return guarded(error, [&] {
        tavo_monitor*& place = emptied(monitor, "monitor");
        place = new tavo_monitor;
    });
}

void tavo_free_monitor(tavo_monitor* monitor) {
    delete monitor;
}

tavo_result tavo_cancel(tavo_monitor* monitor) {
    if (monitor == nullptr) return TAVO_PROBLEM_BAD_ARGUMENT;
    monitor->token.cancel();
    return TAVO_OK;
}

tavo_result tavo_reset_monitor(tavo_monitor* monitor) {
    return guarded(nullptr, [&] {
        tavo_monitor& known = given(monitor, "monitor");
        const std::lock_guard lock(known.mutex);
        known.token.reset();
        known.progress = {};
    });
}

tavo_result tavo_read_progress(const tavo_monitor* monitor, tavo_progress* progress, tavo_error* error) {
    return guarded(error, [&] {
        const tavo_monitor& known = given(monitor, "monitor");
        const Out out(progress, "progress");
        const std::lock_guard lock(known.mutex);
        tavo_progress told = known.progress;
        told.is_cancelled = known.token.isCancelled();
        out.fill(told);
    });
}
