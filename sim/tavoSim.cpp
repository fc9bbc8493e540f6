// tavo-sim: runs any program that uses the library on a simulated interface.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "sim/preload.h"

namespace {

constexpr int kWrongUsage = 2;
constexpr int kCannotRun = 126;  // as a shell has it
constexpr int kNotFound = 127;

constexpr const char* kHelp =
    R"(usage: tavo-sim DIR[,OPTION...] [--] PROGRAM [ARGUMENT...]

Runs PROGRAM with a simulated interface as the only one attached. The interface is kept in the
folder DIR, which is made on first use, and is there again at the next run.

options, after the folder:
  size=1M          flash size, a power of two from 64K to 128M (first use only)
  pace=real|fast   data-sheet times, or no delay
  jedec=20         capacity code in the JEDEC ID, when it is not to be that of the size
  busy=2           status reads for which the flash stays busy after a write, beside its time
  fault=F@N:S      the N-th call of function F returns status S (N+: that and later ones)
  lose-program=N   the N-th Page Program changes nothing
  dead-flash=N     after N transfers the flash reads FF for ever
  denied           this user may not open it
  pins=12          a bridge without a service pin
  access=library   values that switch the configuration mode: library, letters or both
  unfinished       an SPI transfer is stuck until the bridge's SPI part is reset

examples:
  tavo-sim /tmp/interface,pace=fast -- tavo-util program image.hex
  tavo-sim /tmp/interface,fault=CySpiReadWrite@3:11 -- ./my-host-program
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

}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    const int program = argc > 2 && std::strcmp(argv[2], "--") == 0 ? 3 : 2;
    if (first.empty() || first[0] == '-' || program >= argc) {
        return fail(kWrongUsage, "a folder and a program are needed\n  hint: tavo-sim DIR -- PROGRAM; tavo-sim --help");
    }
    try {
        sim::preparePreload(first.rfind("sim:", 0) == 0 ? first.substr(4) : first);
    } catch (const std::invalid_argument& error) {
        return fail(kWrongUsage, error.what());
    } catch (const std::exception& error) {
        return fail(1, error.what());
    }
    return run(argv + program);
}
