// As service/device/simulated.cpp, where this library is part of the program: the program's calls are bound to what it
// was linked with, and a simulated interface that is preloaded would leave it on the real ones.
#include "tavo/service/simulated.h"

#include "tavo/service/device.h"

namespace sim {

class Rig;
/// There when libtavo-sim.a was linked in front of libtavo-platform.a. Hidden: a preloaded one does not count.
__attribute__((weak, visibility("hidden"))) Rig& rig(unsigned index);

}  // namespace sim

namespace tavo {

bool isSimulated(const std::string& spec) {
    return DeviceSpec::parse(spec).kind == DeviceSpec::Kind::Simulated;
}

std::vector<std::pair<std::string, std::string>> simulatedEnvironment(const std::vector<std::string>&) {
    throw Error(Problem::BadArgument,
                "this program is linked statically and cannot be started on a simulated interface",
                "use one that is linked with the shared libraries (built without -DTAVO_STATIC=ON)");
}

bool isOnSimulatedInterfaces() {
    return &sim::rig != nullptr;
}

}  // namespace tavo
