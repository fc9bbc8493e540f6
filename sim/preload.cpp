#include "sim/preload.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <system_error>

#include "sim/options.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libtavo-sim.so";

/// Where the shared library lies that this code is in; the program's own folder where it is in a program.
fs::path ownFolder(const fs::path& programs) {
    Dl_info own{};
    if (dladdr(reinterpret_cast<const void*>(&ownFolder), &own) == 0 || own.dli_fname == nullptr) return programs;
    const fs::path file = own.dli_fname;  // of a program: what it was called by
    return file.is_absolute() ? file.parent_path() : programs;
}

fs::path findLibrary() {
    const fs::path programs = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path own = ownFolder(programs);
    std::string tried;
    for (const fs::path& folder : {programs, own, own / "tavo-util", programs / ".." / TAVO_SIM_LIBDIR}) {
        std::error_code error;
        const fs::path found = fs::canonical(folder / kLibrary, error);
        if (!error) return found;
        tried += "\n  " + folder.lexically_normal().string();
    }
    throw std::runtime_error(std::string(kLibrary) + " is not there; looked for in:" + tried +
                             "\nbuild or install the simulated interface with this program (Debian: tavo-util-sim)");
}

std::pair<std::string, std::string> inFront(const char* variable, const std::string& value) {
    const char* before = std::getenv(variable);
    return {variable, before != nullptr && *before != '\0' ? value + ":" + before : value};
}

std::string joined(const std::vector<std::string>& descriptions) {
    std::set<std::string> folders;
    std::string lines;
    for (const std::string& description : descriptions) {
        if (!folders.insert(portPathOf(description)).second) {
            throw std::invalid_argument("simulated interface: " + parseOptions(description).folder +
                                        " is named twice: name each folder once");
        }
        const std::string folder = parseOptions(description).folder;
        const std::string absolute = fs::absolute(folder).lexically_normal().string();
        if (absolute.find('\n') != std::string::npos) {
            throw std::invalid_argument("simulated interface: a folder name with a line break is not possible");
        }
        lines += (lines.empty() ? "" : "\n") + absolute + description.substr(folder.size());
    }
    return lines;
}

}  // namespace

std::string portPathOf(const std::string& description) {
    // As the folder's own path will be once it is made; a folder that cannot be looked at is refused then.
    const fs::path folder = fs::absolute(parseOptions(description).folder);
    std::error_code error;
    const fs::path canonical = fs::weakly_canonical(folder, error);
    std::string path = (error ? folder.lexically_normal() : canonical).string();
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return "sim:" + path;
}

void preparePreload(const std::string& description) {
    preparePreload(std::vector<std::string>{description});
}

Environment preloadEnvironment(const std::vector<std::string>& descriptions) {
    Environment environment{{"TAVO_SIM", joined(descriptions)}};
    const std::string library = findLibrary().string();
    if (library.find_first_of(" :") != std::string::npos) {
        throw std::runtime_error(library +
                                 " cannot be preloaded: the dynamic linker splits such a list at blanks and "
                                 "colons; move it to a folder without them");
    }
    if (!isPreloaded()) environment.push_back(inFront("LD_PRELOAD", library));
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer wants to be the first library; the preloaded one brings it along all the same.
    environment.push_back(inFront("ASAN_OPTIONS", "verify_asan_link_order=0"));
#endif
    return environment;
}

void preparePreload(const std::vector<std::string>& descriptions) {
    for (const auto& [name, value] : preloadEnvironment(descriptions)) ::setenv(name.c_str(), value.c_str(), 1);
}

bool isPreloaded() {
    const char* list = std::getenv("LD_PRELOAD");
    return list != nullptr && std::string(list).find(kLibrary) != std::string::npos;
}

}  // namespace sim
