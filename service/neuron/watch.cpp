// Watching the counters of the status.
#include "tavo/service/watch.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include "service/neuron/requests.h"
#include "tavo/service/neuron.h"

namespace tavo {
namespace {

struct CounterRow {
    StatusCounter counter;
    unsigned char (NeuronState::*bytes)[2];  // most significant first
};
// What they count: ISO/IEC 14908-1, Query Status.
constexpr CounterRow kRows[] = {
    {{"transmit_errors", "transmit errors",
      "packets that arrived damaged: look for noise, a missing or second terminator, a cable that is too long"},
     &NeuronState::transmitErrors},
    {{"transaction_timeouts", "transaction timeouts",
      "no acknowledgement after all retries: a node that is off, or too much loss on the way to it"},
     &NeuronState::transactionTimeouts},
    {{"receive_transactions_full", "receive transactions full",
      "packets refused for lack of room for their transactions: too much traffic at once for this node"},
     &NeuronState::receiveTransactionsFull},
    {{"lost_messages", "lost messages",
      "messages dropped for lack of an application buffer: the host takes them too slowly"},
     &NeuronState::lostMessages},
    {{"missed_messages", "missed messages",
      "messages dropped for lack of a network buffer: more traffic than this node can take"},
     &NeuronState::missedMessages},
};
static_assert(std::size(kRows) == kStatusCounters);

constexpr std::uint32_t kRange = 0x10000;
constexpr std::uint32_t kMostAtOnce = kRange / 8;  // more does not come between two looks

using Clock = std::chrono::steady_clock;

bool isWrap(std::uint32_t before, std::uint32_t now) {
    return now < before && now + kRange - before < kMostAtOnce;
}

/// Resetting the Neuron and clearing the status set all of them back.
bool isSetBack(const NeuronState& before, const NeuronState& now) {
    const Counts from = countsOf(before);
    const Counts to = countsOf(now);
    const bool isOtherReset = before.resetCause != now.resetCause;
    for (std::size_t i = 0; i < kStatusCounters; ++i) {
        if (to[i] < from[i] && (isOtherReset || !isWrap(from[i], to[i]))) return true;
    }
    return false;
}

/// Without an answer only where waiting for one makes sense.
bool isSilence(const Error& error, const Operation& op, bool isFirst) {
    if (error.problem == Problem::Interrupted || !isStillAttached(op.device.description().path)) return false;
    return !isFirst || error.status == TAVO_TRANSACTION_FAILED;
}

void look(Operation& op, const Control& control, Clock::time_point start, StatusHistory& history) {
    const auto seconds = [start] {
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        return static_cast<double>(passed.count()) / 1000;
    };
    try {
        const NeuronState state = readStatus(op.device, control);
        history.add(seconds(), state);
    } catch (const Error& error) {
        if (!isSilence(error, op, history.looks.empty())) throw;
        history.add(seconds(), std::nullopt, error.status ? tavoStatusString(*error.status) : error.what());
    }
}

void watch(Operation& op, const WatchOptions& options, const Control& control, StatusHistory& history) {
    const Clock::time_point start = Clock::now();
    Clock::time_point next = start;
    while (true) {
        look(op, control, start, history);
        if (options.each) options.each(history);
        if (history.looks.size() == options.looks) return;
        next = std::max(next + std::chrono::milliseconds(options.intervalMs), Clock::now());
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now());
        op.sleep(left.count());
    }
}

}  // namespace

const StatusCounter& statusCounter(std::size_t index) {
    return kRows[index].counter;
}

Counts countsOf(const NeuronState& state) {
    Counts counts{};
    for (std::size_t i = 0; i < kStatusCounters; ++i) {
        const unsigned char(&bytes)[2] = state.*kRows[i].bytes;
        counts[i] = static_cast<std::uint32_t>(bytes[0] << 8 | bytes[1]);
    }
    return counts;
}

const StatusLook& StatusHistory::add(double seconds, const std::optional<NeuronState>& status, const std::string& why) {
    StatusLook look{seconds, status, why};
    if (const StatusLook* before = lastAnswered(); before != nullptr && status) {
        look.cleared = isSetBack(*before->status, *status);
        const Counts from = look.cleared ? Counts{} : countsOf(*before->status);
        const Counts to = countsOf(*status);
        for (std::size_t i = 0; i < kStatusCounters; ++i) {
            look.change[i] = (to[i] + kRange - from[i]) % kRange;
            total[i] += look.change[i];
        }
    }
    return looks.emplace_back(std::move(look));
}

const StatusLook* StatusHistory::lastAnswered() const {
    const auto found = std::find_if(looks.rbegin(), looks.rend(), [](const StatusLook& each) { return !!each.status; });
    return found == looks.rend() ? nullptr : &*found;
}

std::size_t StatusHistory::unanswered() const {
    return static_cast<std::size_t>(
        std::count_if(looks.begin(), looks.end(), [](const StatusLook& each) { return !each.status; }));
}

std::size_t StatusHistory::timesCleared() const {
    return static_cast<std::size_t>(
        std::count_if(looks.begin(), looks.end(), [](const StatusLook& each) { return each.cleared; }));
}

void watchStatus(Device& device, StatusHistory& history, const WatchOptions& options, const Control& control) {
    operate(device, control, [&](Operation& op) {
        history = {};
        history.started = std::chrono::system_clock::now();
        try {
            watch(op, options, control, history);
        } catch (const Error& error) {
            if (error.problem != Problem::Interrupted || history.looks.empty()) throw;
        }
        if (history.lastAnswered() != nullptr) return;
        onlyAsks(op);
        op.fail(
            statusError(TAVO_TRANSACTION_FAILED, Side::Neuron, "read the status of the Neuron on " + device.name()));
    });
}

}  // namespace tavo
