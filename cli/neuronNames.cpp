#include "cli/neuronNames.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace cli {
namespace {

constexpr const char* kUnknown = "unknown";

struct Name {
    std::uint8_t code;
    const char* name;
};

constexpr Name kNodeStates[] = {{0x02, "unconfigured"}, {0x03, "applicationless"}, {0x04, "configured"},
                                {0x06, "hard offline"}, {0x0C, "soft offline"},    {0x8C, "bypass offline"}};

// The lowest bit that is set tells the cause; the bits above it may hold anything.
struct Cause {
    std::uint8_t mask;
    std::uint8_t value;
    const char* name;
};
constexpr Cause kResetCauses[] = {{0xFF, 0x00, "cleared"},
                                  {0x01, 0x01, "power-up"},
                                  {0x03, 0x02, "external"},
                                  {0x0F, 0x0C, "watchdog"},
                                  {0x1F, 0x14, "software"}};

// System errors of the Neuron firmware, from 129 on.
constexpr std::uint8_t kFirstSystemError = 129;
constexpr const char* kSystemErrors[] = {
    "bad event",
    "network variable length mismatch",
    "network variable message too short",
    "EEPROM write failed",
    "bad address type",
    "preemption mode time-out",
    "already preempted",
    "synchronous network variable update lost",
    "invalid response allocation",
    "invalid domain",
    "read past the end of a message",
    "write past the end of a message",
    "invalid address table index",
    "incomplete message",
    "update of an output network variable",
    "no message available",
    "illegal send",
    "unknown PDU",
    "invalid network variable index",
    "division by zero",
    "invalid application error",
    "memory allocation failed",
    "write past the end of a network buffer",
    "application checksum error",
    "configuration checksum error",
    "invalid transceiver register address",
    "transceiver register time-out",
    "write past the end of an application buffer",
    "I/O ready",
    "self-test failed",
    "subnet router",
    "authentication mismatch",
    "self-installation semaphore set",
    "read-write semaphore set",
    "application signature bad",
    "router firmware version mismatch",
};

}  // namespace

const char* nodeStateName(std::uint8_t state) {
    const auto* found = std::find_if(std::begin(kNodeStates), std::end(kNodeStates),
                                     [state](const Name& n) { return n.code == state; });
    return found == std::end(kNodeStates) ? kUnknown : found->name;
}

const char* resetCauseName(std::uint8_t cause) {
    const auto* found = std::find_if(std::begin(kResetCauses), std::end(kResetCauses),
                                     [cause](const Cause& c) { return (cause & c.mask) == c.value; });
    return found == std::end(kResetCauses) ? kUnknown : found->name;
}

const char* errorLogName(std::uint8_t error) {
    if (error == 0) return "no error";
    if (error < kFirstSystemError) return "error of the application";
    const std::size_t index = error - kFirstSystemError;
    return index < std::size(kSystemErrors) ? kSystemErrors[index] : kUnknown;
}

std::string named(const char* name, std::uint8_t raw) {
    char text[16];
    std::snprintf(text, sizeof text, " (0x%02X)", raw);
    return name + std::string(text);
}

Json namedJson(const char* name, std::uint8_t raw) {
    return {{"name", name}, {"raw", raw}};
}

NeuronState neuronState(Session& session) {
    NeuronState state{};
    session.call(Side::Neuron, "read the status of the Neuron", [&] { return readState(session.info(), state); });
    return state;
}

}  // namespace cli
