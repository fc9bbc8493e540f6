// tavo-util: from a command line to an exit code.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "cli/output/console.h"
#include "cli/running/run.h"
#include "cli/running/several.h"
#include "cli/running/simulated.h"
#include "tavo/service/device.h"

namespace cli {
namespace {

/// A file opened while one of the three standard streams is closed gets its number, and whatever is
/// printed goes into that file: a copy of the image, the dump.
void openMissingStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest free number is taken: the streams below this one are open.
        if (fcntl(stream, F_GETFD) < 0 && errno == EBADF) static_cast<void>(open("/dev/null", O_RDWR));
    }
}

void allowUsbIds(const std::vector<std::string>& ids) {
    constexpr int kHex = 16;
    for (const auto& id : ids) {
        tavo::allowUsbId(static_cast<std::uint16_t>(std::stoul(id.substr(0, 4), nullptr, kHex)),
                         static_cast<std::uint16_t>(std::stoul(id.substr(5), nullptr, kHex)));
    }
}

int run(int argc, char** argv) {
    const Invocation invocation = readCommandLine(argc, argv);
    if (invocation.command == nullptr) return invocation.exitCode;
    const GlobalOptions& options = invocation.options;
    Session session(options, *invocation.command);
    bool isTold = false;
    const Exit exit = guarded(session, [&] {
        console().setColor(options.color);
        display().configure(options.progress, options.quiet);
        allowUsbIds(options.usbIds);
        noteSignals();
        if (session.command.needs != Needs::Nothing) startOnSimulatedInterfaces(options.devices, argv);
        if (!wantsSeveral(invocation)) return runCommand(session, invocation);
        const Exit worst = runSeveral(session, invocation, argc, argv);
        isTold = true;
        return worst;
    });
    return isTold ? static_cast<int>(exit) : session.report.finish(exit);
}

}  // namespace
}  // namespace cli

int main(int argc, char** argv) {
    cli::openMissingStreams();
    return cli::run(argc, argv);
}
