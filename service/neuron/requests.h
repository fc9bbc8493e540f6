// Requests to the Neuron as steps of a larger operation, and what is known of the Neuron around them.
#pragma once

#include "service/neuron/channel.h"
#include "service/operation.h"
#include "tavo/service/neuron.h"

namespace tavo {

/// Before a request that only asks: whatever becomes of it, nothing has changed.
void onlyAsks(Operation& op);
/// Before a request that changes: from the moment it is sent the outcome is open.
void mayChange(Operation& op, const char* text);
/// When the channel did not open: nothing was sent, unless an earlier request was.
TAVO_STATUS notOpened(Operation& op, TAVO_STATUS status);

/// Opens the channel and asks once. mayChangeText: null for a request that only asks.
template <std::size_t N, std::size_t T>
TAVO_STATUS ask(Operation& op, const frames::Frame<N>& request, const std::array<LdvManager::C, T>& tests,
                frames::Answer& answer, const char* mayChangeText = nullptr,
                unsigned timeoutMs = frames::kAnswerTimeoutMs) {
    if (!op.device.info().areVidPidCorrect()) return TAVO_WRONG_VID_PID;
    Channel channel(op);
    if (channel.status() != TAVO_SUCCESS) return notOpened(op, channel.status());
    mayChangeText == nullptr ? onlyAsks(op) : mayChange(op, mayChangeText);
    return channel.exchange(request, tests, answer, timeoutMs) ? TAVO_SUCCESS : TAVO_TRANSACTION_FAILED;
}

/// Reads the status; tells the caller what went wrong by the status it returns.
TAVO_STATUS askStatus(Operation& op, NeuronState& state);
/// The Neuron's own ID. Throws Error.
NeuronId askNeuronId(Operation& op);

}  // namespace tavo
