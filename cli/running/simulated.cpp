#include "cli/running/simulated.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli/running/outcome.h"
#include "tavo/service/simulated.h"

namespace cli {
namespace {

/// Holds the process ID that has been started again: exec keeps it, children get another one.
constexpr const char* kGuard = "TAVO_UTIL_SIMULATED";

void requireLoaded() {
    if (tavo::isOnSimulatedInterfaces()) return;
    throw Failure{Exit::Internal,
                  "the simulated interface could not be loaded; no real one is used in its place",
                  "build or install libtavo-sim.so again, beside this program",
                  {}};
}

}  // namespace

void startOnSimulatedInterfaces(const std::vector<std::string>& specs, char** argv) {
    const auto simulated = std::count_if(specs.begin(), specs.end(), tavo::isSimulated);
    if (simulated == 0) return;
    if (static_cast<std::size_t>(simulated) != specs.size()) {
        throw Failure{
            Exit::Usage, "simulated and real interfaces cannot be mixed", "start the program once for each kind", {}};
    }
    const std::string self = std::to_string(getpid());
    if (const char* guard = std::getenv(kGuard); guard != nullptr && self == guard) return requireLoaded();
    for (const auto& [name, value] : tavo::simulatedEnvironment(specs)) setenv(name.c_str(), value.c_str(), 1);
    setenv(kGuard, self.c_str(), 1);
    execv("/proc/self/exe", argv);
    throw Failure{
        Exit::Internal, std::string("cannot start again on the simulated interface: ") + std::strerror(errno), "", {}};
}

}  // namespace cli
