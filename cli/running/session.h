// What a running command works with.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/arguments/command.h"
#include "cli/arguments/options.h"
#include "cli/output/console.h"
#include "cli/output/log.h"
#include "cli/output/progress.h"
#include "cli/output/report.h"
#include "cli/output/stopwatch.h"
#include "cli/running/images.h"
#include "cli/running/interrupt.h"
#include "cli/running/outcome.h"
#include "tavo/service/device.h"
#include "tavo/service/operation.h"
#include "tavo/service/report.h"
#include "tavo/service/text.h"
#include "tavo/service/trace.h"

namespace cli {

class Session {
public:
    Session(const GlobalOptions& globalOptions, const Command& chosenCommand);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const GlobalOptions& options;
    const Command& command;
    Log log;
    Progress progress{log};
    Report report{log, progress};
    /// Shared by all devices of one command line.
    std::shared_ptr<Images> images = std::make_shared<Images>();
    /// Opens a page that is written when the command ends, good or bad; none for an empty path. Throws tavo::Error.
    void openPage(const std::string& path, const std::string& title);
    bool hasPage() const { return page_.has_value(); }
    /// The result in a line, for the page too.
    void conclude(const std::string& text);
    tavo::JobReport job;  ///< for the page; what the session knows itself is filled in at the end
    /// Writes the page, if there is one.
    /// @return ended, or another one, told: what ended well does not when the page cannot be written
    Exit writePage(Exit ended);

    Exit exit = Exit::Done;  ///< of a command that ends well: Exit::Differs for one that found a difference

    bool hasDevice() const { return device_.has_value(); }
    /// The chosen device, locked until the command ends (Needs::Device).
    tavo::Device& device() { return *device_; }
    const tavo::Device& device() const { return *device_; }
    /// "00001234 at 1-4.2", for messages.
    std::string deviceName() const { return device_->name(); }
    /// The devices that the options leave (Needs::List).
    const std::vector<tavo::DeviceDescription>& attached() const { return attached_; }

    /// One of several devices: the name stands before what is said of it, events have its description. What it has to
    /// say is kept, and a question that nobody can answer ends it.
    void setName(const std::string& name, const std::string& spec);

    /// Tells each transfer of this thread to the log, as long as it lives; null when nobody wants to know.
    std::unique_ptr<tavo::TransferTrace> trace();

    /// For every operation of the service layer: shows what it tells, and stops it on Ctrl-C.
    const tavo::Control& control() const { return control_; }

    /// Asks on the terminal; yes with -y. Throws Failure (exit 13) for a no, or without a terminal.
    void confirm(const std::string& question);

    /// Finds what the command needs, and puts its question; throws Failure.
    /// @param question  "erase the whole flash"; empty: none
    void prepare(const std::string& question);

private:
    void chooseDevice();
    void take(const tavo::Event& event);

    bool isOneOfSeveral_ = false;
    tavo::Control control_;
    std::optional<tavo::Device> device_;
    std::optional<tavo::JobPageFile> page_;
    std::string pagePath_;
    Stopwatch watch_;
    std::vector<tavo::DeviceDescription> attached_;
};

}  // namespace cli
