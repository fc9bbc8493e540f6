#include "tavo/service/overview.h"

#include <initializer_list>

#include "platform/cyusbserial.h"
#include "service/flash/access.h"
#include "tavo/cyboot.h"

namespace tavo {
namespace {

bool canOpenScb0(const DeviceInfo& info) {
    return CyHandle(info.scb0DeviceNumber, info.scb0InterfaceNumber).openStatus == CY_SUCCESS;
}

/// A part that does not answer is a finding. A device that is gone is none, nor is one that may be left held: where
/// SCB0 cannot be opened, nothing was taken.
bool isFinding(const Error& error, const Device& device) {
    if (error.problem == Problem::Interrupted || error.state.isSomethingHeld()) return false;
    if (!isStillAttached(device.description().path)) return false;
    const bool unseen = error.state.resetLine == LineState::Unknown || error.state.scb0 == Scb0State::Unknown;
    return !unseen || !canOpenScb0(device.info());
}

/// Fills what work gives, or why it gave nothing.
template <typename T, typename Work>
bool ask(const Device& device, Told<T>& told, const Work& work) {
    try {
        told.value = work();
        return true;
    } catch (const Error& error) {
        if (!isFinding(error, device)) throw;
        told.why = error.status ? tavoStatusString(*error.status) : error.what();
        return false;
    }
}

/// Without either interface nothing is left to be told.
void requireAccess(Operation& op) {
    const DeviceInfo& info = op.device.info();
    op.throwIfCancelled();
    const CyHandle config(info.configDeviceNumber, info.configInterfaceNumber);
    if (config.openStatus == CY_SUCCESS) return;
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    if (scb0.openStatus == CY_SUCCESS) return;
    op.fail(statusError(cypressToTavo(scb0.openStatus), Side::Bridge, "open " + op.device.name()));
}

std::uint32_t readSiliconId(Operation& op) {
    UINT32 id = 0;
    op.call(Side::Bridge, "read the silicon ID", [&] {
        const CyHandle config(op.device.info().configDeviceNumber, op.device.info().configInterfaceNumber);
        if (config.openStatus != CY_SUCCESS) return cypressToTavo(config.openStatus);
        return cypressToTavo(CyGetSiliconID(config.handle, &id));
    });
    return id;
}

/// The first of these checks that failed; null when none did.
const Check* firstFailure(const Diagnosis& found, std::initializer_list<const char*> items) {
    for (const char* item : items) {
        const Check& check = found.check(item);
        if (check.verdict == Verdict::Fail) return &check;
    }
    return nullptr;
}

/// A Neuron that does not answer once is not asked again.
void askNeuron(Device& device, const Control& control, const Diagnosis& found, Overview& all) {
    const Check& channel = found.check("LDV name");
    const std::string& why = channel.verdict == Verdict::Ok ? found.check("Neuron answer").text : channel.text;
    all.status = {found.status, found.status ? "" : why};
    all.neuronId.why = all.programId.why = all.status.why;
    if (!found.status) return;
    if (ask(device, all.neuronId, [&] { return readNeuronId(device, control); })) {
        ask(device, all.programId, [&] { return readProgramId(device, control); });
    }
    if (!all.neuronId.value) all.programId.why = all.neuronId.why;
}

bool wantsFlash(FlashLook look, const Diagnosis& found) {
    const bool isSilent = found.check("Neuron answer").verdict == Verdict::Fail;
    return look == FlashLook::Always || (look == FlashLook::IfSilent && isSilent && !found.state.isSomethingHeld());
}

Part failed(const char* name, const Check& check, const std::string& state = "") {
    return {name, Verdict::Fail, state.empty() ? std::string(check.item) + ": " + check.text : state, check.hint};
}

Part usb(const Device& device, const Diagnosis& found) {
    const Check* failure = firstFailure(found, {"access", "kernel driver"});
    if (failure != nullptr) return failed("USB", *failure);
    return {"USB", Verdict::Ok, "open, " + device.description().path};
}

Part bridge(const Device& device, const Diagnosis& found) {
    const Check& check = found.check("configuration checksum");
    if (check.verdict == Verdict::Fail) return failed("bridge", check);
    const std::string& serial = device.description().serial;
    return {"bridge", check.verdict,
            (serial.empty() ? "no serial number" : "serial number " + serial) +
                (check.verdict == Verdict::Ok ? ", configuration right" : ", configuration not read")};
}

Part scb0(const Diagnosis& found) {
    const Check& check = found.check("SCB0");
    return {"SCB0", check.verdict, check.text, check.hint};
}

Part flash(const Overview& all, bool wasAsked, const Diagnosis& found) {
    const Check& run = found.check("interrupted run");
    if (all.interrupted) {
        const bool isErased = interruptedState(*all.interrupted) == FlashState::Erased;
        return failed("flash", run, isErased ? "erased, no image" : "incomplete image");
    }
    if (all.flash.value) return {"flash", Verdict::Ok, all.flash.value->text()};
    return {"flash", wasAsked ? Verdict::Fail : Verdict::Skipped, all.flash.why};
}

Part neuron(const Diagnosis& found) {
    constexpr const char* kName = "Neuron";
    if (const Check& reset = found.check("reset line"); reset.verdict == Verdict::Fail) {
        return failed(kName, reset, found.state.resetLine == LineState::Held ? "held in reset" : "");
    }
    if (const Check& service = found.check("service line"); service.verdict == Verdict::Fail) {
        return failed(kName, service, found.state.serviceLine == LineState::Held ? "its service line is held" : "");
    }
    if (const Check& channel = found.check("LDV name"); channel.verdict != Verdict::Ok) {
        return {kName, channel.verdict, "cannot be asked: " + channel.text, channel.hint};
    }
    const Check& answer = found.check("Neuron answer");
    if (answer.verdict == Verdict::Fail) return failed(kName, answer, "silent");
    if (!found.status) return {kName, Verdict::Skipped, answer.text};
    return {kName, Verdict::Ok, std::string("running, ") + nodeStateName(found.status->nodeState)};
}

}  // namespace

Overview overview(Device& device, const OverviewOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        Overview all;
        all.interrupted = interruptedRun(device.description());
        if (all.interrupted) op.state.flash = interruptedState(*all.interrupted);
        requireAccess(op);
        DoctorOptions looks;
        looks.restartNeuron = false;
        const Diagnosis found = doctor(device, looks, control);
        ask(device, all.siliconId, [&] { return readSiliconId(op); });
        askNeuron(device, control, found, all);
        const bool asksFlash = wantsFlash(options.flash, found);
        all.flash.why = "not looked at: the Neuron is restarted for it (tavo-util info --flash)";
        if (asksFlash) all.neuronRestarted = ask(device, all.flash, [&] { return readFlashChip(op); });
        all.parts = {usb(device, found), bridge(device, found), scb0(found), flash(all, asksFlash, found),
                     neuron(found)};
        all.state = asksFlash ? op.state : found.state;
        return all;
    });
}

}  // namespace tavo
