#include "tavo/service/doctor.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

#include "bridge/configBlock.h"
#include "platform/ldv.h"
#include "platform/portPath.h"
#include "service/device/health.h"
#include "service/flash/access.h"
#include "service/neuron/lines.h"
#include "tavo/LdvManager.h"
#include "tavo/service/configuration.h"
#include "tavo/service/history.h"
#include "tavo/service/neuron.h"

namespace tavo {
namespace {

constexpr const char* kRecover = "a run was killed: tavo-util recover";
constexpr const char* kNoAccess = "no access";

struct Examination {
    Device& device;
    const DoctorOptions& options;
    const Control& control;
    Operation& op;
    std::optional<InterruptedRun> interrupted = interruptedRun(device.description());
    bool denied = false;    // not even the description of the device could be read
    bool reachable = true;  // the bridge's interfaces can be opened
    std::optional<CY_SPI_CONFIG> spi = std::nullopt;
    bool isSpiLeftMaster = false;
    bool neuronRestarted = false;
    bool channelOpens = false;
    std::optional<NeuronState> status = std::nullopt;

    /// Until it is recovered, the Neuron cannot run.
    bool isHeld() const { return op.state.resetLine == LineState::Held || op.state.serviceLine == LineState::Held; }
};

Check ok(const std::string& text = "") {
    return {"", Verdict::Ok, text, ""};
}

Check fail(const std::string& text, const std::string& hint) {
    return {"", Verdict::Fail, text, hint};
}

Check skipped(const std::string& why) {
    return {"", Verdict::Skipped, why, ""};
}

/// A failed step is a finding; being stopped is not.
Check found(const Error& error) {
    if (error.problem == Problem::Interrupted) throw error;
    return fail(error.what(), error.hint);
}

Check access(Examination& exam) {
    const TAVO_STATUS status = exam.device.description().access;
    exam.denied = status != TAVO_SUCCESS;
    exam.reachable = !exam.denied;
    if (!exam.denied) return ok();
    return fail(tavoStatusString(status), statusError(status, Side::Bridge, "").hint);
}

/// "cdc_acm on interface 0"; empty when none is bound. One that would be detached by opening is found too.
std::string boundDrivers(const DeviceInfo& info) {
    std::string bound;
    for (const unsigned char interface : {info.scb0InterfaceNumber, info.configInterfaceNumber}) {
        char name[64] = {};
        if (CyGetKernelDriver(info.scb0DeviceNumber, interface, name, sizeof name) != CY_SUCCESS) continue;
        if (name[0] == '\0') continue;
        bound += (bound.empty() ? "" : ", ") + std::string(name) + " on interface " + std::to_string(interface);
    }
    return bound;
}

Check kernelDriver(Examination& exam) {
    if (!exam.reachable) return skipped(kNoAccess);
    const DeviceInfo& info = exam.device.info();
    const std::string bound = boundDrivers(info);  // before the interfaces are opened
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    const CyHandle config(info.configDeviceNumber, info.configInterfaceNumber);
    const CY_RETURN_STATUS status = scb0.openStatus != CY_SUCCESS ? scb0.openStatus : config.openStatus;
    exam.reachable = status == CY_SUCCESS;
    if (exam.reachable && bound.empty()) return ok("none bound");
    if (!bound.empty())
        return fail(bound, "it takes the interface from other programs: install the udev rule (packaging/), replug");
    if (!isStillAttached(exam.device.description().path)) {
        exam.denied = true;
        return fail("the interface is no longer attached", "plug it in again: tavo-util list");
    }
    return fail(tavoStatusString(cypressToTavo(status)),
                "a kernel driver or another program holds the interface: install the udev rule (packaging/), replug");
}

/// Before anything is touched.
void lookFirst(Examination& exam) {
    const DeviceInfo& info = exam.device.info();
    const CyHandle scb0(info.scb0DeviceNumber, info.scb0InterfaceNumber);
    CY_SPI_CONFIG config{};
    if (scb0.openStatus == CY_SUCCESS && CyGetSpiConfig(scb0.handle, &config) == CY_SUCCESS) exam.spi = config;
    lookAtLines(exam.op);
}

Check master(Examination& exam, const std::string& text) {
    bool asTheBlockHasIt = false;
    bool isKnown = false;
    try {
        asTheBlockHasIt = isAsTheBlockHasIt(*exam.spi, readConfiguration(exam.device, exam.control));
        isKnown = true;
    } catch (const Error& error) {
        if (error.problem == Problem::Interrupted) throw;  // otherwise the check of the block tells it
    }
    if (asTheBlockHasIt) {
        exam.op.state.scb0 = Scb0State::GivenBack;
        return ok(text + ", as its configuration block makes it at power-up");
    }
    if (!isFlashMaster(*exam.spi)) return ok(text + ", made so by another program");
    if (!isKnown && exam.spi->frequency != kUsualClockHz)
        return ok(text + ", made so by its configuration block or by a run that was killed");
    exam.isSpiLeftMaster = true;
    return fail(text + ", as flash operations make it while they run", kRecover);
}

Check scb0(Examination& exam) {
    if (!exam.reachable) return skipped(kNoAccess);
    lookFirst(exam);
    if (!exam.spi) return fail("no SPI block", "the flash is out of reach: tavo-util scb0 spi, then replug");
    const std::string clock = std::to_string(exam.spi->frequency) + " Hz";
    return exam.spi->isMaster ? master(exam, "SPI master, " + clock) : ok("SPI slave, " + clock);
}

Check line(LineState state, const char* heldText) {
    if (state == LineState::Released) return ok("high");
    if (state == LineState::NotLooked) return skipped("this bridge has no such pin");
    if (state == LineState::Held) return fail(heldText, kRecover);
    return fail("cannot be read", "unplug the interface and plug it in again");
}

Check resetLine(Examination& exam) {
    if (!exam.reachable) return skipped(kNoAccess);
    return line(exam.op.state.resetLine, "held low (pin 8): the Neuron does not run");
}

Check serviceLine(Examination& exam) {
    if (!exam.reachable) return skipped(kNoAccess);
    return line(exam.op.state.serviceLine, "held low (pin 14)");
}

Check interrupted(Examination& exam) {
    if (!exam.interrupted) return ok("none");
    exam.op.state.flash = interruptedState(*exam.interrupted);
    return fail(interruptedText(*exam.interrupted), interruptedHint(*exam.interrupted));
}

Check checksum(Examination& exam) {
    if (!exam.reachable) return skipped(kNoAccess);
    try {
        const std::string bad = fieldsOf(readConfiguration(exam.device, exam.control)).whyBad;
        if (bad.empty()) return ok("right");
        return fail(bad, "do not unplug the interface; write a good block first: tavo-util config write");
    } catch (const Error& error) {
        return found(error);
    }
}

Check flashId(Examination& exam) {
    if (!exam.reachable || !exam.spi) return skipped("SCB0 is no SPI block that can be reached");
    if (exam.isHeld() || exam.isSpiLeftMaster) return skipped("the look would let go what is held");
    if (!exam.options.restartNeuron) return skipped("the look would restart the Neuron");
    try {
        exam.neuronRestarted = true;
        return ok(readFlashChip(exam.op).text());
    } catch (const Error& error) {
        return found(error);
    }
}

struct ChannelRow {
    unsigned short status;
    const char* text;
    const char* hint;
};
constexpr ChannelRow kChannels[] = {
    {LDV_NOT_FOUND, "no such LDV device", "is the LDV driver running? Its name follows the serial number in effect"},
    {LDV_ALREADY_OPEN, "in use by another process", "close the program that holds the LDV device"},
    {LDV_ACCESS_DENIED, "no permission",
     "see who may use the LDV driver's devices: /run/tavo/ldv, or the folder in TAVO_LDV_DIR"},
    {LdvManager::kNoDeviceName, "no name can be made", "set a serial number: tavo-util config set-serial"},
};

Check channel(Examination& exam) {
    if (exam.denied) return skipped("the name follows what cannot be read without access");
    const LdvManager ldv(exam.device.info());
    exam.channelOpens = ldv.isOpen;
    if (ldv.isOpen) return ok();
    for (const auto& row : kChannels) {
        if (row.status == ldv.ldvStatus) return fail(row.text, row.hint);
    }
    return fail("LDV status " + std::to_string(ldv.ldvStatus), "restart the LDV driver, or replug the interface");
}

/// A Neuron that was plugged in a moment ago does not answer yet, and takes no notice of what it is asked: it is asked
/// once more when it must have started.
NeuronState statusOf(Examination& exam) {
    try {
        return readStatus(exam.device, exam.control);
    } catch (const Error& error) {
        if (error.status != TAVO_TRANSACTION_FAILED || exam.neuronRestarted || exam.interrupted) throw;
    }
    exam.op.step("no answer; the Neuron may be starting still, and is asked again");
    exam.op.sleep(kBootMs);
    return readStatus(exam.device, exam.control);
}

Check neuron(Examination& exam) {
    if (!exam.channelOpens) return skipped("no LDV channel");
    if (exam.isHeld()) return skipped("the Neuron is held");
    if (exam.neuronRestarted) exam.op.sleep(kBootMs);
    try {
        exam.status = statusOf(exam);
        return ok();
    } catch (const Error& error) {
        if (error.problem == Problem::Interrupted) throw;
        const std::string why = error.status ? tavoStatusString(*error.status) : error.what();
        return fail(why, exam.interrupted
                             ? interruptedHint(*exam.interrupted)
                             : "is there an image in the flash? tavo-util blank-check; else tavo-util reset");
    }
}

struct Look {
    const char* item;
    Check (*at)(Examination&);
};
constexpr Look kLooks[] = {{"access", access},
                           {"kernel driver", kernelDriver},
                           {"SCB0", scb0},
                           {"reset line", resetLine},
                           {"service line", serviceLine},
                           {"interrupted run", interrupted},
                           {"configuration checksum", checksum},
                           {"flash ID", flashId},
                           {"LDV name", channel},
                           {"Neuron answer", neuron}};

}  // namespace

unsigned Diagnosis::failed() const {
    return static_cast<unsigned>(
        std::count_if(checks.begin(), checks.end(), [](const Check& check) { return check.verdict == Verdict::Fail; }));
}

const Check& Diagnosis::check(const std::string& item) const {
    const auto found = std::find_if(checks.begin(), checks.end(), [&](const Check& each) { return item == each.item; });
    if (found == checks.end()) throw std::out_of_range("no check is called " + item);
    return *found;
}

Diagnosis doctor(Device& device, const DoctorOptions& options, const Control& control) {
    return operate(device, control, [&](Operation& op) {
        Examination exam{device, options, control, op};
        Diagnosis diagnosis;
        for (const Look& look : kLooks) {
            op.throwIfCancelled();
            Check check = look.at(exam);
            check.item = look.item;
            if (options.each) options.each(check);
            diagnosis.checks.push_back(std::move(check));
        }
        diagnosis.status = exam.status;
        diagnosis.state = op.state;
        return diagnosis;
    });
}

}  // namespace tavo
