// tavo-util: from a command line to an exit code.
#include <cstdlib>
#include <exception>
#include <string>

#include "cli/deviceChoice.h"
#include "cli/session.h"
#include "cli/simulated.h"
#include "cli/usage.h"
#include "platform/deviceIds.h"

namespace cli {
namespace {

void allowUsbIds(const std::vector<std::string>& ids) {
    constexpr int kHex = 16;
    for (const auto& id : ids) {
        platform::allowDeviceId(static_cast<std::uint16_t>(std::stoul(id.substr(0, 4), nullptr, kHex)),
                                static_cast<std::uint16_t>(std::stoul(id.substr(5), nullptr, kHex)));
    }
}

void setUpOutput(const GlobalOptions& options) {
    console().setColor(options.color);
    log().setVerbosity(options.verbosity);
    if (!options.logFile.empty()) log().open(options.logFile);
    progress().configure(options.asChild ? "json" : options.progress, options.quiet);
}

/// {serial} in the files that the command writes.
void nameOutputs(const Session& session, const std::vector<std::string*>& outputs) {
    const std::string mark = "{serial}";
    const std::string serial = serialText(session.attachedDevice());
    for (std::string* path : outputs) {
        for (auto at = path->find(mark); at != std::string::npos; at = path->find(mark, at + serial.size())) {
            path->replace(at, mark.size(), serial);
        }
    }
}

Exit runCommand(Session& session, const Invocation& invocation, char** argv) {
    try {
        setUpOutput(invocation.options);
        allowUsbIds(invocation.options.usbIds);
        const auto& devices = invocation.options.devices;
        if (devices.size() == 1 && session.command.needs != Needs::Nothing) {
            const DeviceSpec spec = parseDeviceSpec(devices.front());
            if (spec.kind == DeviceSpec::Kind::Simulated) startOnSimulatedInterface(spec.text, argv);
        }
        noteSignals();
        session.prepare();
        nameOutputs(session, invocation.outputs);
        invocation.run(session);
        progress().end();
        return Exit::Done;
    } catch (const Failure& failure) {
        progress().abandon();
        session.report.failure(failure);
        return failure.exit;
    } catch (const Interrupted&) {
        progress().abandon();
        session.report.interrupted();
        return Exit::Interrupted;
    } catch (const std::exception& error) {
        progress().abandon();
        session.report.failure(
            {Exit::Internal, std::string("internal error: ") + error.what(), "please report this", {}});
        return Exit::Internal;
    }
}

int run(int argc, char** argv) {
    const Invocation invocation = readCommandLine(argc, argv);
    if (invocation.command == nullptr) return invocation.exitCode;
    Session session(invocation.options, *invocation.command);
    const Exit exit = runCommand(session, invocation, argv);
    return session.report.finish(exit);
}

}  // namespace
}  // namespace cli

int main(int argc, char** argv) {
    return cli::run(argc, argv);
}
