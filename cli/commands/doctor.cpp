#include <Poco/Thread.h>

#include "cli/commands/commands.h"
#include "cli/flashAccess.h"
#include "cli/session.h"
#include "platform/cyusbserial.h"
#include "platform/ldv.h"
#include "tavo/LdvManager.h"
#include "tavo/neuron.h"
#include "tavo/service/configuration.h"

namespace cli {
namespace {

constexpr long kNeuronBoots = 1500;  // ms after the look at the flash has restarted it

struct Finding {
    enum class Kind { Ok, Fail, Skipped } kind;
    std::string text;  // what was found
    std::string hint;
};
using Kind = Finding::Kind;

struct Examination {
    Session& session;
    bool reachable = true;  // the bridge's interfaces can be opened
    bool scb0IsSpi = false;
    bool neuronRestarted = false;
    bool channelOpens = false;
};

Finding skipped(const char* why) {
    return {Kind::Skipped, why, ""};
}

Finding access(Examination& exam) {
    const TAVO_STATUS status = exam.session.device().description().access;
    exam.reachable = status == TAVO_SUCCESS;
    if (exam.reachable) return {Kind::Ok, "", ""};
    return {Kind::Fail, tavoStatusString(status), libraryFailure(status, Side::Bridge, "").hint};
}

Finding kernelDriver(Examination& exam) {
    if (!exam.reachable) return skipped("no access");
    const DeviceInfo& device = exam.session.info();
    const CyHandle scb0(device.scb0DeviceNumber, device.scb0InterfaceNumber);
    const CyHandle config(device.configDeviceNumber, device.configInterfaceNumber);
    const CY_RETURN_STATUS status = scb0.openStatus != CY_SUCCESS ? scb0.openStatus : config.openStatus;
    exam.reachable = status == CY_SUCCESS;
    if (exam.reachable) return {Kind::Ok, "none bound", ""};
    return {Kind::Fail, tavoStatusString(cypressToTavo(status)),
            "a kernel driver or another program holds the interface: install the udev rule (packaging/), replug"};
}

Finding scb0(Examination& exam) {
    if (!exam.reachable) return skipped("no access");
    const DeviceInfo& device = exam.session.info();
    const CyHandle handle(device.scb0DeviceNumber, device.scb0InterfaceNumber);
    CY_SPI_CONFIG config{};
    exam.scb0IsSpi = handle.openStatus == CY_SUCCESS && CyGetSpiConfig(handle.handle, &config) == CY_SUCCESS;
    if (!exam.scb0IsSpi)
        return {Kind::Fail, "no SPI block", "the flash is out of reach: tavo-util scb0 spi, then replug"};
    return {Kind::Ok,
            std::string("SPI ") + (config.isMaster ? "master, " : "slave, ") + std::to_string(config.frequency) + " Hz",
            ""};
}

Finding checksum(Examination& exam) {
    if (!exam.reachable) return skipped("no access");
    try {
        Session& session = exam.session;
        const std::string bad = tavo::fieldsOf(tavo::readConfiguration(session.device(), session.control())).whyBad;
        if (bad.empty()) return {Kind::Ok, "right", ""};
        return {Kind::Fail, bad, "do not unplug the interface; write a good block first: tavo-util config write"};
    } catch (const tavo::Error& error) {
        if (error.problem == tavo::Problem::Interrupted) throw;
        return {Kind::Fail, error.what(), error.hint};
    }
}

Finding flashId(Examination& exam) {
    if (!exam.reachable || !exam.scb0IsSpi) return skipped("SCB0 is no SPI block that can be reached");
    if (exam.session.options.dryRun) return skipped("it restarts the Neuron (--dry-run)");
    try {
        exam.neuronRestarted = true;
        return {Kind::Ok, chipText(inspectFlash(exam.session)), ""};
    } catch (const Failure& failure) {
        return {Kind::Fail, failure.text, failure.hint};
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
    {LDV_ACCESS_DENIED, "no permission", "install the udev rule (packaging/) and replug; sudo is not needed"},
    {LdvManager::kNoDeviceName, "no name can be made", "set a serial number: tavo-util config set-serial"},
};

Finding channel(Examination& exam) {
    const LdvManager ldv(exam.session.info());
    exam.channelOpens = ldv.isOpen;
    if (ldv.isOpen) return {Kind::Ok, "", ""};
    for (const auto& row : kChannels) {
        if (row.status == ldv.ldvStatus) return {Kind::Fail, row.text, row.hint};
    }
    return {Kind::Fail, "LDV status " + std::to_string(ldv.ldvStatus),
            "restart the LDV driver, or replug the interface"};
}

Finding neuron(Examination& exam) {
    if (!exam.channelOpens) return skipped("no LDV channel");
    if (exam.neuronRestarted) Poco::Thread::sleep(kNeuronBoots);
    NeuronState state{};
    const TAVO_STATUS status =
        exam.session.tryCall("read the Neuron's status", [&] { return readState(exam.session.info(), state); });
    if (status == TAVO_SUCCESS) return {Kind::Ok, "", ""};
    return {Kind::Fail, tavoStatusString(status), "let it out of reset: tavo-util recover; then tavo-util reset"};
}

struct Check {
    const char* item;
    Finding (*look)(Examination&);
};
constexpr Check kChecks[] = {{"access", access},       {"kernel driver", kernelDriver},
                             {"SCB0", scb0},           {"configuration checksum", checksum},
                             {"flash ID", flashId},    {"LDV name", channel},
                             {"Neuron answer", neuron}};

std::string rowText(const char* item, const Finding& finding) {
    const char* mark = finding.kind == Kind::Ok ? "ok    " : finding.kind == Kind::Fail ? "FAIL  " : "-     ";
    std::string text = mark + std::string(item);
    if (!finding.text.empty()) text += ": " + finding.text;
    if (!finding.hint.empty()) text += " - " + finding.hint;
    return text;
}

void doctor(Session& session) {
    Examination exam{session};
    Json& checks = session.report.result["checks"] = Json::array();
    unsigned failed = 0;
    for (const Check& check : kChecks) {
        throwIfInterrupted();
        const Finding finding = check.look(exam);
        if (finding.kind == Kind::Fail) ++failed;
        checks.push_back({{"item", check.item},
                          {"ok", finding.kind == Kind::Skipped ? Json(nullptr) : Json(finding.kind == Kind::Ok)},
                          {"text", finding.text},
                          {"hint", finding.hint.empty() ? Json(nullptr) : Json(finding.hint)}});
        session.report.line(rowText(check.item, finding));
    }
    if (failed > 0)
        throw Failure{Exit::FailedUnchanged, countText(failed, "check") + " failed", "see the hints above", {}};
}

}  // namespace

Run declareDoctor(Arguments&) {
    return doctor;
}

}  // namespace cli
