#include "sim/neuron.h"

namespace sim {

void Neuron::setReset(bool held) {
    held_ = held;
}

void Neuron::setService(bool pressed) {
    pressed_ = pressed;
}

void Neuron::load(const std::map<std::string, std::string>&) {}

void Neuron::save(std::map<std::string, std::string>&) const {}

}  // namespace sim
