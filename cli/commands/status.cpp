#include "cli/commands/commands.h"
#include "cli/commands/interruptedRun.h"
#include "cli/commands/neuronNames.h"
#include "cli/running/session.h"
#include "tavo/service/history.h"
#include "tavo/service/neuron.h"

namespace cli {
namespace {

struct Field {
    const char* key;  // in JSON; for people its underscores are spaces
    unsigned char NeuronState::*raw;
    const char* (*name)(std::uint8_t);  // null: a number
};
constexpr Field kFields[] = {{"node_state", &NeuronState::nodeState, tavo::nodeStateName},
                             {"reset_cause", &NeuronState::resetCause, tavo::resetCauseName},
                             {"error_log", &NeuronState::errorLog, tavo::errorLogName},
                             {"firmware_version", &NeuronState::versionNumber, nullptr},
                             {"model_number", &NeuronState::modelNumber, nullptr}};

struct Counter {
    const char* key;
    unsigned char (NeuronState::*bytes)[2];
};
constexpr Counter kCounters[] = {{"transmit_errors", &NeuronState::transmitErrors},
                                 {"transaction_timeouts", &NeuronState::transactionTimeouts},
                                 {"receive_transactions_full", &NeuronState::receiveTransactionsFull},
                                 {"lost_messages", &NeuronState::lostMessages},
                                 {"missed_messages", &NeuronState::missedMessages}};

void tell(Report& report, const char* key, const std::string& value) {
    constexpr std::size_t kColumn = 27;
    std::string label = key;
    for (char& c : label) c = c == '_' ? ' ' : c;
    label += ':';
    report.line(label + std::string(kColumn - label.size(), ' ') + value);
}

void status(Session& session) {
    Report& report = session.report;
    // Before the Neuron is asked: with half an image it does not answer.
    const auto run = tavo::interruptedRun(session.device().description());
    tellInterrupted(report, session.deviceName(), run);
    const NeuronState state = tavo::readStatus(session.device(), session.control());
    for (const Field& field : kFields) {
        const std::uint8_t raw = state.*field.raw;
        report.result[field.key] = field.name == nullptr ? Json(raw) : namedJson(field.name(raw), raw);
        tell(report, field.key, field.name == nullptr ? std::to_string(raw) : tavo::named(field.name(raw), raw));
    }
    for (const Counter& counter : kCounters) {
        const unsigned char(&bytes)[2] = state.*counter.bytes;
        const int count = bytes[0] << 8 | bytes[1];
        report.result["counters"][counter.key] = count;
        tell(report, counter.key, std::to_string(count));
    }
}

}  // namespace

Run declareStatus(Arguments&) {
    return status;
}

}  // namespace cli
