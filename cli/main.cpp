// tavo-util: from a command line to an exit code.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <string>

#include "cli/session.h"
#include "cli/several.h"
#include "cli/simulated.h"
#include "cli/usage.h"
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

void setUpOutput(Session& session) {
    const GlobalOptions& options = session.options;
    console().setColor(options.color);
    if (!options.logFile.empty() && !hasSerialMark(options.logFile)) session.log.open(options.logFile);
    display().configure(options.asChild ? "json" : options.progress, options.quiet);
}

void replaceSerial(Session& session, const Invocation& invocation) {
    if (!needsDevice(session.command.needs)) return;
    const std::string serial = session.device().description().serial;
    for (std::string* text : invocation.texts) *text = withSerial(*text, serial);
    const std::string& logFile = invocation.options.logFile;
    if (hasSerialMark(logFile)) session.log.open(withSerial(logFile, serial));
}

/// Ends the run in the one way that the failure says.
template <typename Body>
Exit guarded(Session& session, const Body& body) {
    Report& report = session.report;
    try {
        return body();
    } catch (const Failure& failure) {
        session.progress.abandon();
        report.failure(failure);
        return failure.exit;
    } catch (const Interrupted&) {
        session.progress.abandon();
        report.interrupted();
        return Exit::Interrupted;
    } catch (const tavo::Error& error) {
        session.progress.abandon();
        report.failure(error);
        return exitOf(error);
    } catch (const std::exception& error) {
        session.progress.abandon();
        report.failure({Exit::Internal, std::string("internal error: ") + error.what(), "please report this", {}});
        return Exit::Internal;
    }
}

Exit runCommand(Session& session, const Invocation& invocation, char** argv) {
    const auto& devices = invocation.options.devices;
    if (devices.size() == 1 && session.command.needs != Needs::Nothing) {
        const auto spec = tavo::DeviceSpec::parse(devices.front());
        if (spec.kind == tavo::DeviceSpec::Kind::Simulated) startOnSimulatedInterface(spec.text, argv);
    }
    session.prepare();
    replaceSerial(session, invocation);
    invocation.run(session);
    session.progress.end();
    return session.exit;
}

int run(int argc, char** argv) {
    const Invocation invocation = readCommandLine(argc, argv);
    if (invocation.command == nullptr) return invocation.exitCode;
    Session session(invocation.options, *invocation.command);
    std::optional<int> ofSeveral;
    const Exit exit = guarded(session, [&] {
        setUpOutput(session);
        allowUsbIds(invocation.options.usbIds);
        noteSignals();
        if (!wantsSeveral(invocation)) return runCommand(session, invocation, argv);
        ofSeveral = runSeveral(invocation, argc, argv);
        return Exit::Done;
    });
    if (const std::string fault = session.log.fault(); !fault.empty()) {
        session.report.warning(fault, "free some space, or choose another file for --log");
    }
    return ofSeveral ? *ofSeveral : session.report.finish(exit);
}

}  // namespace
}  // namespace cli

int main(int argc, char** argv) {
    cli::openMissingStreams();
    return cli::run(argc, argv);
}
