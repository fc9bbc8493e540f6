// What a command has to say: lines for a person, or one JSON object for a program.
#pragma once

#include <string>
#include <vector>

#include "cli/output/console.h"
#include "cli/output/json.h"
#include "cli/running/hint.h"
#include "cli/running/outcome.h"
#include "tavo/service/report.h"
#include "tavo/service/text.h"

namespace cli {

class Log;
class Progress;

class Report {
public:
    /// Both are borrowed: what is told goes to the log too, and between the rows of the progress.
    Report(Log& log, Progress& progress) : log_(log), progress_(progress) {}

    /// @param json   print one object at the end instead of lines
    /// @param quiet  leave courtesy lines out
    void configure(bool json, bool quiet);
    bool isJson() const { return json_; }

    Json result = Json::object();  ///< "result"; stays as far as it was filled when a step fails
    Json device;                   ///< null until a device is chosen
    tavo::DeviceState state;       ///< what is known of the device; raise it before the step that may change it
    std::string stateText;         ///< replaces the state in the error text
    std::string command;
    std::string deviceOptions;  ///< for the commands in hints

    void line(const std::string& text);    ///< what was asked for: standard output, also with -q
    void line(const Line& line);           ///< the same, in colours where they show
    std::size_t columns() const;           ///< that such a line may have
    void note(const std::string& text);    ///< that it was done: standard output, not with -q
    void script(const std::string& text);  ///< text for a program, exactly, with its line ends; standard output
    /// Whole lines on standard output at once, also of one of several devices and with --json: what is told while
    /// a command runs on. Throws tavo::Error when they cannot be written.
    void atOnce(const std::vector<std::string>& lines);
    void warning(const std::string& text, const std::string& hint = "");
    /// A text with commands as it is told: each names the device, where it was named.
    std::string pasteable(const std::string& hint) const { return withDevice(hint, deviceOptions); }

    /// Tells a failure: three lines on standard error, and a message of the object.
    void failure(const Failure& failure);
    void failure(const tavo::Error& error);

    /// What is told of the device: in the error text, in the object.
    std::string knownState() const;
    /// Warnings and the failure, so far.
    std::vector<tavo::JobMessage> told() const;

    /// Prints the object, if one is wanted. @return the exit code.
    int finish(Exit exit);
    /// The object that finish prints.
    Json object(Exit exit) const;
    /// One of several devices: everything is kept until tellKept, so that their lines do not mix.
    void keep(const std::string& name);
    /// Prints it, each line with the name in front.
    void tellKept() const;

private:
    struct Message : tavo::JobMessage {
        std::string code = {};  ///< " [TAVO_TIMEOUT 16]"
    };

    void fail(const std::string& text, const std::string& hint, const std::optional<TAVO_STATUS>& status,
              const std::vector<std::string>& lines);
    void print(const Message& message, const std::string& name) const;
    void tell(Message message);
    Json messagesJson() const;

    Log& log_;
    Progress& progress_;
    bool json_ = false;
    bool quiet_ = false;
    bool isKept_ = false;
    std::string prefix_;  ///< of kept lines
    std::vector<Line> lines_;
    std::optional<TAVO_STATUS> status_ = TAVO_SUCCESS;
    std::vector<Message> messages_;
};

/// The exit code of the program: another one, told on standard error, when standard output has not taken all.
Exit outputChecked(Exit exit, const std::string& state);

using tavo::countText;
using tavo::hexAddress;
using tavo::hexText;
using tavo::neuronIdText;
using tavo::secondsText;
using tavo::sizeText;

}  // namespace cli
