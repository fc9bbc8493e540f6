#include "sim/preload.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "sim/options.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libtavo-sim.so";

fs::path findLibrary() {
    const fs::path own = fs::read_symlink("/proc/self/exe").parent_path();
    std::string tried;
    for (const fs::path& folder : {own, own / "../lib", own / ".." / TAVO_SIM_LIBDIR}) {
        std::error_code error;
        const fs::path found = fs::canonical(folder / kLibrary, error);
        if (!error) return found;
        tried += "\n  " + folder.lexically_normal().string();
    }
    throw std::runtime_error(std::string(kLibrary) + " is not there; looked for in:" + tried +
                             "\nbuild or install the simulated interface with this program");
}

void prepend(const char* variable, const std::string& value, const char* separator) {
    const char* before = std::getenv(variable);
    const std::string whole = before != nullptr && *before != '\0' ? value + separator + before : value;
    ::setenv(variable, whole.c_str(), 1);
}

}  // namespace

void preparePreload(const std::string& description) {
    const Options options = parseOptions(description);
    const std::string library = findLibrary().string();
    if (library.find_first_of(" :") != std::string::npos) {
        throw std::runtime_error(library +
                                 " cannot be preloaded: the dynamic linker splits such a list at blanks and "
                                 "colons; move it to a folder without them");
    }
    const std::string folder = fs::absolute(options.folder).lexically_normal().string();
    ::setenv("TAVO_SIM", (folder + description.substr(options.folder.size())).c_str(), 1);
    if (!isPreloaded()) prepend("LD_PRELOAD", library, ":");
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer wants to be the first library; the preloaded one brings it along all the same.
    prepend("ASAN_OPTIONS", "verify_asan_link_order=0", ":");
#endif
}

bool isPreloaded() {
    const char* list = std::getenv("LD_PRELOAD");
    return list != nullptr && std::string(list).find(kLibrary) != std::string::npos;
}

}  // namespace sim
