// A simulated interface on a clock of its own, as fresh as from the factory.
#pragma once

#include "sim/rig.h"
#include "tavo/deviceAccess.h"

namespace fuzz {

sim::Rig& freshRig();
/// How the library reaches it.
DeviceInfo deviceInfo();

}  // namespace fuzz
