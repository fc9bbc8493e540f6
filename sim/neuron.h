// The Neuron of a simulated interface.
#pragma once

#include <map>
#include <string>

#include "sim/clock.h"
#include "sim/export.h"

namespace sim {

class TAVO_SIM_API Neuron {
public:
    explicit Neuron(Clock& clock) : clock_(clock) {}

    /// The reset line (pin 8): held while low, boots on release.
    void setReset(bool held);
    bool isHeld() const { return held_; }
    /// The service line (pin 14).
    void setService(bool pressed);

    /// Its state as key=value pairs; unknown keys are ignored, missing ones keep their value.
    /// load throws std::invalid_argument for a value that cannot be.
    void load(const std::map<std::string, std::string>& values);
    void save(std::map<std::string, std::string>& values) const;

private:
    Clock& clock_;
    bool held_ = false;
    bool pressed_ = false;
};

}  // namespace sim
