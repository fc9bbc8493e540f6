// The simulated Neuron: what it keeps, how it answers on LDV, and its reset and service lines.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/clock.h"
#include "sim/export.h"

namespace sim {

using Bytes = std::vector<std::uint8_t>;
using Properties = std::map<std::string, std::string>;  // the "key=value" lines of the folder's text file

/// What the Neuron keeps, each block as it travels in a message.
struct TAVO_SIM_API NeuronData {
    NeuronData();

    static constexpr std::size_t kNeuronId = 0, kModel = 6, kProgramId = 13;  // in readOnly
    std::array<std::uint8_t, 41> readOnly{};                                  // read-only data structure

    static constexpr std::size_t kResetCause = 10, kNodeState = 11, kVersion = 12, kErrorLog = 13;  // in status
    std::array<std::uint8_t, 15> status{};  // five counters of two bytes, then the four above, model number

    std::array<std::uint8_t, 10> growth{};  // what each look at the status adds to the five counters

    std::array<std::array<std::uint8_t, 15>, 2> domains{};
};

/// How it answers; normal by default.
struct NeuronBehaviour {
    enum class Answers {
        Normal,
        Negative,  // the failure code of the request, which is not carried out
        Wrong,     // the right code, one byte short
        Stranger,  // the answer to a request that somebody else made
        Silent,    // carried out like the two before, but the answer is lost
    };
    Answers answers = Answers::Normal;
    std::uint32_t delayMs = 0;      // more before each answer and each reset notice
    std::uint32_t unsolicited = 0;  // messages of other nodes that arrive just before each answer
};

class TAVO_SIM_API Neuron {
public:
    /// @param flash  what it boots from; borrowed
    Neuron(Clock& clock, std::span<const std::uint8_t> flash) : clock_(clock), flash_(flash) {}

    /// Its state as key=value pairs, all keys starting with "neuron.": id, program-id, counters and
    /// growth (ten bytes), reset-cause, state, version, error-log, model, domain0, domain1 in hexadecimal;
    /// answer (normal, negative, wrong, stranger, silent); boots-from (factory, flash); delay-ms and unsolicited in
    /// decimal. Unknown keys are ignored, missing ones keep their value. load throws std::invalid_argument for a value
    /// that cannot be, naming the key.
    void load(const Properties& properties);
    void save(Properties& properties) const;

    /// The reset line (pin 8): held while low. Stops everything; release boots the Neuron, which
    /// announces itself when it runs.
    void setReset(bool held);
    bool isHeld() const { return held_; }
    /// A new board's Neuron runs a factory program from its own memory, until its flash is written to or
    /// found to hold an image: from then on it boots from there, and with a blank first page it stays silent.
    void forgetFactoryProgram() { hasFactoryProgram_ = false; }
    bool hasFactoryProgram() const { return hasFactoryProgram_; }
    /// The flash may be another one now: runs if it can boot from it, without a notice.
    void lookAtFlash() { isStarted_ = canBoot(); }
    /// The service line (pin 14). A press sends the service-pin message; one of 10 s or more, also
    /// in reset, leaves the node unconfigured.
    void setService(bool pressed);

    /// The network-interface side. Messages to a Neuron that does not run are lost.
    void write(const Bytes& message);
    /// The next message that has arrived by now, if any.
    std::optional<Bytes> read();
    /// Forgets the messages nobody has read, as an interface does that nobody has open.
    void discardMessages() { outgoing_.clear(); }

    NeuronData data;
    NeuronBehaviour behaviour;

private:
    bool isRunning() const { return isStarted_ && !held_ && clock_.now() >= runningFrom_; }
    bool canBoot();
    void boot(std::uint8_t resetCause);
    void sendServicePinMessage();
    Bytes answerTo(const Bytes& request);
    Bytes distort(Bytes answer) const;
    /// Arrives that much later, in microseconds; at once on a board without delays.
    std::uint64_t after(std::uint64_t microseconds) const;
    void post(Bytes message, std::uint64_t when) { outgoing_.emplace(when, std::move(message)); }

    Clock& clock_;
    std::span<const std::uint8_t> flash_;
    bool hasFactoryProgram_ = true;
    bool isStarted_ = true;
    bool held_ = false;
    bool pressed_ = false;
    std::uint64_t pressedAt_ = 0;
    std::uint64_t runningFrom_ = 0;
    std::multimap<std::uint64_t, Bytes> outgoing_;  // by time of arrival
};

}  // namespace sim
