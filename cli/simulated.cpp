#include "cli/simulated.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "cli/outcome.h"
#include "sim/preload.h"

namespace cli {
namespace {

/// Holds the process ID that has been started again: exec keeps it, children get another one.
constexpr const char* kGuard = "TAVO_UTIL_SIMULATED";

void prepare(const std::string& description) {
    try {
        sim::preparePreload(description);
    } catch (const std::invalid_argument& error) {
        throw Failure{Exit::Usage, error.what(), "-d sim:DIR[,size=1M][,pace=fast]", {}};
    } catch (const std::runtime_error& error) {
        throw Failure{Exit::Internal, error.what(), "install the simulated interface beside this program", {}};
    }
}

/// The dynamic linker only warns of a library that it cannot preload and goes on without it: then the
/// commands would work on whatever is plugged in.
void requirePreloaded() {
    if (void* library = dlopen("libtavo-sim.so", RTLD_LAZY | RTLD_NOLOAD); library != nullptr) {
        dlclose(library);
        return;
    }
    throw Failure{Exit::Internal,
                  "the simulated interface could not be loaded; no real one is used in its place",
                  "build or install libtavo-sim.so again, beside this program",
                  {}};
}

}  // namespace

void startOnSimulatedInterface(const std::string& description, char** argv) {
    const std::string self = std::to_string(getpid());
    if (const char* guard = std::getenv(kGuard); guard != nullptr && self == guard) return requirePreloaded();
    prepare(description);
    setenv(kGuard, self.c_str(), 1);
    execv("/proc/self/exe", argv);
    throw Failure{
        Exit::Internal, std::string("cannot start again on the simulated interface: ") + std::strerror(errno), "", {}};
}

}  // namespace cli
