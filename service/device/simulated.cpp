#include "tavo/service/simulated.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "sim/options.h"
#include "sim/preload.h"
#include "tavo/service/device.h"

namespace tavo {
namespace {

namespace fs = std::filesystem;

/// A board that this user may not use is told before anything is started on it.
void requireAccess(const fs::path& folder) {
    std::error_code error;
    std::vector<fs::path> needed{folder};
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        needed.push_back(at->path());
    }
    for (const auto& path : needed) {
        const bool isFolder = fs::is_directory(path, error);
        if (access(path.c_str(), isFolder ? R_OK | W_OK | X_OK : R_OK | W_OK) == 0 || errno != EACCES) continue;
        throw Error(Problem::NoPermission,
                    "cannot use the simulated interface: no permission to read and write " + path.string(),
                    "give this user access to the folder and the files in it, or name another folder");
    }
}

Error notInstalled(const std::string& what) {
    std::istringstream lines(what);
    std::string first;
    std::getline(lines, first);
    Error error(Problem::Internal, first,
                "install the simulated interface beside this program (Debian: tavo-util-sim)");
    for (std::string line; std::getline(lines, line);) error.details.push_back(line);
    return error;
}

}  // namespace

bool isSimulated(const std::string& spec) {
    return DeviceSpec::parse(spec).kind == DeviceSpec::Kind::Simulated;
}

std::vector<std::pair<std::string, std::string>> simulatedEnvironment(const std::vector<std::string>& specs) {
    try {
        std::vector<std::string> descriptions;
        for (const auto& spec : specs) {
            descriptions.push_back(DeviceSpec::parse(spec).text);
            requireAccess(sim::parseOptions(descriptions.back()).folder);
        }
        return sim::preloadEnvironment(descriptions);
    } catch (const Error&) {
        throw;
    } catch (const std::invalid_argument& error) {
        throw Error(Problem::BadArgument, error.what(), "-d sim:DIR[,size=1M][,pace=fast]");
    } catch (const fs::filesystem_error& error) {
        throw Error(Problem::FileSystem, std::string("cannot find the simulated interface: ") + error.what(),
                    "is the current folder still there? Name the interface's folder by its whole path");
    } catch (const std::runtime_error& error) {
        throw notInstalled(error.what());
    }
}

bool isOnSimulatedInterfaces() {
    void* const library = dlopen("libtavo-sim.so", RTLD_LAZY | RTLD_NOLOAD);
    if (library != nullptr) dlclose(library);
    return library != nullptr;
}

}  // namespace tavo
