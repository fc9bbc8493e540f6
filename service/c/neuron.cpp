// The Neuron: identity, status, mode, reset, domain table.
#include "tavo/service/neuron.h"

#include "service/c/boundary.h"

namespace tavo::c {
namespace {

static_assert(static_cast<int>(Mode::Service) == TAVO_MODE_SERVICE &&
              static_cast<int>(ResetBy::Message) == TAVO_RESET_BY_MESSAGE &&
              std::tuple_size_v<ProgramId> == TAVO_PROGRAM_ID_SIZE);
static_assert(sizeof(tavo_domain) == sizeof(LonAddress) &&
                  offsetof(tavo_domain, authentication_key) == offsetof(LonAddress, authenticationKey),
              "an entry is copied byte for byte");

std::uint32_t countOf(const unsigned char (&counter)[2]) {
    return static_cast<std::uint32_t>(counter[0] << 8U | counter[1]);
}

tavo_neuron_status statusOf(const NeuronState& state) {
    tavo_neuron_status told{};
    told.node_state = state.nodeState;
    told.reset_cause = state.resetCause;
    told.error_log = state.errorLog;
    told.version_number = state.versionNumber;
    told.model_number = state.modelNumber;
    told.transmit_errors = countOf(state.transmitErrors);
    told.transaction_timeouts = countOf(state.transactionTimeouts);
    told.receive_transactions_full = countOf(state.receiveTransactionsFull);
    told.lost_messages = countOf(state.lostMessages);
    told.missed_messages = countOf(state.missedMessages);
    put(told.node_state_name, nodeStateName(state.nodeState));
    put(told.reset_cause_name, resetCauseName(state.resetCause));
    put(told.error_log_name, errorLogName(state.errorLog));
    return told;
}

std::int32_t nodeStateIn(const std::optional<NeuronState>& state) {
    return state ? state->nodeState : -1;
}

DomainTable tableOf(const tavo_domain* entries) {
    requireGiven(entries, "table");
    DomainTable table;
    std::memcpy(static_cast<void*>(table.data()), entries, sizeof table);  // trivially copyable
    return table;
}

}  // namespace
}  // namespace tavo::c

using namespace tavo::c;
using tavo::Control;
using tavo::Device;

tavo_result tavo_read_neuron_id(tavo_device* device, const tavo_control* control, uint8_t* id, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        requireGiven(id, "id");
        std::copy_n(tavo::readNeuronId(own, watch).bytes, NeuronId::kSize, id);
    });
}

tavo_result tavo_read_program_id(tavo_device* device, const tavo_control* control, uint8_t* id, tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        requireGiven(id, "id");
        const tavo::ProgramId found = tavo::readProgramId(own, watch);
        std::copy(found.begin(), found.end(), id);
    });
}

tavo_result tavo_read_status(tavo_device* device, const tavo_control* control, tavo_neuron_status* status,
                             tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(status, "status");
        out.fill(statusOf(tavo::readStatus(own, watch)));
    });
}

tavo_result tavo_set_mode(tavo_device* device, uint32_t mode, const tavo_control* control, tavo_mode_change* change,
                          tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const Out out(change, "change");
        const tavo::ModeChange done = tavo::setMode(own, valueOf(mode, tavo::Mode::Service, "mode"), watch);
        tavo_mode_change told{};
        told.before = nodeStateIn(done.before);
        told.after = nodeStateIn(done.after);
        out.fill(told);
    });
}

tavo_result tavo_reset_neuron(tavo_device* device, uint32_t by, const tavo_control* control, double* seconds,
                              tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const double took = tavo::reset(own, valueOf(by, tavo::ResetBy::Message, "way to reset"), watch);
        if (seconds != nullptr) *seconds = took;
    });
}

tavo_result tavo_press_service_pin(tavo_device* device, const tavo_control* control, tavo_error* error) {
    return onDevice(device, control, error,
                    [&](Device& own, const Control& watch) { tavo::pressServicePin(own, watch); });
}

tavo_result tavo_read_domain_table(tavo_device* device, const tavo_control* control, tavo_domain* table,
                                   tavo_error* error) {
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        requireGiven(table, "table");
        const tavo::DomainTable found = tavo::readDomainTable(own, watch);
        std::memcpy(table, found.data(), sizeof found);
    });
}

tavo_result tavo_write_domain_table(tavo_device* device, const tavo_domain* before, const tavo_domain* wanted,
                                    const tavo_domain_options* options, const tavo_control* control, uint32_t* changed,
                                    tavo_error* error) {
    if (changed != nullptr) *changed = 0;
    return onDevice(device, control, error, [&](Device& own, const Control& watch) {
        const tavo_domain_options known = taken(options, "options");
        const tavo::DomainTable now = tableOf(wanted);
        const tavo::DomainTable old = before == nullptr ? tavo::readDomainTable(own, watch) : tableOf(before);
        std::vector<unsigned> entries;
        tavo::DomainWriteOptions how;
        how.changed = &entries;
        how.noBackup = known.no_backup != 0;
        how.keepKeys = known.keep_keys != 0;
        try {
            tavo::writeDomainTable(own, old, now, how, watch);
        } catch (...) {
            if (changed != nullptr) *changed = bitsOf(entries);
            throw;
        }
        if (changed != nullptr) *changed = bitsOf(entries);
    });
}
