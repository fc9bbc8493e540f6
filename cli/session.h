// What a running command works with.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/console.h"
#include "cli/interrupt.h"
#include "cli/log.h"
#include "cli/options.h"
#include "cli/outcome.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "cli/stopwatch.h"
#include "platform/deviceLock.h"
#include "platform/discovery.h"
#include "tavo/deviceAccess.h"

namespace cli {

class Session {
public:
    Session(const GlobalOptions& globalOptions, const Command& chosenCommand);

    const GlobalOptions& options;
    const Command& command;
    Report report;
    Exit exit = Exit::Done;  ///< of a command that ends well: Exit::Differs for one that found a difference

    /// The chosen device (Needs::Device).
    DeviceInfo& device() { return device_.info; }
    const platform::AttachedDevice& attachedDevice() const { return device_; }
    /// "00001234 at 1-4.2", for messages.
    std::string deviceName() const;
    /// The devices that the options leave (Needs::List).
    const std::vector<platform::AttachedDevice>& attached() const { return attached_; }

    /// Makes one library call. What the library prints meanwhile goes to the log.
    /// @param doing  completes "cannot ...": "read the Neuron ID"; the device's name is added.
    /// Throws the Failure of its status, and Interrupted when a Ctrl-C came before it.
    void call(Side side, const std::string& doing, const std::function<TAVO_STATUS()>& operation);
    /// The same, returning the status for commands that explain it themselves.
    TAVO_STATUS tryCall(const std::string& doing, const std::function<TAVO_STATUS()>& operation);
    /// What the library wrote to standard error in the last call.
    const std::string& libraryErrors() const { return libraryErrors_; }

    /// Asks on the terminal; yes with -y. Throws Failure (exit 13) for a no, or without a terminal.
    void confirm(const std::string& question);

    /// Finds what the command needs; throws Failure.
    void prepare();

private:
    void chooseDevice();
    void lockDevice();

    platform::AttachedDevice device_;
    std::vector<platform::AttachedDevice> attached_;
    std::unique_ptr<platform::DeviceLock> lock_;
    std::string libraryErrors_;
};

}  // namespace cli
