// The LDV channel of one operation: the library's channel with an end that the caller chooses.
#pragma once

#include <array>

#include "neuron/frames.h"
#include "service/operation.h"
#include "tavo/LdvManager.h"

namespace tavo {

/// Opens the channel; one that does not open shows in status(). Requests, answers and times are those of the
/// library. Beside that a wait ends when the operation is cancelled, and when other nodes' messages go on for
/// minutes without the answer.
class Channel {
public:
    explicit Channel(Operation& op) : op_(op), ldv_(op.device.info()) {}

    /// TAVO_SUCCESS when it is open, otherwise the code that every operation of the library gives.
    TAVO_STATUS status() const { return ldv_.isOpen ? TAVO_SUCCESS : TAVO_DEVICE_OPEN_FAILED; }

    /// One request and its answer. @return false when no accepted answer came. Throws when cancelled.
    template <std::size_t N, std::size_t T>
    bool exchange(const frames::Frame<N>& request, const std::array<LdvManager::C, T>& tests, frames::Answer& answer,
                  unsigned timeoutMs = frames::kAnswerTimeoutMs) {
        return transaction(request.data(), N, answer, timeoutMs, tests.data(), T);
    }

private:
    bool transaction(const unsigned char* request, unsigned short length, frames::Answer& answer, unsigned timeoutMs,
                     const LdvManager::C* tests, std::size_t count);

    Operation& op_;
    LdvManager ldv_;
};

}  // namespace tavo
