// The bridge pins that are wired to the Neuron. Both lines are active low.
#pragma once

inline constexpr unsigned char kNeuronResetPin = 8;
inline constexpr unsigned char kNeuronServicePin = 14;
