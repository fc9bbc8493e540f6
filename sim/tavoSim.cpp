// tavo-sim: runs any program that uses the library on a simulated interface.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/options.h"
#include "sim/plug.h"
#include "sim/preload.h"

namespace {

constexpr int kWrongUsage = 2;
constexpr int kCannotRun = 126;  // as a shell has it
constexpr int kNotFound = 127;

constexpr const char* kHelp =
    R"(usage: tavo-sim DIR[,OPTION...]... -- PROGRAM [ARGUMENT...]
       tavo-sim --unplug DIR | --plug DIR

Runs PROGRAM with the simulated interfaces as the only ones attached, device numbers 0, 1, 2 in that
order. Each is kept in its folder DIR, which is made on first use, and is there again at the next run.
With one interface, and no -- among the program's arguments, -- may be left out.

--unplug and --plug pull its cable and put it back, also while programs run on it: they see it at their
next call.

options, after the folder:
  size=1M          flash size, a power of two from 64K to 128M (first use only)
  serial=00001234  serial number (first use only)
  pace=real|fast   data-sheet times, or no delay
  jedec=20         capacity code in the JEDEC ID, when it is not to be that of the size
  busy=2           status reads for which the flash stays busy after a write, beside its time
  fault=F@N:S      the N-th call of function F returns status S (N+: that and later ones)
  lose-program=N   the N-th Page Program changes nothing
  lose-erase=N     the N-th erase changes nothing
  sfdp=none|lying  the flash tells nothing, or nothing true, of itself
  dead-flash=N     after N transfers the flash reads FF for ever
  denied           this user may not open it
  pins=12          a bridge without a service pin
  access=library   values that switch the configuration mode: library, letters or both
  unfinished       an SPI transfer is stuck until the bridge's SPI part is reset

examples:
  tavo-sim /tmp/interface,pace=fast -- tavo-util program image.hex
  tavo-sim /tmp/interface,fault=CySpiReadWrite@3:11 -- ./my-host-program
  tavo-sim /tmp/one /tmp/two,serial=00005678 -- ./my-host-program
)";

int fail(int exitCode, const std::string& message) {
    std::fprintf(stderr, "tavo-sim: error: %s\n", message.c_str());
    return exitCode;
}

int run(char** command) {
    ::execvp(command[0], command);
    const int error = errno;
    const std::string what = std::string("cannot run ") + command[0] + ": " + std::strerror(error);
    if (error != ENOENT) return fail(kCannotRun, what);
    return fail(kNotFound, what + "\n  hint: give its path, or a name that PATH finds");
}

std::vector<std::string> withoutPrefix(std::vector<std::string> descriptions) {
    for (std::string& each : descriptions) {
        if (each.rfind("sim:", 0) == 0) each.erase(0, 4);
    }
    return descriptions;
}

int plug(int argc, char** argv, bool pluggedIn) {
    if (argc != 3) return fail(kWrongUsage, "one folder is needed\n  hint: tavo-sim --unplug DIR; tavo-sim --help");
    try {
        const std::string folder = sim::parseOptions(withoutPrefix({argv[2]}).front()).folder;
        if (sim::setPluggedIn(folder, pluggedIn)) return 0;
        std::fprintf(stderr, "tavo-sim: %s is %s already\n", folder.c_str(), pluggedIn ? "plugged in" : "unplugged");
        return 0;
    } catch (const std::invalid_argument& error) {
        return fail(kWrongUsage, error.what());
    } catch (const std::exception& error) {
        return fail(1, error.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (first == "--plug" || first == "--unplug") return plug(argc, argv, first == "--plug");
    const int separator = static_cast<int>(std::find(argv + 1, argv + argc, std::string_view("--")) - argv);
    const int program = separator < argc ? separator + 1 : 2;
    const std::vector<std::string> descriptions(argv + 1, argv + std::min({separator, program, argc}));
    const auto isOption = [](const std::string& each) { return each.empty() || each[0] == '-'; };
    if (descriptions.empty() || std::any_of(descriptions.begin(), descriptions.end(), isOption) || program >= argc) {
        return fail(kWrongUsage, "a folder and a program are needed\n  hint: tavo-sim DIR -- PROGRAM; tavo-sim --help");
    }
    try {
        sim::preparePreload(withoutPrefix(descriptions));
    } catch (const std::invalid_argument& error) {
        return fail(kWrongUsage, error.what());
    } catch (const std::exception& error) {
        return fail(1, error.what());
    }
    return run(argv + program);
}
