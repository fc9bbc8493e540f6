#include "cli/simulated.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "cli/outcome.h"
#include "sim/options.h"
#include "sim/preload.h"

namespace cli {
namespace {

/// Holds the process ID that has been started again: exec keeps it, children get another one.
constexpr const char* kGuard = "TAVO_UTIL_SIMULATED";

/// A board that this user may not use is told before anything is started on it.
void requireAccess(const std::filesystem::path& folder) {
    std::error_code error;
    std::vector<std::filesystem::path> needed{folder};
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) needed.push_back(entry.path());
    for (const auto& path : needed) {
        const bool isFolder = std::filesystem::is_directory(path, error);
        if (access(path.c_str(), isFolder ? R_OK | W_OK | X_OK : R_OK | W_OK) == 0 || errno != EACCES) continue;
        throw Failure{Exit::NoPermission,
                      "cannot use the simulated interface: no permission to read and write " + path.string(),
                      "give this user access to the folder and the files in it, or name another folder",
                      {}};
    }
}

void prepare(const std::string& description) {
    try {
        requireAccess(sim::parseOptions(description).folder);
        sim::preparePreload(description);
    } catch (const std::invalid_argument& error) {
        throw Failure{Exit::Usage, error.what(), "-d sim:DIR[,size=1M][,pace=fast]", {}};
    } catch (const std::runtime_error& error) {
        std::istringstream what(error.what());
        Failure failure{Exit::Internal, "", "install the simulated interface beside this program", {}};
        std::getline(what, failure.text);
        for (std::string line; std::getline(what, line);) failure.lines.push_back(line);
        throw failure;
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
