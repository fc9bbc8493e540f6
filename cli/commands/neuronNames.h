// The Neuron's codes, and how they are told in JSON.
#pragma once

#include <cstdint>

#include "cli/output/report.h"
#include "tavo/service/neuron.h"
#include "tavo/service/watch.h"

namespace cli {

/// {"name": "configured", "raw": 4}
inline Json namedJson(const char* name, std::uint8_t raw) {
    return {{"name", name}, {"raw", raw}};
}

inline Json countsJson(const tavo::Counts& counts) {
    Json json = Json::object();
    for (std::size_t i = 0; i < counts.size(); ++i) json[tavo::statusCounter(i).key] = counts[i];
    return json;
}

struct StatusCode {
    const char* key;  // in JSON; for people its underscores are spaces
    unsigned char NeuronState::*raw;
    const char* (*name)(std::uint8_t);
};
inline constexpr StatusCode kStatusCodes[] = {{"node_state", &NeuronState::nodeState, tavo::nodeStateName},
                                              {"reset_cause", &NeuronState::resetCause, tavo::resetCauseName},
                                              {"error_log", &NeuronState::errorLog, tavo::errorLogName}};

}  // namespace cli
