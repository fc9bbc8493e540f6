// What a command has to say: lines for a person, or one JSON object for a program.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/outcome.h"

namespace cli {

using Json = nlohmann::ordered_json;

class Report {
public:
    /// @param json   print one object at the end instead of lines
    /// @param quiet  leave courtesy lines out
    void configure(bool json, bool quiet);
    bool isJson() const { return json_; }

    Json result = Json::object();                   ///< "result"; stays as far as it was filled when a step fails
    Json device;                                    ///< null until a device is chosen
    FlashState flashState = FlashState::Untouched;  ///< raise it before the step that may change it
    std::string stateText;                          ///< replaces the flash state in the error text, for other parts
    std::string command;

    void line(const std::string& text);    ///< what was asked for: standard output, also with -q
    void note(const std::string& text);    ///< that it was done: standard output, not with -q
    void script(const std::string& text);  ///< text for a program, exactly, with its line ends; standard output
    void warning(const std::string& text, const std::string& hint = "");

    /// Tells a failure: three lines on standard error, and a message of the object.
    void failure(const Failure& failure);
    void interrupted();

    /// Prints the object, if one is wanted. @return the exit code.
    int finish(Exit exit);
    /// The object that finish prints.
    Json object(Exit exit) const;
    /// The lines of a child process travel inside its object.
    void keepLines() { keepLines_ = true; }

private:
    std::string state() const;
    void tell(const char* severity, const std::string& text, const std::string& hint);

    bool json_ = false;
    bool quiet_ = false;
    bool keepLines_ = false;
    std::vector<std::string> lines_;
    std::optional<TAVO_STATUS> status_ = TAVO_SUCCESS;
    Json messages_ = Json::array();
};

/// The three-line error form on standard error.
/// @param lines  more about text, one below the other
void printError(const std::string& text, const std::string& state, const std::string& hint,
                const std::vector<std::string>& lines = {});

/// Numbers and sizes as people write them.
std::string hexText(const unsigned char* bytes, std::size_t count, const char* separator = " ");  ///< "9F FF 05"
std::string hexAddress(std::uint32_t address);                                                    ///< "0x01A400"
std::string sizeText(std::uint64_t bytes);                            ///< "1 MiB", "64 KiB", "300 bytes"
std::string secondsText(double seconds);                              ///< "31.2 s", "2 min 5 s"
std::string countText(std::uint64_t count, const std::string& noun);  ///< "1 page", "3 pages"

}  // namespace cli
