// The command table, and how a command is added to it:
//
//  1. Write cli/commands/NAME.cpp with one function
//         Run declareName(Arguments& arguments)
//     that declares the command's own arguments and returns what is to be run. Arguments are kept
//     in a shared_ptr that the returned function holds. See commands/erase.cpp, the smallest one.
//  2. Declare it in commands/commands.h, add a row to kCommands in commandTable.cpp (a name of two
//     words makes a group: "domain read") and the file to CMakeLists.txt.
//
// When it runs, the device is chosen and locked (Needs::Device), --json, progress, log and signals
// are set up and `row.asks` has been confirmed. It hands session.device() and session.control() to an
// operation of the service layer, whose tavo::Error ends it with the right exit code, and tells the result
// through session.report. It never prints, exits or looks at how the device was chosen, and includes
// nothing below tavo/service/.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

class Session;
using Run = std::function<void(Session&)>;

/// Declares one command's arguments. Names as in "-f,--force".
class Arguments {
public:
    explicit Arguments(CLI::App& app) : app_(app) {}

    void required(const char* name, std::string& value, const char* help);
    void optional(const char* name, std::string& value, const char* help);
    void flag(const char* names, bool& value, const char* help);
    void text(const char* names, const char* metavar, std::string& value, const char* help);
    void number(const char* names, const char* metavar, std::optional<int>& value, int low, int high, const char* help);
    /// Seconds that may be left out: "--watch=0.5", or the usual ones, "--watch". Empty without either.
    /// @param nameWithUsual  "--watch{2}"
    void seconds(const char* nameWithUsual, std::string& value, double low, double high, const char* help);
    /// Bytes, with K or M: "512K".
    void size(const char* names, std::optional<unsigned>& value, const char* help);
    /// An address: "0x10000", "64K".
    void address(const char* names, std::optional<std::uint32_t>& value, const char* help);
    /// An option that is one of a few words; value holds the one it has without.
    void choice(const char* names, const char* metavar, std::string& value, const std::vector<std::string>& allowed,
                const char* help);
    /// An argument that is one of a few words.
    void word(const char* name, std::string& value, const std::vector<std::string>& allowed, const char* help);
    /// Words that completion offers for an argument that takes others too.
    void suggest(const char* name, const std::vector<std::string>& words) { choices_[name] = words; }
    /// Marks a value declared before as a file that the command writes: with several devices there
    /// must be a {serial} in it. (In every text argument {serial} is replaced.)
    void isOutput(std::string& value) { outputs_.push_back(&value); }

    /// The question of a command that asks, when its arguments make another one of it than that of the table.
    void asks(std::function<std::string()> question) { question_ = std::move(question); }
    /// Of a command that asks for itself, once it can say more: what several devices are asked before, once for all.
    void asksTogether(std::function<std::string()> question) { togetherQuestion_ = std::move(question); }
    /// --html, for a command that hands it to Session::openPage.
    void page(std::string& path);

    /// The words that an argument or option may be, by its name.
    const std::map<std::string, std::vector<std::string>>& choices() const { return choices_; }
    const std::vector<std::string*>& texts() const { return texts_; }
    const std::vector<std::string*>& outputs() const { return outputs_; }
    const std::function<std::string()>& question() const { return question_; }
    const std::function<std::string()>& togetherQuestion() const { return togetherQuestion_; }

private:
    CLI::App& app_;
    std::map<std::string, std::vector<std::string>> choices_;
    std::vector<std::string*> texts_;
    std::vector<std::string*> outputs_;
    std::function<std::string()> question_;
    std::function<std::string()> togetherQuestion_;
};

enum class Needs {
    Nothing,       // no device
    List,          // what is attached: session.attached()
    Device,        // one device, chosen and locked: session.device()
    DeviceAsItIs,  // the same, also one that cannot be opened: session.device().description().access
    NamedDevice,   // the same as Device where -d or --all names one, else none: session.hasDevice()
};

constexpr bool needsDevice(Needs needs) {
    return needs == Needs::Device || needs == Needs::DeviceAsItIs || needs == Needs::NamedDevice;
}

struct Command {
    const char* name;
    const char* summary;
    Needs needs;
    const char* asks;  // what is about to happen, put as a question first; null: asks nothing
    const char* examples[2];
    Run (*declare)(Arguments&);
};

std::span<const Command> commands();

/// One line about a group of two-word commands.
struct Group {
    const char* name;
    const char* summary;
};
std::span<const Group> groups();

}  // namespace cli
