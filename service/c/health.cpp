// Looking for what is wrong with an interface, and putting it right.
#include <memory>

#include "service/c/boundary.h"
#include "tavo/service/recover.h"

struct tavo_report {
    std::vector<tavo_finding> findings;
};

namespace tavo::c {
namespace {

static_assert(static_cast<int>(Verdict::Skipped) == TAVO_VERDICT_SKIPPED);

void add(tavo_report& report, const Check& check) {
    tavo_finding finding{};
    finding.verdict = static_cast<std::uint32_t>(check.verdict);
    put(finding.item, check.item);
    put(finding.text, check.text);
    put(finding.hint, check.hint);
    report.findings.push_back(finding);
}

void add(tavo_report& report, const RecoverStep& step) {
    tavo_finding finding{};
    finding.verdict = static_cast<std::uint32_t>(step.verdict);
    put(finding.text, step.text);
    put(finding.hint, step.why);
    report.findings.push_back(finding);
}

tavo_health healthOf(const tavo_report& report, const DeviceState& state) {
    tavo_health told{};
    for (const auto& finding : report.findings) told.failed += finding.verdict == TAVO_VERDICT_FAIL;
    told.state = stateOf(state);
    return told;
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;
using tavo::Control;
using tavo::Device;

void tavo_free_report(tavo_report* report) {
    delete report;
}

uint32_t tavo_finding_count(const tavo_report* report) {
    return report == nullptr ? 0 : static_cast<uint32_t>(report->findings.size());
}

tavo_result tavo_report_finding(const tavo_report* report, uint32_t index, tavo_finding* finding, tavo_error* error) {
    return guarded(error,
                   [&] { Out(finding, "finding").fill(at(given(report, "report").findings, index, "finding")); });
}

tavo_result tavo_doctor(tavo_device* device, const tavo_doctor_options* options, const tavo_control* control,
                        tavo_health* health, tavo_report** report, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        tavo_report*& place = emptied(report, "report");
        const Out out(health, "health");
        tavo::DoctorOptions how;
        how.restartNeuron = taken(options, "options").keep_neuron_running == 0;
        auto found = std::make_unique<tavo_report>();
        const tavo::Diagnosis diagnosis = tavo::doctor(own, how, watch);
        for (const auto& check : diagnosis.checks) add(*found, check);
        out.fill(healthOf(*found, diagnosis.state));
        place = found.release();
    });
}

tavo_result tavo_recover(tavo_device* device, const tavo_control* control, tavo_health* health, tavo_report** report,
                         tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        tavo_report*& place = emptied(report, "report");
        const Out out(health, "health");
        place = new tavo_report;  // the caller's already: it tells what was done also when this fails
        tavo::RecoverOptions how;
        how.each = [&](const tavo::RecoverStep& step) { add(*place, step); };
        const tavo::Recovery recovery = tavo::recover(own, how, watch);
        out.fill(healthOf(*place, recovery.state));
    });
}
